#!/usr/bin/env node
// Plays hlsvtt's output in headless Chromium through hls.js and Shaka Player and compares the
// cues on the video's text track with the source cues.
//
// For each case the test makes a test-pattern video (H.264 in MPEG-TS HLS segments) with ffmpeg,
// segments subtitle sources with hlsvtt, writes a master playlist whose EXT-X-MEDIA lines put
// every subtitle stream in one TYPE=SUBTITLES group, serves it on 127.0.0.1 and, per player and
// stream, checks that every source cue
//  - is on the text track exactly once (a cue repeated whole in several segments shows once),
//  - at source time + (MPEGTS - first video PTS) / 90000 (within 1 ms), the players presenting
//    the video's first frame at time 0,
//  - and is in activeCues just inside both ends of its interval and not just outside them.
// Expected cues come from the tables below, from which the sources are written.
//
// Usage: check_players.js [--hlsvtt BIN] [--chromium PATH] [--work DIR] [--screenshot PNG] [--keep]
// Fixtures go to a new folder under DIR (default: the system's temporary folder), removed when
// every check passes unless --keep is given.
// Prints one line per wrong cue and exits 1 when there is any.
'use strict';
const fs = require('fs');
const os = require('os');
const path = require('path');
const { execFileSync, spawn } = require('child_process');
const puppeteer = require('puppeteer-core');

const HERE = __dirname;
const REPO = path.resolve(HERE, '../..');
const TOLERANCE = 0.001 + 1e-6; // 1 ms, plus the players' own floating-point slack
const EDGE = 0.05; // how far inside and outside a cue's interval the screen is checked
const SUBTITLE_TARGET = 4; // subtitle segment grid: boundaries at 4, 8, 12, 16, ...
const VIDEO_SECONDS = 30;
const TEST_LIMIT_MS = 110000;
const STEP_LIMIT_MS = 15000; // any single browser call
const CUE_LOAD_LIMIT_MS = 3000; // a cue's segment being fetched and shown after a seek

// Cue tables, in source order. Times are exact in milliseconds.
const WEBVTT_CUES = [
  { start: 0.5, end: 2.0, text: 'inside the first segment' },
  { start: 3.0, end: 5.0, text: 'across one boundary' },
  { start: 6.5, end: 13.25, text: 'across the boundaries at 8 and 12' },
  { start: 8.0, end: 9.5, text: 'starting on a boundary' },
  { start: 10.0, end: 11.5, text: 'same times, first' },
  { start: 10.0, end: 11.5, text: 'same times, second' },
  { start: 14.125, end: 15.875, text: 'two lines,\nthe second one' },
  { start: 16.0, end: 17.25, text: 'on a boundary again' },
  { start: 18.5, end: 19.75, text: 'the last cue' },
];
const SUBRIP_CUES = [
  { start: 1.25, end: 4.75, text: 'subrip: across one boundary' },
  { start: 9.5, end: 16.5, text: 'subrip: across two boundaries' },
  { start: 12.0, end: 12.75, text: 'subrip: starting on a boundary' },
  { start: 18.25, end: 19.5, text: 'subrip: the last cue' },
];

const VIDEOS = {
  // ffmpeg's default start: the first PTS is 1.4 s.
  'start-1.4s': [],
  // The first PTS is 10 s, hlsvtt's default MPEGTS value.
  'start-10s': ['-muxdelay', '0', '-output_ts_offset', '10'],
};
// `mpegts` is what -m is given: 'first-pts' for the video's first PTS, null for the default.
// A case is { name, video, master, shift, players, renditions: [{ name, cues }] }; the master
// playlist is made from EXT-X-MEDIA lines by `mediaLines` and `masterPlaylist`. A movie source
// takes the same road: the lines come from the subtitle_media.m3u8 hlsvtt writes for it, and each
// rendition's cues (its NAME, its expected start, end and text) from the movie itself.
const CASES = [
  { video: 'start-1.4s', mpegts: 'first-pts' },
  { video: 'start-1.4s', mpegts: null },
  { video: 'start-10s', mpegts: null },
];
const DEFAULT_MPEGTS = 900000;
const PLAYERS = ['hlsjs', 'shaka'];

