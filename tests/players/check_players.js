#!/usr/bin/env node
// Plays hlsvtt's output in headless Chromium through hls.js and Shaka Player and compares the
// cues on the video's text track with the source cues.
//
// For each case the test makes a test-pattern video ladder (H.264 in MPEG-TS or fragmented MP4
// HLS segments) with ffmpeg, segments subtitle sources with hlsvtt, writes a master playlist
// whose EXT-X-MEDIA lines put every subtitle stream in one TYPE=SUBTITLES group, serves it on
// 127.0.0.1 and, per player and stream, checks that every source cue
//  - is on the text track exactly once (a cue repeated whole in several segments shows once),
//  - at source time + (MPEGTS - first video PTS) / 90000 (within 1 ms) after the time at which
//    the player presents the video's first frame (the start of what it buffers first),
//  - and is in activeCues just inside both ends of its interval and not just outside them.
// Expected cues of the WebVTT and SRT sources come from the tables below, from which the sources
// are written. A movie with mov_text subtitle tracks is made by ffmpeg from another table and
// segmented by hlsvtt; its expected cues are extracted from the movie by ffmpeg, and every stream
// of its subtitle_media.m3u8 is checked, once pasted into a master playlist by hand and, over
// every ladder, merged by `hlsvtt-master merge` with -m (or, past what -m carries, the option
// `pts` names) taken from `hlsvtt-master pts` of the ladder's media playlist. Every master but
// the pasted one also goes through `hlsvtt-master check --video`, which must find it in step or
// name the offset the players are expected to show.
//
// Usage: check_players.js [--hlsvtt BIN] [--master BIN] [--chromium PATH] [--work DIR]
//                         [--screenshot PNG] [--keep]
// Fixtures go to a new folder under DIR (default: the system's temporary folder), removed when
// every check passes unless --keep is given.
// Prints one line per wrong cue and exits 1 when there is any.
'use strict';
const fs = require('fs');
const os = require('os');
const path = require('path');
const { execFileSync, spawnSync } = require('child_process');
const puppeteer = require('puppeteer-core');
const { runTest, parseOptions, run, runChecked, stopProcesses, within, startServer, startBrowser, call, fmt, sleep, STEP_LIMIT_MS } =
  require('./browser_session');

const HERE = __dirname;
const TOLERANCE = 0.001 + 1e-6; // 1 ms, plus the players' own floating-point slack
const EDGE = 0.05; // how far inside and outside a cue's interval the screen is checked
const SUBTITLE_TARGET = 4; // subtitle segment grid: boundaries at 4, 8, 12, 16, ...
const TEST_LIMIT_MS = 170000;
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
// The SRT source is written in Windows-1251 and converted by hlsvtt (--source-encoding).
const SUBRIP_CUES = [
  { start: 1.25, end: 4.75, text: 'subrip: через одну границу' },
  { start: 9.5, end: 16.5, text: 'subrip: через две границы' },
  { start: 12.0, end: 12.75, text: 'subrip: начало на границе' },
  { start: 18.25, end: 19.5, text: 'subrip: последняя реплика' },
];

