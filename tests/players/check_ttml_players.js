#!/usr/bin/env node
// Plays timed-text (TTML) documents in headless Chromium twice: as the HLS WebVTT renditions
// hlsvtt makes of them, through hls.js and Shaka Player, and as the original documents, which
// Shaka Player reads itself as side-loaded text tracks. The cues must agree: the same set of
// (text, start, end), times within 1 ms.
//
// The test makes a test-pattern video (H.264 in MPEG-TS HLS segments) with ffmpeg, segments every
// document under ttml/ with hlsvtt (-m: the video's first PTS from `hlsvtt-master pts`, so the
// players put cue times unchanged on the video's timeline), adds each rendition to the video's
// master playlist with `hlsvtt-master add` and checks it with `hlsvtt-master check`.
//
// What each side shows, and how it is read:
//  - our rendition: the cues on the video's text track. A cue carried whole into several segments
//    is one cue there (both players drop the repeats);
//  - the side-loaded document: Shaka Player parses it into a tree of cues (paragraphs holding
//    spans and line breaks, each with its own times) and hands the tree to its text displayer,
//    where the page records it. Its screen displayer shows a nested cue only while its own
//    interval holds, so the text of a paragraph at time t is that of its nested cues showing at
//    t, and the paragraph yields one cue per stretch over which that text stays the same. (The
//    native text track of the video gets whole paragraphs flattened over their own interval
//    instead, words with a later time of their own included; that view is printed, not judged.)
// Text is compared as a viewer sees it: character references stand for their characters; the
// <b>, <i> and <u> markup becomes a style on each character (its nesting does not matter, and
// only underline shows on a space); runs of spaces and tabs are one space, and none is at the
// start or end of a line (cue text is shown with white-space: pre-line). Cues with the same text
// that follow each other without a gap are one cue on every side.
//
// Usage: check_ttml_players.js [--hlsvtt BIN] [--master BIN] [--chromium PATH] [--work DIR] [--keep]
// Prints one line per difference and exits 1 when there is any; 77 when chromium or the players
// are missing.
'use strict';
const fs = require('fs');
const os = require('os');
const path = require('path');
const { runTest, parseOptions, runChecked: run, stopProcesses, within, startServer, startBrowser, call, fmt, sleep, STEP_LIMIT_MS } =
  require('./browser_session');

const HERE = __dirname;
const DOCUMENTS = path.join(HERE, 'ttml');
const TOLERANCE = 0.001 + 1e-6; // 1 ms, plus the players' own floating-point slack
const SUBTITLE_TARGET = 4;
const VIDEO_SECONDS = 20;
const TEST_LIMIT_MS = 100000;
const SETTLE_MS = 400; // a track's cues unchanged this long after a seek are all it gets there
const SETTLE_LIMIT_MS = 4000;

// ---- fixtures --------------------------------------------------------------------------------

// A test-pattern video in 2-second MPEG-TS segments with ffmpeg's master playlist beside it.
function makeVideo(dir) {
  fs.mkdirSync(dir, { recursive: true });
  run('ffmpeg', ['-hide_banner', '-loglevel', 'error', '-f', 'lavfi',
    '-i', 'testsrc2=size=320x180:rate=10', '-t', String(VIDEO_SECONDS),
    '-c:v', 'libx264', '-preset', 'ultrafast', '-profile:v', 'baseline', '-level:v', '3.0',
    '-pix_fmt', 'yuv420p', '-g', '10', '-b:v', '200k',
    '-f', 'hls', '-hls_time', '2', '-hls_playlist_type', 'vod', '-master_pl_name', 'master.m3u8',
    '-hls_segment_filename', path.join(dir, 'v%03d.ts'), path.join(dir, 'video.m3u8')]);
}

