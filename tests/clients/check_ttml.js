#!/usr/bin/env node
// Segments timed-text documents with hlsvtt and compares what a player shows from the segments
// with what imsc (a timed-text renderer following the W3C model) shows from the document.
//
// Our side: the cues of every segment of the rendition, a cue repeated in the segments it spans
// counted once, and cues of the same text that follow on without a gap joined, as a player
// showing them would. imsc's side: the paragraphs of the intermediate document it generates at a
// given time, each as its lines of text with the bold, italic and underline of every run.
//
// The sets of texts shown must be equal at each of our cues' start, midpoint and just before its
// end, just outside it on either side, and in the middle of every interval between two of imsc's
// time events (which catches a cue we never show). Our times are whole milliseconds, so the start
// is looked at 0.5 ms in, the end 1 ms before it, and the outside 1 ms away.
//
// Usage: check_ttml.js <hlsvtt binary> <document dir> [--all]
// Every document in the directory must be segmented; with --all, documents hlsvtt refuses are
// counted and passed over. Prints "N agree, N differ[, N refused]"; exits 1 if any differ.
'use strict';
const fs = require('fs');
const os = require('os');
const path = require('path');
const { execFileSync } = require('child_process');
// imsc's document and intermediate-document modules; its HTML renderer needs a browser.
const { fromXML } = require('imsc/src/main/js/doc.js');
const { generateISD } = require('imsc/src/main/js/isd.js');

const args = process.argv.slice(2);
const all = args.includes('--all');
const [binary, dir] = args.filter((a) => a !== '--all');
if (!dir || !fs.existsSync(dir)) {
  console.log(`no documents at ${dir}`);
  process.exit(77);  // skipped
}

// A text as runs: every run `[${b}${i}${u}]text` of the same style joined, lines by '\n'.
// Spaces at the end of a line are not seen, and lines with nothing to see are dropped.
function canonical(lines) {
  return lines.map((runs) => {
    const joined = [];
    const visible = runs.map((r) => r.text).join('').replace(/[ \t]+$/, '').length;
    let at = 0;
    for (const whole of runs) {
      const run = { ...whole, text: whole.text.slice(0, Math.max(0, visible - at)) };
      at += whole.text.length;
      const last = joined[joined.length - 1];
      if (last && last.style === run.style) last.text += run.text;
      else if (run.text !== '') joined.push({ ...run });
    }
    return joined.map((r) => `[${r.style}]${r.text}`).join('');
  }).filter((line) => line !== '').join('\n');
}

// Our payload as canonical text: tags opened and closed, entities undone.
function fromPayload(payload) {
  const lines = [];
  for (const line of payload.split('\n')) {
    const runs = [];
    const open = { b: false, i: false, u: false };
    for (const piece of line.split(/(<\/?[biu]>)/)) {
      const tag = /^<(\/?)([biu])>$/.exec(piece);
      if (tag) {
        open[tag[2]] = tag[1] === '';
        continue;
      }
      const text = piece.replace(/&lt;/g, '<').replace(/&gt;/g, '>').replace(/&amp;/g, '&');
      runs.push({ style: `${+open.b}${+open.i}${+open.u}`, text });
    }
    lines.push(runs);
  }
  return canonical(lines);
}

const TTS = 'http://www.w3.org/ns/ttml#styling ';
function runStyle(attrs) {
  const bold = attrs[`${TTS}fontWeight`] === 'bold';
  const italic = ['italic', 'oblique'].includes(attrs[`${TTS}fontStyle`]);
  const underline = (attrs[`${TTS}textDecoration`] || []).includes('underline');
  return `${+bold}${+italic}${+underline}`;
}

// The texts imsc shows at `t`, one per paragraph.
function imscTexts(doc, t) {
  const texts = [];
  const isd = generateISD(doc, t, () => {});
  function paragraph(element, lines) {
    for (const child of element.contents || []) {
      if (child.kind === 'br') {
        lines.push([]);
      } else if (typeof child.text === 'string') {
        const style = runStyle(child.styleAttrs);
        child.text.split(/\r?\n/).forEach((text, k) => {
          if (k > 0) lines.push([]);
          lines[lines.length - 1].push({ style, text });
        });
      } else {
        paragraph(child, lines);
      }
    }
  }
  function walk(element) {
    if (element.kind === 'p') {
      const lines = [[]];
      paragraph(element, lines);
      const text = canonical(lines);
      if (text !== '') texts.push(text);
      return;
    }
    for (const child of element.contents || []) walk(child);
  }
  walk(isd);
  return texts.sort();
}

function seconds(t) {
  return t.split(':').map(Number).reduce((acc, v) => acc * 60 + v, 0);
}