// The video ladders: segment type, frame rate, length in seconds and further ffmpeg options.
const BASELINE = ['-profile:v', 'baseline', '-level:v', '3.0'];
const VIDEOS = {
  // ffmpeg's default start: the first PTS is 1.4 s.
  'start-1.4s': { type: 'ts', rate: 10, seconds: 30, args: BASELINE },
  // The first PTS is 10 s, hlsvtt's default MPEGTS value.
  'start-10s': { type: 'ts', rate: 10, seconds: 30, args: [...BASELINE, '-muxdelay', '0', '-output_ts_offset', '10'] },
  // Fragmented MP4 starting at 0.
  'fmp4': { type: 'fmp4', rate: 25, seconds: 20, args: BASELINE },
  // B-frames: every frame is shown two frames (0.08 s) after it is decoded, the first one too.
  'fmp4-bframes': { type: 'fmp4', rate: 25, seconds: 20, args: ['-profile:v', 'main', '-bf', '2'] },
  // Every fragment's decode time counts from 10 s.
  'fmp4-start-10s': {
    type: 'fmp4', rate: 25, seconds: 20,
    args: [...BASELINE, '-output_ts_offset', '10', '-hls_segment_options', 'movflags=+frag_discont'],
  },
  // The first PTS is 30000 s, past 2^31 on the 33-bit clock: more than -m carries.
  'start-30000s': { type: 'ts', rate: 10, seconds: 20, args: [...BASELINE, '-muxdelay', '0', '-output_ts_offset', '30000'] },
};
// `mpegts` is what -m is given: 'first-pts' for the video's first PTS, null for the default.
// A built case is { name, video, master, shift, players, renditions: [{ name, cues }] }: the
// master playlist to load, how far the players move every cue, and per stream NAME the cues
// expected on it.
const CASES = [
  { video: 'start-1.4s', mpegts: 'first-pts' },
  { video: 'start-1.4s', mpegts: null },
  { video: 'start-10s', mpegts: null },
];
const DEFAULT_MPEGTS = 900000;
const PLAYERS = ['hlsjs', 'shaka'];

// The movie's subtitle tracks, in track order after its video track. A cue marked `forced` is
// written bold, and the movie's bytes are then edited so that its sample carries a forced-sample
// box in place of its style box (ffmpeg cannot mark a sample forced). Such a track is offered
// twice: whole under its title, and with only its forced cues under "<title> (forced)".
// Cues of a track never overlap: a movie's text track shows one sample at a time.
const MOVIE_SECONDS = 20;
const MOVIE_TRACKS = [
  {
    language: 'eng', title: 'English', isDefault: true, cues: [
      { start: 0.5, end: 2.25, text: 'movie: inside the first segment' },
      { start: 3.0, end: 6.5, text: 'movie: a sign, forced', forced: true },
      { start: 7.75, end: 12.5, text: 'movie: two lines,\nlasting past a boundary' },
      { start: 12.5, end: 13.0, text: 'movie: starting where the last one ends', forced: true },
      { start: 16.0, end: 18.5, text: 'movie: the last cue' },
    ],
  },
  {
    language: 'fra', title: 'Fran\u00e7ais', isDefault: false, cues: [
      { start: 1.0, end: 4.5, text: 'film : \u00e0 travers une fronti\u00e8re' },
      { start: 9.25, end: 10.0, text: 'film : court' },
      { start: 14.0, end: 19.0, text: 'film : le dernier' },
    ],
  },
  {
    language: 'deu', title: 'Deutsch', isDefault: true, cues: [
      { start: 2.0, end: 3.5, text: 'Film: 1 < 2 & 3 > 2' },
      { start: 11.0, end: 15.5, text: 'Film: \u00fcber zwei Grenzen' },
    ],
  },
];
// A movie case is segmented with the default MPEGTS value over the video starting at 10 s, its
// subtitle_media.m3u8 lines pasted into the master playlist; or with -m from `hlsvtt-master pts`
// of a ladder's media playlist, merged into that ladder's master playlist by `merge --conform`.
const MOVIE_CASES = [
  { name: 'movie_pasted', video: 'start-10s', merged: false },
  { name: 'movie_merged', video: 'start-1.4s', merged: true },
  { name: 'movie_fmp4', video: 'fmp4', merged: true },
  { name: 'movie_fmp4_bframes', video: 'fmp4-bframes', merged: true },
  { name: 'movie_fmp4_start_10s', video: 'fmp4-start-10s', merged: true },
  { name: 'movie_start_30000s', video: 'start-30000s', merged: true },
];

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