// Segments every document and adds it to a copy of the video's master playlist, named after
// its file. Returns the documents as { name, file }.
function buildPresentation(work, options) {
  const videoDir = path.join(work, 'video');
  makeVideo(videoDir);
  const pts = run(options.master, ['pts', path.join(videoDir, 'v000.ts')]).trim();
  if (!/^\d+$/.test(pts)) throw new Error(`hlsvtt-master pts said "${pts}"`);
  const master = path.join(videoDir, 'with_subtitles.m3u8');
  fs.copyFileSync(path.join(videoDir, 'master.m3u8'), master);
  const documents = [];
  for (const file of fs.readdirSync(DOCUMENTS).sort()) {
    const name = path.basename(file, path.extname(file));
    const out = path.join(work, name);
    fs.mkdirSync(out);
    fs.copyFileSync(path.join(DOCUMENTS, file), path.join(work, file));
    run(options.hlsvtt, ['-q', '-t', String(SUBTITLE_TARGET), '-m', pts, '-f', out, path.join(work, file)]);
    run(options.master, ['add', master, path.join(out, 'prog_index.m3u8'), '--language', 'und', '--name', name]);
    documents.push({ name, file });
  }
  run(options.master, ['check', master, '--root', work]);
  return documents;
}

// ---- what a viewer reads ---------------------------------------------------------------------

const REFERENCES = { amp: '&', lt: '<', gt: '>', nbsp: '\u00a0', lrm: '\u200e', rlm: '\u200f' };
const STYLE_TAGS = ['b', 'i', 'u'];

// Cue text with its <b>, <i> and <u> markup and character references, as a viewer reads it:
// one canonical string in which every run of equally styled characters is wrapped in the tags
// of its style, in the order b, i, u.
function viewed(text) {
  const chars = [];
  const open = { b: 0, i: 0, u: 0 };
  const markup = /<(\/?)([a-z]+)[^>]*>|&([a-z]+);|([\s\S])/g;
  for (let m = markup.exec(text); m !== null; m = markup.exec(text)) {
    if (m[2] !== undefined) {
      if (m[2] in open) open[m[2]] = Math.max(0, open[m[2]] + (m[1] ? -1 : 1));
      continue; // other tags (a class or voice span) carry no style compared here
    }
    const c = m[3] !== undefined ? (REFERENCES[m[3]] ?? m[0]) : m[4];
    chars.push({ c, b: open.b > 0, i: open.i > 0, u: open.u > 0 });
  }
  // Spaces: runs collapse to one, lines start and end without one. Bold and italic do not show
  // on a space, so it takes them from the character before it.
  const kept = [];
  for (const ch of chars) {
    const space = ch.c === ' ' || ch.c === '\t';
    if (space) {
      const previous = kept[kept.length - 1];
      if (previous === undefined || previous.c === '\n' || previous.c === ' ') continue;
      kept.push({ c: ' ', b: previous.b, i: previous.i, u: ch.u });
    } else {
      if (ch.c === '\n' && kept.length > 0 && kept[kept.length - 1].c === ' ') kept.pop();
      kept.push(ch.c === '\n' ? { c: '\n', b: false, i: false, u: false } : ch);
    }
  }
  if (kept.length > 0 && kept[kept.length - 1].c === ' ') kept.pop();
  let out = '';
  let style = '';
  for (const ch of kept) {
    const s = STYLE_TAGS.filter((t) => ch[t]).join('');
    if (s !== style) {
      out += [...style].reverse().map((t) => `</${t}>`).join('') + [...s].map((t) => `<${t}>`).join('');
      style = s;
    }
    out += ch.c;
  }
  return out + [...style].reverse().map((t) => `</${t}>`).join('');
}

// Cues as a viewer reads them: text made canonical, empty cues dropped, and cues with the same
// text that follow each other without a gap joined; sorted by start, end and text.
function asViewed(cues) {
  const sorted = cues.map((c) => ({ start: c.start, end: c.end, text: viewed(c.text) }))
    .filter((c) => c.text !== '' && c.end > c.start)
    .sort((a, b) => a.start - b.start || a.end - b.end || (a.text < b.text ? -1 : a.text > b.text ? 1 : 0));
  const joined = [];
  for (const cue of sorted) {
    const before = joined.find((c) => c.text === cue.text && Math.abs(c.end - cue.start) <= TOLERANCE);
    if (before) before.end = Math.max(before.end, cue.end);
    else if (!joined.some((c) => c.text === cue.text && c.start === cue.start && c.end === cue.end)) joined.push({ ...cue });
  }
  return joined;
}