function parseOptions(argv) {
  const options = {
    hlsvtt: path.join(REPO, 'build/hlsvtt'),
    chromium: '/usr/bin/chromium',
    work: null,
    screenshot: null,
    keep: false,
  };
  for (let i = 0; i < argv.length; i += 2) {
    const key = argv[i].replace(/^--/, '');
    if (key === 'keep') {
      options.keep = true;
      i -= 1;
      continue;
    }
    if (!(key in options) || i + 1 >= argv.length) {
      throw new Error('usage: check_players.js [--hlsvtt BIN] [--chromium PATH] [--work DIR] [--screenshot PNG] [--keep]');
    }
    options[key] = path.resolve(argv[i + 1]);
  }
  return options;
}

// ---- sources and fixtures -------------------------------------------------------------------

function clock(seconds, separator) {
  const ms = Math.round(seconds * 1000);
  const two = (n) => String(n).padStart(2, '0');
  const h = Math.floor(ms / 3600000);
  const m = Math.floor(ms / 60000) % 60;
  const s = Math.floor(ms / 1000) % 60;
  return `${two(h)}:${two(m)}:${two(s)}${separator}${String(ms % 1000).padStart(3, '0')}`;
}

function webvttSource(cues) {
  return 'WEBVTT\n\n' + cues.map((c) => `${clock(c.start, '.')} --> ${clock(c.end, '.')}\n${c.text}\n\n`).join('');
}

function subripSource(cues) {
  return cues.map((c, i) => `${i + 1}\n${clock(c.start, ',')} --> ${clock(c.end, ',')}\n${c.text}\n\n`).join('');
}

function run(program, args, limitMs = 30000) {
  return execFileSync(program, args, { timeout: limitMs, killSignal: 'SIGKILL', encoding: 'utf8', stdio: ['ignore', 'pipe', 'pipe'] });
}

// A test-pattern video in 2-second MPEG-TS segments; returns its first video PTS (90 kHz),
// read back from the first segment with ffprobe.
function makeVideo(dir, extraArgs) {
  fs.mkdirSync(dir, { recursive: true });
  run('ffmpeg', ['-hide_banner', '-loglevel', 'error', '-f', 'lavfi',
    '-i', `testsrc2=size=320x180:rate=10`, '-t', String(VIDEO_SECONDS),
    '-c:v', 'libx264', '-preset', 'ultrafast', '-profile:v', 'baseline', '-level:v', '3.0',
    '-pix_fmt', 'yuv420p', '-g', '10', ...extraArgs,
    '-f', 'hls', '-hls_time', '2', '-hls_playlist_type', 'vod',
    '-hls_segment_filename', path.join(dir, 'v%03d.ts'), path.join(dir, 'video.m3u8')]);
  const probe = JSON.parse(run('ffprobe', ['-v', 'error', '-select_streams', 'v:0',
    '-show_entries', 'packet=pts', '-of', 'json', path.join(dir, 'v000.ts')]));
  const pts = (probe.packets || []).map((p) => p.pts);
  if (pts.length === 0 || !pts.every(Number.isInteger)) throw new Error(`no video PTS in ${dir}/v000.ts`);
  return Math.min(...pts);
}

// The EXT-X-MEDIA lines of a subtitle variant playlist, with each URI put under `prefix`.
function mediaLines(variantPlaylistText, prefix) {
  return variantPlaylistText.split('\n')
    .filter((line) => line.startsWith('#EXT-X-MEDIA:'))
    .map((line) => line.replace(/URI="([^"]*)"/, (_m, uri) => `URI="${prefix}/${uri}"`));
}