// Runs `hlsvtt-master check MASTER --video` over the whole work directory (renditions may lie in
// a sibling directory of the master). In step, it must pass; cues `shift` seconds off, it must
// fail and say by how much, as the players show them.
function checkTiming(options, work, master, shift) {
  const args = ['check', path.join(work, master), '--root', work, '--video'];
  const result = spawnSync(options.master, args, { timeout: 30000, killSignal: 'SIGKILL', encoding: 'utf8' });
  const said = `${result.stdout || ''}${result.stderr || ''}`.trim();
  const command = `hlsvtt-master ${args.join(' ')}`;
  if (shift === 0) {
    if (result.status !== 0) throw new Error(`${command}: status ${result.status}: ${said.split('\n').slice(-3).join(' | ')}`);
    return;
  }
  const offset = `cues will show ${fmt(Math.abs(shift))} s ${shift > 0 ? 'late' : 'early'}`;
  if (result.status === 0 || !said.includes(offset)) {
    throw new Error(`${command}: status ${result.status}, not saying "${offset}": ${said.split('\n').slice(-3).join(' | ')}`);
  }
}

// A test-pattern video ladder of one rung in 2-second segments. For MPEG-TS returns its first
// video PTS (90 kHz), read back from the first segment with ffprobe; for fragmented MP4 null:
// there only the players tell where the video starts.
function makeVideo(dir, video) {
  fs.mkdirSync(dir, { recursive: true });
  const fmp4 = video.type === 'fmp4';
  const segments = fmp4 ? ['-hls_segment_type', 'fmp4', '-hls_fmp4_init_filename', 'init.mp4'] : [];
  runChecked('ffmpeg', ['-hide_banner', '-loglevel', 'error', '-f', 'lavfi',
    '-i', `testsrc2=size=320x180:rate=${video.rate}`, '-t', String(video.seconds),
    '-c:v', 'libx264', '-preset', 'ultrafast', '-pix_fmt', 'yuv420p', '-g', '10', '-b:v', '200k',
    ...video.args, '-f', 'hls', '-hls_time', '2', '-hls_playlist_type', 'vod', '-master_pl_name', 'master.m3u8',
    ...segments, '-hls_segment_filename', path.join(dir, fmp4 ? 'v%03d.m4s' : 'v%03d.ts'),
    path.join(dir, 'video.m3u8')]);
  if (fmp4) return null;
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
    { dir: 'webvtt', file: 'source.vtt', text: webvttSource(WEBVTT_CUES), cues: WEBVTT_CUES, title: 'WebVTT source', isDefault: 'YES', language: 'en' },
    { dir: 'subrip', file: 'source.srt', text: subripSource(SUBRIP_CUES), cues: SUBRIP_CUES, title: 'SubRip source', isDefault: 'NO', language: 'ru', encoding: 'windows-1251' },
  ];
  const variant = ['#EXTM3U'];
  for (const s of streams) {
    const out = path.join(dir, s.dir);
    fs.mkdirSync(out, { recursive: true });
    fs.writeFileSync(path.join(dir, s.file),
      s.encoding ? execFileSync('iconv', ['-f', 'UTF-8', '-t', s.encoding], { input: s.text }) : s.text);
    const args = ['-q', '-t', String(SUBTITLE_TARGET), '-f', out];
    if (s.encoding) args.push(`--source-encoding=${s.encoding}`);
    if (c.mpegts !== null) args.push('-m', String(mpegts));
    run(options.hlsvtt, [...args, path.join(dir, s.file)]);
    variant.push(`#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID="subtitles",NAME="${s.title}",DEFAULT=${s.isDefault},` +
      `AUTOSELECT=YES,FORCED=NO,LANGUAGE="${s.language}",URI="${s.dir}/prog_index.m3u8"`);
  }
  const lines = mediaLines(variant.join('\n') + '\n', '.');
  fs.writeFileSync(path.join(dir, 'master.m3u8'), masterPlaylist(lines, `../${c.video}/video.m3u8`));
  const shift = (mpegts - firstPts) / 90000;
  checkTiming(options, work, `${name}/master.m3u8`, shift);
  return {
    name,
    video: c.video,
    master: `${name}/master.m3u8`,
    shift,
    // When MPEGTS is not the video's first PTS, cues lie outside the time span their segment has
    // in the playlist. Shaka Player fetches and keeps text by those spans and so loses such cues
    // after a seek or once the playhead passes the span; only hls.js is held to that case.
    players: mpegts === firstPts ? PLAYERS : PLAYERS.filter((p) => p !== 'shaka'),
    renditions: streams.map((s) => ({ name: s.title, cues: s.cues })),
  };
}