// The text of a Shaka cue tree at time t, as its screen displayer builds it: a cue shows while
// start <= t < end and its parent shows; a line break is a newline; a leaf's payload is wrapped
// in the tags of its style.
function treeTextAt(cue, t) {
  if (!(cue.start <= t && t < cue.end)) return '';
  if (cue.lineBreak) return '\n';
  if (cue.nested.length > 0) return cue.nested.map((n) => treeTextAt(n, t)).join('');
  if (!cue.payload) return '';
  const tags = STYLE_TAGS.filter((tag) => cue[{ b: 'bold', i: 'italic', u: 'underline' }[tag]]);
  return tags.map((tag) => `<${tag}>`).join('') + cue.payload + [...tags].reverse().map((tag) => `</${tag}>`).join('');
}

// The cues a side-loaded document shows: per paragraph (the first cue below the containers),
// one cue per stretch between the times at which anything in it starts or ends.
function treeCues(roots) {
  const paragraphs = [];
  const findParagraphs = (cue) => {
    if (cue.isContainer) cue.nested.forEach(findParagraphs);
    else paragraphs.push(cue);
  };
  roots.forEach(findParagraphs);
  const cues = [];
  for (const p of paragraphs) {
    const times = new Set();
    const collect = (c) => {
      for (const t of [c.start, c.end]) if (t >= p.start && t <= p.end && Number.isFinite(t)) times.add(t);
      c.nested.forEach(collect);
    };
    collect(p);
    const sorted = [...times].sort((a, b) => a - b);
    for (let k = 0; k + 1 < sorted.length; k++) {
      cues.push({ start: sorted[k], end: sorted[k + 1], text: treeTextAt(p, sorted[k]) });
    }
  }
  return cues;
}

// The lines of text (spaces collapsed, empty ones dropped) and the styled characters (as
// "<char> <b|-><i|-><u|->", spaces left out) of some cues, both sorted: what the screen shows
// while these cues are active, whatever the order in which they are stacked.
function screenContent(lines, styled) {
  const norm = lines.map((l) => l.replace(/\s+/g, ' ').trim()).filter((l) => l !== '').sort();
  const chars = styled.map((c) => `${c.c} ${c.b ? 'b' : '-'}${c.i ? 'i' : '-'}${c.u ? 'u' : '-'}`).filter((k) => !/^\s /.test(k)).sort();
  return JSON.stringify({ lines: norm, chars });
}

function styledChars(canonical) {
  const out = [];
  const open = { b: false, i: false, u: false };
  for (const m of canonical.matchAll(/<(\/?)([biu])>|([\s\S])/g)) {
    if (m[2]) open[m[2]] = !m[1];
    else out.push({ c: m[3], ...open });
  }
  return out;
}

// ---- the players -----------------------------------------------------------------------------

const key = (c) => `${c.text}\u0000${c.start}\u0000${c.end}`;

// Opens the page for one player and stream, selects the stream and walks the timeline one
// subtitle segment at a time, so that every segment is fetched, collecting every cue the
// track held after each step (a player may drop cues far behind the playhead). Returns the
// cues of the track and, for Shaka Player, the cue trees it appended.
async function readTrack(browser, base, query, name) {
  const page = await within(STEP_LIMIT_MS, 'new page', browser.newPage());
  const pageErrors = [];
  page.on('pageerror', (e) => pageErrors.push(String(e.message || e)));
  try {
    await within(STEP_LIMIT_MS, 'page load', page.goto(`${base}page/ttml_player.html?${query}`, { waitUntil: 'load' }));
    const offered = await call(page, 'player start', async () => (await window.harness).renditions());
    if (!offered.includes(name)) throw new Error(`${name} is not offered (the player offers ${JSON.stringify(offered)})`);
    await call(page, `select ${name}`, async (n) => (await window.harness).select(n), name);
    const duration = await call(page, 'duration', async () => (await window.harness).duration());
    const seen = new Map();
    for (let t = 0; t < duration; t += SUBTITLE_TARGET) {
      await call(page, `seek to ${fmt(t)}`, async (time) => (await window.harness).seek(time), t);
      const deadline = Date.now() + SETTLE_LIMIT_MS;
      let last = null;
      let since = Date.now();
      for (;;) {
        const cues = await call(page, 'cues', async () => (await window.harness).cues());
        for (const c of cues) seen.set(key(c), c);
        const now = JSON.stringify(cues);
        if (now !== last) {
          last = now;
          since = Date.now();
        } else if (Date.now() - since >= SETTLE_MS || Date.now() > deadline) {
          break;
        }
        await sleep(50);
      }
    }
    const appended = await call(page, 'appended cues', async () => (await window.harness).appended());
    const errors = await call(page, 'errors', async () => (await window.harness).errors);
    if (errors.length > 0 || pageErrors.length > 0) throw new Error(`player errors: ${[...errors, ...pageErrors].join('; ')}`);
    return { cues: [...seen.values()], appended };
  } finally {
    await within(5000, 'page close', page.close()).catch(() => {});
  }
}