function attribute(line, name) {
  const m = new RegExp(`[:,]${name}="([^"]*)"`).exec(line);
  return m ? m[1] : null;
}

function masterPlaylist(lines, videoUri) {
  const group = attribute(lines[0], 'GROUP-ID');
  return ['#EXTM3U', '#EXT-X-VERSION:3', ...lines,
    `#EXT-X-STREAM-INF:BANDWIDTH=400000,RESOLUTION=320x180,CODECS="avc1.42c01e",SUBTITLES="${group}"`,
    videoUri, ''].join('\n');
}

// Segments one WebVTT and one SRT source for a case and describes them the way a subtitle
// variant playlist would, so that both kinds of case take the same road to the master playlist.
function buildWebvttCase(work, options, c, firstPts) {
  const mpegts = c.mpegts === 'first-pts' ? firstPts : DEFAULT_MPEGTS;
  const name = `${c.video}_m-${c.mpegts === null ? 'default' : mpegts}`;
  const dir = path.join(work, name);
  const streams = [
    { dir: 'webvtt', file: 'source.vtt', text: webvttSource(WEBVTT_CUES), cues: WEBVTT_CUES, title: 'WebVTT source', isDefault: 'YES' },
    { dir: 'subrip', file: 'source.srt', text: subripSource(SUBRIP_CUES), cues: SUBRIP_CUES, title: 'SubRip source', isDefault: 'NO' },
  ];
  const variant = ['#EXTM3U'];
  for (const s of streams) {
    const out = path.join(dir, s.dir);
    fs.mkdirSync(out, { recursive: true });
    fs.writeFileSync(path.join(dir, s.file), s.text);
    const args = ['-q', '-t', String(SUBTITLE_TARGET), '-f', out];
    if (c.mpegts !== null) args.push('-m', String(mpegts));
    run(options.hlsvtt, [...args, path.join(dir, s.file)]);
    variant.push(`#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID="subtitles",NAME="${s.title}",DEFAULT=${s.isDefault},` +
      `AUTOSELECT=YES,FORCED=NO,LANGUAGE="en",URI="${s.dir}/prog_index.m3u8"`);
  }
  const lines = mediaLines(variant.join('\n') + '\n', '.');
  fs.writeFileSync(path.join(dir, 'master.m3u8'), masterPlaylist(lines, `../${c.video}/video.m3u8`));
  return {
    name,
    video: c.video,
    master: `${name}/master.m3u8`,
    shift: (mpegts - firstPts) / 90000,
    // When MPEGTS is not the video's first PTS, cues lie outside the time span their segment has
    // in the playlist. Shaka Player fetches and keeps text by those spans and so loses such cues
    // after a seek or once the playhead passes the span; only hls.js is held to that case.
    players: mpegts === firstPts ? PLAYERS : PLAYERS.filter((p) => p !== 'shaka'),
    renditions: streams.map((s) => ({ name: s.title, cues: s.cues })),
  };
}

// ---- processes -------------------------------------------------------------------------------

const owned = { server: null, browser: null };

// Stops the HTTP server and the browser (with the processes it started, which share its
// process group) by process id. Safe to call more than once and from an exit handler.
function stopProcesses() {
  for (const key of ['browser', 'server']) {
    const pid = owned[key];
    if (!pid) continue;
    owned[key] = null;
    for (const target of key === 'browser' ? [-pid, pid] : [pid]) {
      try {
        process.kill(target, 'SIGKILL');
      } catch {
        // already gone
      }
    }
  }
}

function within(ms, what, promise) {
  let timer;
  const timeout = new Promise((_resolve, reject) => {
    timer = setTimeout(() => reject(new Error(`${what}: no answer within ${ms} ms`)), ms);
  });
  return Promise.race([promise, timeout]).finally(() => clearTimeout(timer));
}