// A tiny test-pattern movie with one mov_text track per MOVIE_TRACKS entry, its forced cues
// marked in the samples.
function makeMovie(work) {
  const file = path.join(work, 'movie.mp4');
  const inputs = [];
  const streamArgs = [];
  for (const [i, track] of MOVIE_TRACKS.entries()) {
    const source = path.join(work, `movie_${track.language}.srt`);
    fs.writeFileSync(source, subripSource(track.cues.map((c) => (c.forced ? { ...c, text: `<b>${c.text}</b>` } : c))));
    inputs.push('-i', source);
    streamArgs.push('-map', `${i + 1}:s`, `-metadata:s:s:${i}`, `language=${track.language}`,
      `-metadata:s:s:${i}`, `title=${track.title}`, `-disposition:s:${i}`, track.isDefault ? 'default' : '0');
  }
  runChecked('ffmpeg', ['-hide_banner', '-loglevel', 'error', '-f', 'lavfi',
    '-i', `testsrc2=size=160x90:rate=10:duration=${MOVIE_SECONDS}`, ...inputs, '-map', '0:v', ...streamArgs,
    '-c:v', 'libx264', '-preset', 'ultrafast', '-c:s', 'mov_text', file]);
  const forced = MOVIE_TRACKS.reduce((n, t) => n + t.cues.filter((c) => c.forced).length, 0);
  markForcedSamples(file, forced);
  return file;
}

// Turns the style box of every styled text sample into a forced-sample box of the same size,
// so no offset in the file moves. Only the media data box is searched, and the number of boxes
// changed must be the number of forced cues.
function markForcedSamples(file, expected) {
  const bytes = fs.readFileSync(file);
  let data = null;
  for (let at = 0; at + 8 <= bytes.length;) {
    let size = bytes.readUInt32BE(at);
    let header = 8;
    if (size === 1 && at + 16 <= bytes.length) {
      size = Number(bytes.readBigUInt64BE(at + 8));
      header = 16;
    } else if (size === 0) {
      size = bytes.length - at;
    }
    if (size < header || at + size > bytes.length) throw new Error(`${file}: malformed box at ${at}`);
    if (bytes.toString('latin1', at + 4, at + 8) === 'mdat') data = { from: at + header, to: at + size };
    at += size;
  }
  if (data === null) throw new Error(`${file}: no media data box`);
  let changed = 0;
  for (let i = bytes.indexOf('styl', data.from + 4, 'latin1'); i >= 0 && i + 4 <= data.to;
    i = bytes.indexOf('styl', i + 4, 'latin1')) {
    const size = bytes.readUInt32BE(i - 4);
    if (size >= 10 && (size - 10) % 12 === 0 && i - 4 + size <= data.to) {
      bytes.write('frcd', i, 'latin1');
      changed += 1;
    }
  }
  if (changed !== expected) throw new Error(`${file}: ${changed} styled samples, ${expected} forced cues`);
  fs.writeFileSync(file, bytes);
}

function seconds(clockText) {
  const parts = clockText.split(':').map(Number);
  return parts.reduce((total, part) => total * 60 + part, 0);
}

// The cues of the movie's subtitle stream `index` as ffmpeg reads them, in the table's order.
function extractCues(movie, index) {
  const text = runChecked('ffmpeg', ['-hide_banner', '-loglevel', 'error', '-i', movie,
    '-map', `0:s:${index}`, '-f', 'webvtt', '-']);
  const cues = [];
  for (const block of text.replace(/\r/g, '').split(/\n\n+/)) {
    const lines = block.split('\n');
    const timing = lines.findIndex((l) => l.includes('-->'));
    if (timing < 0) continue;
    const [start, end] = lines[timing].split('-->').map((t) => seconds(t.trim().split(/\s/)[0]));
    cues.push({ start, end, text: plainText(lines.slice(timing + 1).join('\n').replace(/\n+$/, '')) });
  }
  const table = MOVIE_TRACKS[index].cues;
  if (cues.length !== table.length) {
    throw new Error(`ffmpeg reads ${cues.length} cues from subtitle stream ${index} of the movie, made with ${table.length}`);
  }
  return cues;
}

