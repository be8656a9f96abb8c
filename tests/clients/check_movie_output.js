#!/usr/bin/env node
// Reads a movie run's output the way a player does. The subtitle variant playlist, with one
// EXT-X-STREAM-INF line added, must parse with hls-parser as a master playlist; every rendition's
// URI must name a finished media playlist whose segments exist, and webvtt-parser must accept
// every segment without errors. Prints one line per rendition
// (NAME|LANGUAGE|DEFAULT|AUTOSELECT|FORCED|URI), then the problems; exit 1 if there are any.
// Usage: check_movie_output.js <output directory> <variant playlist name>
'use strict';
const fs = require('fs');
const path = require('path');
const HLS = require('hls-parser');
const { WebVTTParser } = require('webvtt-parser');

const [dir, variantName] = process.argv.slice(2);
const problems = [];
const MAP_LINE = /^X-TIMESTAMP-MAP=MPEGTS:\d+,LOCAL:00:00:00\.000$/;

function checkSegment(file) {
  const lines = fs.readFileSync(file, 'utf8').split('\n');
  if (lines[0] !== 'WEBVTT' || !MAP_LINE.test(lines[1]) || lines[2] !== '') {
    problems.push(`${file}: bad segment header`);
  }
  lines.splice(1, 1);  // the validator knows no header lines
  const result = new WebVTTParser().parse(lines.join('\n'), 'metadata');
  for (const e of result.errors) problems.push(`${file}: line ${e.line}: ${e.message}`);
}

try {
  const fragment = fs.readFileSync(path.join(dir, variantName), 'utf8');
  const master = HLS.parse(fragment +
      '#EXT-X-STREAM-INF:BANDWIDTH=100000,SUBTITLES="subtitles"\nvideo/prog_index.m3u8\n');
  if (!master.isMasterPlaylist) throw new Error('not a master playlist');
  const renditions = master.variants[0].subtitles || [];
  for (const r of renditions) {
    const yes = (b) => (b ? 'YES' : 'NO');
    console.log([r.name, r.language, yes(r.isDefault), yes(r.autoselect), yes(r.forced), r.uri]
                    .join('|'));
    const playlistPath = path.join(dir, r.uri);
    if (!fs.existsSync(playlistPath)) {
      problems.push(`${r.uri} does not resolve`);
      continue;
    }
    const media = HLS.parse(fs.readFileSync(playlistPath, 'utf8'));
    if (media.isMasterPlaylist || !media.endlist) problems.push(`${r.uri}: not finished`);
    for (const s of media.segments) {
      const segmentPath = path.join(path.dirname(playlistPath), s.uri);
      if (!fs.existsSync(segmentPath)) {
        problems.push(`${r.uri}: missing segment ${s.uri}`);
      } else {
        checkSegment(segmentPath);
      }
    }
  }
} catch (e) {
  problems.push(String(e));
}
for (const p of problems) console.log(`problem: ${p}`);
process.exit(problems.length ? 1 : 0);