async function startServer(root) {
  const child = spawn(process.execPath, [path.join(HERE, 'static_server.js'), root,
    `/page=${HERE}`,
    `/lib/hls.js=${path.join(HERE, 'node_modules/hls.js/dist')}`,
    `/lib/shaka-player=${path.join(HERE, 'node_modules/shaka-player/dist')}`],
  { stdio: ['ignore', 'pipe', 'inherit'] });
  owned.server = child.pid;
  const firstLine = new Promise((resolve, reject) => {
    let buffered = '';
    child.stdout.on('data', (d) => {
      buffered += d;
      if (buffered.includes('\n')) resolve(buffered.split('\n')[0]);
    });
    child.on('exit', (code) => reject(new Error(`HTTP server exited with ${code}`)));
  });
  const base = await within(5000, 'HTTP server start', firstLine);
  if (!/^http:\/\/127\.0\.0\.1:\d+\/$/.test(base)) throw new Error(`HTTP server said "${base}"`);
  return base;
}

async function startBrowser(executablePath) {
  const browser = await within(30000, 'browser start', puppeteer.launch({
    executablePath,
    headless: true,
    handleSIGINT: false,
    handleSIGTERM: false,
    handleSIGHUP: false,
    args: ['--no-sandbox', '--no-zygote', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync',
      '--disable-extensions', '--mute-audio', '--window-size=800,600'],
  }));
  owned.browser = browser.process().pid;
  return browser;
}

// ---- checks ----------------------------------------------------------------------------------

const fmt = (t) => t.toFixed(3);
const sameTimes = (a, b) => Math.abs(a.start - b.start) <= TOLERANCE && Math.abs(a.end - b.end) <= TOLERANCE;
const sameCue = (a, b) => a.text === b.text && sameTimes(a, b);
const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

async function call(page, what, fn, ...args) {
  return within(STEP_LIMIT_MS, what, page.evaluate(fn, ...args));
}

async function seek(page, t) {
  return call(page, `seek to ${fmt(t)}`, async (time) => (await window.harness).seek(time), t);
}

async function snapshot(page) {
  return call(page, 'cues', async () => (await window.harness).snapshot());
}

const span = (cues) => cues.map((c) => `${fmt(c.start)}-${fmt(c.end)}`).join(', ');

// Seeks to t and waits until the cue is on screen. Stops waiting early when a cue with the
// same text is on the track but not on screen, since it is then at another time.
async function waitOnScreen(page, cue, t) {
  await seek(page, t);
  const deadline = Date.now() + CUE_LOAD_LIMIT_MS;
  let sameTextSince = null;
  for (;;) {
    const now = await snapshot(page);
    if (now.active.some((c) => sameCue(c, cue))) return { shown: true, ...now };
    if (now.cues.some((c) => c.text === cue.text)) sameTextSince ??= Date.now();
    if (Date.now() > deadline || (sameTextSince !== null && Date.now() - sameTextSince > 300)) {
      return { shown: false, ...now };
    }
    await sleep(50);
  }
}

// The times at which one stream is looked at: just inside both ends of every cue, and just
// outside them, cue by cue in source order, so the walk jumps back and forth as a viewer who seeks.
function probes(expected, duration) {
  const list = [];
  for (const [i, cue] of expected.entries()) {
    list.push({ t: cue.start + EDGE, i, inside: true }, { t: cue.end - EDGE, i, inside: true });
    for (const t of [cue.start - EDGE, cue.end + EDGE]) {
      if (t >= 0 && t < duration) list.push({ t, i, inside: false });
    }
  }
  return list;
}

