#!/usr/bin/env node
// Reads a merged master playlist with hls-parser and checks what a player relies on: it parses
// as a master playlist, every variant refers to the subtitle group GROUP and sees all of its
// renditions, and every rendition's URI leads to a media playlist that parses, ends with
// EXT-X-ENDLIST and whose segments exist.
// Usage: check_master.js <master> <group> <rendition count>. Prints the problems; exit 1 if any.
'use strict';
const fs = require('fs');
const path = require('path');
const HLS = require('hls-parser');

const [masterPath, group, countText] = process.argv.slice(2);
const expected = Number(countText);
const problems = [];
try {
  const master = HLS.parse(fs.readFileSync(masterPath, 'utf8'));
  if (!master.isMasterPlaylist) throw new Error('not a master playlist');
  if (!master.variants.length) problems.push('no variants');
  const dir = path.dirname(masterPath);
  const checked = new Set();
  for (const variant of master.variants) {
    const subtitles = variant.subtitles || [];
    if (subtitles.length !== expected) {
      problems.push(`${variant.uri}: ${subtitles.length} subtitle renditions, expected ${expected}`);
    }
    for (const rendition of subtitles) {
      if (rendition.groupId !== group) problems.push(`${rendition.name}: group ${rendition.groupId}`);
      if (checked.has(rendition.uri)) continue;
      checked.add(rendition.uri);
      const playlistPath = path.join(dir, rendition.uri);
      if (!fs.existsSync(playlistPath)) {
        problems.push(`${rendition.uri} does not resolve`);
        continue;
      }
      const media = HLS.parse(fs.readFileSync(playlistPath, 'utf8'));
      if (media.isMasterPlaylist || !media.endlist) problems.push(`${rendition.uri}: not a finished media playlist`);
      for (const segment of media.segments) {
        if (!fs.existsSync(path.join(path.dirname(playlistPath), segment.uri))) {
          problems.push(`${rendition.uri}: missing segment ${segment.uri}`);
        }
      }
    }
  }
} catch (e) {
  problems.push(String(e));
}
for (const p of problems) console.log(p);
process.exit(problems.length ? 1 : 0);