// Opens the side-loaded document in Shaka Player with its on-screen displayer and, at the middle
// of every cue read from its cue trees, compares what is drawn over the video with the cues
// active then. Returns one line per moment that differs.
async function checkScreen(browser, base, query, label, cues) {
  const page = await within(STEP_LIMIT_MS, 'new page', browser.newPage());
  const pageErrors = [];
  page.on('pageerror', (e) => pageErrors.push(String(e.message || e)));
  try {
    await within(STEP_LIMIT_MS, 'page load', page.goto(`${base}page/ttml_player.html?${query}&display=screen`, { waitUntil: 'load' }));
    await call(page, `select ${label}`, async (n) => (await window.harness).select(n), label);
    const lines = [];
    for (const t of [...new Set(cues.map((c) => (c.start + c.end) / 2))].sort((a, b) => a - b)) {
      await call(page, `seek to ${fmt(t)}`, async (time) => (await window.harness).seek(time), t);
      const active = cues.filter((c) => c.start <= t && t < c.end);
      const expected = screenContent(active.flatMap((c) => plain(c.text).split('\n')), active.flatMap((c) => styledChars(c.text)));
      let drawn = null;
      for (const deadline = Date.now() + SETTLE_LIMIT_MS; Date.now() < deadline; await sleep(50)) {
        const screen = await call(page, 'screen', async () => (await window.harness).screen());
        drawn = screenContent(screen.lines, screen.words.flatMap((w) => [...w.word].map((c) => ({ c, b: w.bold, i: w.italic, u: w.underline }))));
        if (drawn === expected) break;
      }
      if (drawn !== expected) lines.push(`on screen at ${fmt(t)}: ${drawn}, expected ${expected}`);
    }
    const errors = await call(page, 'errors', async () => (await window.harness).errors);
    return [...lines, ...errors.map((e) => `player error: ${e}`), ...pageErrors.map((e) => `page error: ${e}`)];
  } finally {
    await within(5000, 'page close', page.close()).catch(() => {});
  }
}

// Shaka Player styles a text only with the styles given on its own element (inline or
// referenced), never with those it inherits from an enclosing paragraph, division or span. In
// the cues that start at these times (seconds) its reading of the document differs from ours,
// which applies inherited styles, in style alone: there only text and times are compared.
const STYLES_NOT_INHERITED_BY_SHAKA = {
  'dfxp_legacy.dfxp': [4.2],
  'imsc1_text.ttml': [14, 15, 16, 16.5, 17, 18],
};

const plain = (text) => text.replace(/<\/?[biu]>/g, '');
const show = (c) => `${fmt(c.start)}-${fmt(c.end)} ${JSON.stringify(c.text)}`;
const sameTimes = (x, y) => Math.abs(x.start - y.start) <= TOLERANCE && Math.abs(x.end - y.end) <= TOLERANCE;