// Checks one stream in one player; returns one line per wrong cue.
async function checkRendition(page, rendition, testCase, duration) {
  await call(page, `select ${rendition.name}`, async (name) => (await window.harness).select(name), rendition.name);
  const shift = testCase.shift;
  const expected = rendition.cues.map((c) => ({ start: c.start + shift, end: c.end + shift, text: c.text }));
  const problems = expected.map(() => new Set());
  for (const { t, i, inside } of probes(expected, duration)) {
    const cue = expected[i];
    if (inside) {
      const now = await waitOnScreen(page, cue, t);
      if (!now.shown) {
        const sameText = now.cues.filter((c) => c.text === cue.text);
        problems[i].add(`not on screen at ${fmt(t)}` +
          (sameText.length > 0 ? ` (on the track at ${span(sameText)})` : ' (not on the track)'));
        continue;
      }
      const onScreen = now.active.filter((c) => sameCue(c, cue)).length;
      const onTrack = now.cues.filter((c) => sameCue(c, cue)).length;
      if (onScreen > 1) problems[i].add(`on screen ${onScreen} times`);
      if (onTrack > 1) problems[i].add(`on the track ${onTrack} times`);
      const strays = now.cues.filter((c) => c.text === cue.text && !expected.some((e) => sameCue(e, c)));
      if (strays.length > 0) problems[i].add(`also on the track at ${span(strays)}`);
    } else {
      await seek(page, t);
      // activeCues may lag the seek by a frame; a cue still there a moment later is on screen.
      let shown = (await snapshot(page)).active.some((c) => c.text === cue.text);
      if (shown) {
        await sleep(200);
        shown = (await snapshot(page)).active.some((c) => c.text === cue.text);
      }
      if (shown) problems[i].add(`on screen at ${fmt(t)}`);
    }
  }
  // A player may drop cues far from the playhead, so only surplus copies count here.
  const last = await snapshot(page);
  for (const [i, cue] of expected.entries()) {
    const onTrack = last.cues.filter((c) => sameCue(c, cue)).length;
    if (onTrack > 1) problems[i].add(`on the track ${onTrack} times`);
    const strays = last.cues.filter((c) => c.text === cue.text && !expected.some((e) => sameCue(e, c)));
    if (strays.length > 0) problems[i].add(`also on the track at ${span(strays)}`);
  }
  const lines = [];
  for (const [i, cue] of expected.entries()) {
    if (problems[i].size > 0) {
      lines.push(`[${rendition.name}] cue ${i + 1} ${JSON.stringify(cue.text)} ${fmt(cue.start)}-${fmt(cue.end)}: ${[...problems[i]].join('; ')}`);
    }
  }
  for (const c of last.cues) {
    if (!expected.some((e) => e.text === c.text)) {
      lines.push(`[${rendition.name}] unexpected cue ${JSON.stringify(c.text)} ${fmt(c.start)}-${fmt(c.end)}`);
    }
  }
  return lines;
}

// Shows the first stream's two-line cue over the video and saves the picture, from a page of its
// own: after many quick seeks a paused video may still show an older frame.
async function takeScreenshot(browser, base, testCase, file) {
  const page = await within(STEP_LIMIT_MS, 'new page', browser.newPage());
  try {
    await within(STEP_LIMIT_MS, 'page load', page.goto(
      `${base}page/player.html?player=hlsjs&src=/${testCase.master}`, { waitUntil: 'load' }));
    const rendition = testCase.renditions[0];
    const cue = rendition.cues.find((c) => c.text.includes('\n'));
    await call(page, 'select', async (name) => (await window.harness).select(name), rendition.name);
    const t = (cue.start + cue.end) / 2 + testCase.shift;
    const painted = await call(page, 'seek for the screenshot',
      async (time) => (await window.harness).seekAndPaint(time), t);
    if (!painted) return [`screenshot: no frame near ${fmt(t)} was painted`];
    const now = await waitOnScreen(page, { ...cue, start: cue.start + testCase.shift, end: cue.end + testCase.shift }, t);
    if (!now.shown) return [`screenshot: the cue is not on screen at ${fmt(t)}`];
    await sleep(200);
    await within(STEP_LIMIT_MS, 'screenshot', page.screenshot({
      path: file, clip: { x: 0, y: 0, width: 640, height: 360 }, captureBeyondViewport: false,
    }));
    return [];
  } catch (e) {
    return [`screenshot: ${e.message}`];
  } finally {
    await within(5000, 'page close', page.close()).catch(() => {});
  }
}

