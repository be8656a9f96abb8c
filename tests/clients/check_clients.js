#!/usr/bin/env node
// Runs every corpus source through hlsvtt and checks the output with real clients:
//  - webvtt-parser (the W3C validator's parser): when it accepts a source without errors, it
//    must accept every segment made from it without errors too, and every cue it reads in the
//    source must come out whole in the segments (identifier, truncated timing, text), except
//    where this reader's own rules drop a cue: an empty payload, or a last cue that no blank
//    line ends;
//  - hls-parser: every playlist parses, its EXTINF durations add up to the presentation's end,
//    and every URI names a file on disk.
// One more source is made here: a Japanese text in Shift_JIS, segmented with
// --source-encoding=auto; its cues must come out as the UTF-8 original has them.
// Usage: check_clients.js <hlsvtt binary> <corpus dir>. Prints "N passed, N failed".
'use strict';
const fs = require('fs');
const os = require('os');
const path = require('path');
const { execFileSync } = require('child_process');
const { WebVTTParser } = require('webvtt-parser');
const HLS = require('hls-parser');

const [binary, corpus] = process.argv.slice(2);
if (!fs.existsSync(corpus) || !fs.statSync(corpus).isDirectory()) {
  console.log(`no corpus at ${corpus}`);
  process.exit(77);  // skipped
}
const TARGET = 10;
let passed = 0;
let failed = 0;

// The cues of a segment as written: blocks separated by a blank line, each with its timing
// line first or after an identifier. (A validator may split a block whose text holds a line
// that looks like a timing line; this reading does not.)
function seconds(t) {
  const parts = t.split(':').map(Number);
  return parts.reduce((acc, v) => acc * 60 + v, 0);
}
function cueBlocks(text) {
  return text.split('\n\n').slice(1).flatMap((block) => {
    const lines = block.split('\n');
    const timing = lines[0].includes(' --> ') ? lines[0] : lines[1];
    const m = timing && /^(\d+:\d\d:\d\d\.\d{3}) --> (\d+:\d\d:\d\d\.\d{3})/.exec(timing);
    return m ? [{ startTime: seconds(m[1]), endTime: seconds(m[2]) }] : [];
  });
}

// The timing text the segment writer prints: every field truncated.
function timestamp(t) {
  const ms = Math.trunc(t * 1000);
  const pad = (n, w) => String(n).padStart(w, '0');
  return `${pad(Math.floor(ms / 3600000), 2)}:${pad(Math.floor(ms / 60000) % 60, 2)}:` +
    `${pad(Math.floor(ms / 1000) % 60, 2)}.${pad(ms % 1000, 3)}`;
}

// Whether `segments` hold the cue as one block: its identifier line, its timing line (settings
// may follow), its text and the blank line that ends it.
function hasCue(segments, cue) {
  const timing = `${timestamp(cue.startTime)} --> ${timestamp(cue.endTime)}`;
  for (let at = segments.indexOf(timing); at >= 0; at = segments.indexOf(timing, at + 1)) {
    if (cue.id && !segments.slice(0, at).endsWith(`\n${cue.id}\n`)) continue;
    const lineEnd = segments.indexOf('\n', at);
    if (segments.startsWith(`${cue.text}\n\n`, lineEnd + 1)) return true;
  }
  return false;
}

// The cues of a source this reader must deliver: all the validator reads, but a cue with an
// empty payload, and the last cue when no blank line follows it.
function expectedCues(text, tree) {
  const closed = /(\r?\n){2}$/.test(text) || !/\n$/.test(text);
  return (closed ? tree.cues : tree.cues.slice(0, -1)).filter((c) => c.text !== '');
}

function sources(dir) {
  return fs.readdirSync(dir, { withFileTypes: true }).flatMap((e) => {
    const p = path.join(dir, e.name);
    if (e.isDirectory()) return sources(p);
    return /\.(vtt|srt)$/i.test(e.name) ? [p] : [];
  });
}

function validate(text) {
  return new WebVTTParser().parse(text, 'metadata');
}

// The W3C parser knows no header lines, so the HLS timestamp map (line 2 of every segment) is
// checked here exactly and taken out before the rest is validated.
const MAP_LINE = /^X-TIMESTAMP-MAP=MPEGTS:\d+,LOCAL:00:00:00\.000$/;
function validateSegment(text, problems, name) {
  const lines = text.split('\n');
  if (lines[0] !== 'WEBVTT' || !MAP_LINE.test(lines[1]) || lines[2] !== '') {
    problems.push(`${name}: bad segment header`);
  }
  lines.splice(1, 1);
  return validate(lines.join('\n'));
}