// Segments the movie for a case, puts its streams into a master playlist and names the streams
// it must offer with their cues as ffmpeg reads them from the movie. `firstPts` is the ladder's
// first video PTS when known; `starts` gets the value `pts` gives for the ladder.
function buildMovieCase(work, options, c, movie, firstPts, starts) {
  const dir = path.join(work, c.name);
  const out = path.join(dir, 'movie');
  fs.mkdirSync(out, { recursive: true });
  const videoDir = path.join(work, c.video);
  let mpegts = DEFAULT_MPEGTS;
  const args = ['-q', '-t', String(SUBTITLE_TARGET), '-f', out];
  if (c.merged) {
    const playlist = path.join(videoDir, 'video.m3u8');
    const pts = spawnSync(options.master, ['pts', playlist], { timeout: 30000, killSignal: 'SIGKILL', encoding: 'utf8' });
    const said = (pts.stdout || '').trim();
    if (pts.status !== 0 || !/^\d+$/.test(said)) throw new Error(`hlsvtt-master pts ${playlist}: status ${pts.status}, said "${said}" ${pts.stderr}`);
    mpegts = Number(said);
    starts[c.video] = mpegts;
    if (mpegts <= 2147483647) {
      args.push('-m', said);
    } else {
      // -m cannot carry it: pts names the option that does, with the value.
      const named = /(--[a-z][a-z-]*)=(\d+)/.exec(pts.stderr || '');
      if (!named || named[2] !== said) throw new Error(`hlsvtt-master pts gives ${said} and names no option for it: "${(pts.stderr || '').trim()}"`);
      args.push(`${named[1]}=${said}`);
    }
  }
  runChecked(options.hlsvtt, [...args, movie]);
  const fragment = path.join(out, 'subtitle_media.m3u8');
  let master;
  if (c.merged) {
    // The merged master lies beside the video's own, whose variant URIs stay as they are.
    master = `${c.video}/${c.name}.m3u8`;
    runChecked(options.master, ['merge', path.join(videoDir, 'master.m3u8'), fragment,
      '-o', path.join(work, master), '--conform']);
  } else {
    // Pasted as it is, the fragment keeps what --conform would change, which check reports.
    master = `${c.name}/master.m3u8`;
    const lines = mediaLines(fs.readFileSync(fragment, 'utf8'), 'movie');
    fs.writeFileSync(path.join(dir, 'master.m3u8'), masterPlaylist(lines, `../${c.video}/video.m3u8`));
  }
  const shift = firstPts === null ? 0 : (mpegts - firstPts) / 90000;
  if (c.merged) checkTiming(options, work, master, shift);
  const renditions = [];
  for (const [i, track] of MOVIE_TRACKS.entries()) {
    const cues = extractCues(movie, i);
    renditions.push({ name: track.title, cues });
    const forced = new Set(track.cues.filter((t) => t.forced).map((t) => t.text));
    if (forced.size === 0) continue;
    const forcedCues = cues.filter((cue) => forced.has(cue.text));
    if (forcedCues.length !== forced.size) throw new Error(`ffmpeg reads the forced cues of ${track.title} with other texts`);
    renditions.push({ name: `${track.title} (forced)`, cues: forcedCues });
  }
  // Every stream in the fragment is one the movie should give, and the other way round.
  const offered = fs.readFileSync(fragment, 'utf8').split('\n').filter((l) => l.startsWith('#EXT-X-MEDIA:')).map((l) => attribute(l, 'NAME'));
  const wanted = renditions.map((r) => r.name);
  if (JSON.stringify([...offered].sort()) !== JSON.stringify([...wanted].sort())) {
    throw new Error(`${c.name}: subtitle_media.m3u8 names ${JSON.stringify(offered)}, the movie gives ${JSON.stringify(wanted)}`);
  }
  return {
    name: c.name,
    video: c.video,
    master,
    // Without a first PTS of its own the ladder is held to the value `pts` gives: the players must
    // then show every cue at its source time after the first frame.
    shift,
    players: PLAYERS,
    renditions,
  };
}