async function checkCase(browser, base, player, testCase) {
  const page = await within(STEP_LIMIT_MS, 'new page', browser.newPage());
  const pageErrors = [];
  page.on('pageerror', (e) => pageErrors.push(String(e.message || e)));
  try {
    await within(STEP_LIMIT_MS, 'page load', page.goto(
      `${base}page/player.html?player=${player}&src=/${testCase.master}`, { waitUntil: 'load' }));
    const info = await call(page, 'player start', async () => {
      const h = await window.harness;
      return { renditions: h.renditions(), duration: h.duration() };
    });
    const lines = [];
    const offered = info.renditions;
    for (const rendition of testCase.renditions) {
      if (!offered.includes(rendition.name)) {
        lines.push(`[${rendition.name}] not offered by the player (it offers ${JSON.stringify(offered)})`);
        continue;
      }
      lines.push(...await checkRendition(page, rendition, testCase, info.duration));
    }
    const errors = await call(page, 'errors', async () => (await window.harness).errors);
    lines.push(...errors.map((e) => `player error: ${e}`), ...pageErrors.map((e) => `page error: ${e}`));
    return lines;
  } catch (e) {
    return [`stopped: ${e.message}`, ...pageErrors.map((m) => `page error: ${m}`)];
  } finally {
    await within(5000, 'page close', page.close()).catch(() => {});
  }
}

async function main() {
  const options = parseOptions(process.argv.slice(2));
  const parent = options.work || os.tmpdir();
  fs.mkdirSync(parent, { recursive: true });
  const work = fs.mkdtempSync(path.join(parent, 'players-'));

  const firstPts = {};
  for (const [name, args] of Object.entries(VIDEOS)) firstPts[name] = makeVideo(path.join(work, name), args);
  const cases = CASES.map((c) => buildWebvttCase(work, options, c, firstPts[c.video]));

  const base = await startServer(work);
  const browser = await startBrowser(options.chromium);
  let wrong = 0;
  let checked = 0;
  try {
    for (const player of PLAYERS) {
      for (const testCase of cases.filter((c) => c.players.includes(player))) {
        const lines = await checkCase(browser, base, player, testCase);
        const label = player === 'hlsjs' ? 'hls.js' : 'Shaka Player';
        for (const line of lines) console.log(`FAIL ${label} ${testCase.name} ${line}`);
        wrong += lines.length;
        checked += testCase.renditions.reduce((n, r) => n + r.cues.length, 0);
      }
    }
    if (options.screenshot) {
      const lines = await takeScreenshot(browser, base, cases.find((c) => c.video === 'start-10s'), options.screenshot);
      for (const line of lines) console.log(`FAIL ${line}`);
      wrong += lines.length;
    }
  } finally {
    await within(5000, 'browser close', browser.close()).catch(() => {});
    stopProcesses();
  }
  if (wrong === 0 && !options.keep) fs.rmSync(work, { recursive: true, force: true });
  else console.log(`fixtures are in ${work}`);
  console.log(`players: ${checked} cue checks (first PTS ${Object.entries(firstPts).map(([k, v]) => `${k} ${v}`).join(', ')}), ${wrong} wrong`);
  return wrong === 0 ? 0 : 1;
}

process.on('exit', stopProcesses);
const watchdog = setTimeout(() => {
  console.log(`FAIL the whole test took longer than ${TEST_LIMIT_MS / 1000} s`);
  stopProcesses();
  process.exit(1);
}, TEST_LIMIT_MS);
main().then((status) => {
  clearTimeout(watchdog);
  process.exit(status);
}, (e) => {
  console.log(`FAIL ${e.message}`);
  stopProcesses();
  process.exit(1);
});