function check(source, options = { args: [], text: null }) {
  const problems = [];
  const out = fs.mkdtempSync(path.join(os.tmpdir(), 'hlsvtt-clients-'));
  try {
    let status = 0;
    try {
      execFileSync(binary, ['-q', '-t', String(TARGET), '-f', out, ...options.args, source],
        { stdio: 'pipe' });
    } catch (e) {
      status = e.status;
    }
    if (status !== 0 && status !== 47) problems.push(`exit status ${status}`);
    const playlistPath = path.join(out, 'prog_index.m3u8');
    const sourceText = options.text ?? fs.readFileSync(source, 'utf8');
    const sourceTree = validate(sourceText);
    const sourceClean = sourceTree.errors.length === 0;
    if (!fs.existsSync(playlistPath)) {
      if (sourceClean && expectedCues(sourceText, sourceTree).length) problems.push('no playlist');
      return problems;
    }

    const playlist = HLS.parse(fs.readFileSync(playlistPath, 'utf8'));
    if (!playlist.endlist) problems.push('playlist has no EXT-X-ENDLIST');
    let total = 0;
    for (const segment of playlist.segments) {
      total += segment.duration;
      if (!fs.existsSync(path.join(out, segment.uri))) problems.push(`missing ${segment.uri}`);
    }

    if (sourceClean) {
      const segments = playlist.segments
        .map((s) => fs.readFileSync(path.join(out, s.uri), 'utf8')).join('').replace(/\r\n/g, '\n');
      const missing = expectedCues(sourceText, sourceTree).filter((c) => !hasCue(segments, c));
      if (missing.length) {
        problems.push(`${missing.length} cue(s) missing or altered, first at ${timestamp(missing[0].startTime)}`);
      }
    }
    let last = null;
    for (const segment of playlist.segments) {
      const tree = validateSegment(fs.readFileSync(path.join(out, segment.uri), 'utf8'), problems, segment.uri);
      if (sourceClean && tree.errors.length) {
        problems.push(`${segment.uri}: ${JSON.stringify(tree.errors[0])}`);
      }
      last = { cues: cueBlocks(fs.readFileSync(path.join(out, segment.uri), 'utf8')) };
    }
    // The presentation ends with the last cue, or with the latest cue still running past the
    // grid line that closes the last segment.
    if (last && last.cues.length) {
      const start = total - playlist.segments[playlist.segments.length - 1].duration;
      const lastCue = last.cues[last.cues.length - 1];
      const gridEnd = start + TARGET * Math.max(1, Math.floor((lastCue.startTime - start) / TARGET) + 1);
      const running = last.cues.filter((c) => c.endTime > gridEnd + 1e-9).map((c) => c.endTime);
      const end = running.length ? Math.max(...running) : lastCue.endTime;
      if (Math.abs(total - end) > 0.002) problems.push(`EXTINF sum ${total}, presentation end ${end}`);
    }
  } catch (e) {
    problems.push(String(e));
  } finally {
    fs.rmSync(out, { recursive: true, force: true });
  }
  return problems;
}

for (const source of sources(corpus)) {
  const problems = check(source);
  if (problems.length) {
    failed++;
    console.log(`FAIL ${path.relative(corpus, source)}: ${problems.join('; ')}`);
  } else {
    passed++;
  }
}
// A converted source: the same checks against its UTF-8 original, and the text must be there.
{
  const lines = fs.readFileSync(path.join(__dirname, '../data/encodings/japanese.txt'), 'utf8')
    .split('\n').filter((l) => l);
  const text = 'WEBVTT\n\n' + lines.map((l, i) =>
    `${timestamp(i * 4 + 1)} --> ${timestamp(i * 4 + 3.5)}\n${l}\n\n`).join('');
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'hlsvtt-clients-sjis-'));
  const source = path.join(dir, 'japanese.vtt');
  fs.writeFileSync(source, execFileSync('iconv', ['-f', 'UTF-8', '-t', 'SHIFT_JIS'], { input: text }));
  const problems = check(source, { args: ['--source-encoding=auto'], text });
  if (validate(text).errors.length) problems.push('the UTF-8 original is not clean');
  fs.rmSync(dir, { recursive: true, force: true });
  if (problems.length) {
    failed++;
    console.log(`FAIL Shift_JIS source: ${problems.join('; ')}`);
  } else {
    passed++;
  }
}
console.log(`${passed} passed, ${failed} failed`);
process.exit(failed ? 1 : 0);