// ---- checks ----------------------------------------------------------------------------------

const sameTimes = (a, b) => Math.abs(a.start - b.start) <= TOLERANCE && Math.abs(a.end - b.end) <= TOLERANCE;
const sameCue = (a, b) => a.text === b.text && sameTimes(a, b);
async function seek(page, t) {
  return call(page, `seek to ${fmt(t)}`, async (time) => (await window.harness).seek(time), t);
}

// A cue's text as a viewer reads it: the character references WebVTT text uses for its own
// markup characters stand for those characters.
const REFERENCES = { '&amp;': '&', '&lt;': '<', '&gt;': '>', '&nbsp;': '\u00a0', '&lrm;': '\u200e', '&rlm;': '\u200f' };
const plainText = (text) => text.replace(/&(amp|lt|gt|nbsp|lrm|rlm);/g, (ref) => REFERENCES[ref]);

async function snapshot(page) {
  const now = await call(page, 'cues', async () => (await window.harness).snapshot());
  const plain = (cues) => cues.map((c) => ({ ...c, text: plainText(c.text) }));
  return { active: plain(now.active), cues: plain(now.cues) };
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

// Checks one stream in one player, its cues expected `shift` seconds after their source times;
// returns one line per wrong cue.
async function checkRendition(page, rendition, shift, duration) {
  await call(page, `select ${rendition.name}`, async (name) => (await window.harness).select(name), rendition.name);
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
    const shift = testCase.shift + await call(page, 'select', async (name) => {
      const h = await window.harness;
      await h.select(name);
      return h.start;
    }, rendition.name);
    const t = (cue.start + cue.end) / 2 + shift;
    const painted = await call(page, 'seek for the screenshot',
      async (time) => (await window.harness).seekAndPaint(time), t);
    if (!painted) return [`screenshot: no frame near ${fmt(t)} was painted`];
    const now = await waitOnScreen(page, { ...cue, start: cue.start + shift, end: cue.end + shift }, t);
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
      return { renditions: h.renditions(), duration: h.duration(), start: h.start };
    });
    const lines = [];
    const offered = info.renditions;
    for (const rendition of testCase.renditions) {
      if (!offered.includes(rendition.name)) {
        lines.push(`[${rendition.name}] not offered by the player (it offers ${JSON.stringify(offered)})`);
        continue;
      }
      lines.push(...await checkRendition(page, rendition, testCase.shift + info.start, info.duration));
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
  const options = parseOptions(process.argv.slice(2), 'check_players.js', ['screenshot']);
  const parent = options.work || os.tmpdir();
  fs.mkdirSync(parent, { recursive: true });
  const work = fs.mkdtempSync(path.join(parent, 'players-'));

  const firstPts = {};
  for (const [name, video] of Object.entries(VIDEOS)) firstPts[name] = makeVideo(path.join(work, name), video);
  const cases = CASES.map((c) => buildWebvttCase(work, options, c, firstPts[c.video]));
  const movie = makeMovie(work);
  const starts = {};
  cases.push(...MOVIE_CASES.map((c) => buildMovieCase(work, options, c, movie, firstPts[c.video], starts)));

  const base = await startServer(work);
  const browser = await startBrowser(puppeteer, options.chromium);
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
  const list = (values) => Object.entries(values).filter(([, v]) => v !== null).map(([k, v]) => `${k} ${v}`).join(', ');
  console.log(`players: ${checked} cue checks (first PTS ${list(firstPts)}; pts ${list(starts)}), ${wrong} wrong`);
  return wrong === 0 ? 0 : 1;
}

runTest(main, TEST_LIMIT_MS);