// The cues of the rendition in `out`, as a player shows them. A cue written again in the next
// segment is the same cue; cues alike within one segment are as many cues.
function ourCues(out) {
  const playlist = fs.readFileSync(path.join(out, 'prog_index.m3u8'), 'utf8');
  const copies = new Map();  // timing line and text -> the most copies in one segment
  for (const uri of playlist.split('\n').filter((l) => l && !l.startsWith('#'))) {
    const text = fs.readFileSync(path.join(out, uri), 'utf8').replace(/\r\n/g, '\n');
    const here = new Map();
    for (const block of text.split('\n\n').slice(1)) {
      const lines = block.split('\n');
      const at = lines.findIndex((l) => l.includes(' --> '));
      if (at < 0) continue;
      const key = lines.slice(at).join('\n');
      here.set(key, (here.get(key) || 0) + 1);
    }
    for (const [key, n] of here) copies.set(key, Math.max(n, copies.get(key) || 0));
  }
  const cues = [];
  for (const [key, n] of copies) {
    const [timing, ...text] = key.split('\n');
    const m = /^(\S+) --> (\S+)/.exec(timing);
    for (let k = 0; k < n; ++k) {
      cues.push({ start: seconds(m[1]), end: seconds(m[2]), text: text.join('\n') });
    }
  }
  cues.sort((a, b) => a.start - b.start);
  // Join a cue to an earlier one of the same text that ends where it starts.
  const joined = [];
  for (const cue of cues) {
    const before = joined.find((c) => c.text === cue.text && Math.abs(c.end - cue.start) < 1e-6);
    if (before) before.end = cue.end;
    else joined.push(cue);
  }
  return joined.map((c) => ({ ...c, shown: fromPayload(c.text) }));
}

function shownAt(cues, t) {
  return cues.filter((c) => c.start <= t && t < c.end && c.shown !== '').map((c) => c.shown).sort();
}

// Compares one document; returns null when hlsvtt refuses it, else a list of differences.
function check(file) {
  const out = fs.mkdtempSync(path.join(os.tmpdir(), 'hlsvtt-ttml-'));
  try {
    try {
      execFileSync(binary, ['-q', '-t', '6', '-f', out, file], { stdio: 'pipe' });
    } catch (e) {
      if (all && !fs.existsSync(path.join(out, 'prog_index.m3u8'))) return null;
      return [`hlsvtt exited with ${e.status}: ${e.stdout}${e.stderr}`.trim()];
    }
    const cues = ourCues(out);
    // imsc knows only the current namespaces; the older drafts' elements mean the same.
    const xml = fs.readFileSync(file, 'utf8')
      .replace(/http:\/\/www\.w3\.org\/2006\/(04|10)\/ttaf1/g, 'http://www.w3.org/ns/ttml');
    // Our own documents must be read by imsc whole, and give cues.
    const problems = [];
    const report = (message) => { if (!all) problems.push(`imsc: ${message}`); };
    const doc = fromXML(xml, { warn() {}, info() {}, error: report, fatal: report });
    if (!all && cues.length === 0) problems.push('no cues');
    const times = [];
    for (const c of cues) {
      times.push(c.start - 0.001, c.start + 0.0005, (c.start + c.end) / 2, c.end - 0.001,
        c.end + 0.001);
    }
    const events = doc.getMediaTimeEvents().filter((t) => Number.isFinite(t));
    for (let k = 0; k + 1 < events.length && k < 5000; ++k) {
      times.push((events[k] + events[k + 1]) / 2);
    }
    for (const t of times) {
      const ours = shownAt(cues, t);
      const theirs = imscTexts(doc, t);
      if (JSON.stringify(ours) !== JSON.stringify(theirs)) {
        problems.push(`at ${t.toFixed(4)} s we show ${JSON.stringify(ours)}, imsc ` +
          `${JSON.stringify(theirs)}`);
      }
    }
    return problems;
  } finally {
    fs.rmSync(out, { recursive: true, force: true });
  }
}

function documents(d) {
  return fs.readdirSync(d, { withFileTypes: true }).flatMap((e) => {
    const p = path.join(d, e.name);
    if (e.isDirectory()) return documents(p);
    return /\.(ttml|dfxp|xml)$/i.test(e.name) ? [p] : [];
  }).sort();
}

let agree = 0;
let differ = 0;
let refused = 0;
for (const file of documents(dir)) {
  const problems = check(file);
  if (problems === null) {
    refused++;
  } else if (problems.length) {
    differ++;
    console.log(`${file}: ${problems.length} difference(s)\n  ${problems.slice(0, 3).join('\n  ')}`);
  } else {
    agree++;
  }
}
console.log(`${agree} agree, ${differ} differ${all ? `, ${refused} refused` : ''}`);
process.exit(differ ? 1 : 0);