// Compares Shaka Player's reading of a document with the cues a player shows from our
// rendition; returns the differences and, apart, the cues that differ in inherited style only.
function compare(file, reading, label, ours) {
  const styleOnly = (c) => (STYLES_NOT_INHERITED_BY_SHAKA[file] || []).some((t) => Math.abs(t - c.start) <= TOLERANCE);
  const matches = (x, y) => sameTimes(x, y) && (x.text === y.text || (styleOnly(x) && plain(x.text) === plain(y.text)));
  const wrong = [
    ...reading.filter((x) => !ours.some((y) => matches(x, y))).map((x) => `only in Shaka Player's reading of the document: ${show(x)}`),
    ...ours.filter((y) => !reading.some((x) => matches(x, y))).map((y) => `only in ${label} from our rendition: ${show(y)}`),
  ];
  const notes = reading.filter((x) => !ours.some((y) => sameTimes(x, y) && x.text === y.text) && ours.some((y) => matches(x, y)))
    .map((x) => `${fmt(x.start)}-${fmt(x.end)} styled ${JSON.stringify(x.text)} by Shaka Player, ` +
      `${JSON.stringify(ours.find((y) => matches(x, y)).text)} in ${label} from our rendition`);
  return { wrong, notes };
}

async function main() {
  const options = parseOptions(process.argv.slice(2), 'check_ttml_players.js', []);
  let puppeteer;
  try {
    puppeteer = require('puppeteer-core');
  } catch {
    console.log('SKIP the players are not installed (scripts/install-clients.sh)');
    return 77;
  }
  if (!fs.existsSync(options.chromium)) {
    console.log(`SKIP no browser at ${options.chromium}`);
    return 77;
  }
  const parent = options.work || os.tmpdir();
  fs.mkdirSync(parent, { recursive: true });
  const work = fs.mkdtempSync(path.join(parent, 'ttml-players-'));
  const documents = buildPresentation(work, options);
  const base = await startServer(work);
  const browser = await startBrowser(puppeteer, options.chromium);
  let wrong = 0;
  let compared = 0;
  try {
    for (const doc of documents) {
      const src = encodeURIComponent('/video/with_subtitles.m3u8');
      const hlsjs = await readTrack(browser, base, `player=hlsjs&src=${src}`, doc.name);
      const shakaHls = await readTrack(browser, base, `player=shaka&src=${src}`, doc.name);
      const label = `${doc.name} (TTML)`;
      const sideLoadQuery = `player=shaka&src=${encodeURIComponent('/video/master.m3u8')}` +
        `&ttml=${encodeURIComponent(`/${doc.file}`)}&label=${encodeURIComponent(label)}`;
      const sideLoaded = await readTrack(browser, base, sideLoadQuery, label);
      const fromDocument = asViewed(treeCues(sideLoaded.appended));
      const lines = [];
      const notes = new Set();
      for (const [player, cues] of [['hls.js', hlsjs.cues], ['Shaka Player', shakaHls.cues]]) {
        const result = compare(doc.file, fromDocument, player, asViewed(cues));
        lines.push(...result.wrong);
        result.notes.forEach((n) => notes.add(n));
      }
      if (fromDocument.length === 0) lines.push('Shaka Player shows no cue of the document');
      for (const line of lines) console.log(`FAIL ${doc.file}: ${line}`);
      for (const note of notes) console.log(`note ${doc.file}: inherited style: ${note}`);
      wrong += lines.length;
      compared += fromDocument.length;
      const screen = await checkScreen(browser, base, sideLoadQuery, label, fromDocument);
      for (const line of screen) console.log(`FAIL ${doc.file}: Shaka Player's reading of the document is not what it draws ${line}`);
      wrong += screen.length;
      // The native track of the side-loaded document, for the record.
      const native = asViewed(sideLoaded.cues);
      const differs = (a, b) => a.filter((x) => !b.some((y) => sameTimes(x, y) && x.text === y.text));
      for (const c of differs(native, fromDocument)) console.log(`note ${doc.file}: Shaka Player's native track has ${show(c)}`);
      for (const c of differs(fromDocument, native)) console.log(`note ${doc.file}: Shaka Player's native track lacks ${show(c)}`);
    }
  } finally {
    await within(5000, 'browser close', browser.close()).catch(() => {});
    stopProcesses();
  }
  if (wrong === 0 && !options.keep) fs.rmSync(work, { recursive: true, force: true });
  else console.log(`fixtures are in ${work}`);
  console.log(`timed text in players: ${documents.length} documents, ${compared} cues, ${wrong} differences`);
  return wrong === 0 ? 0 : 1;
}

runTest(main, TEST_LIMIT_MS);
