// What both browser tests share: running the tools, and the HTTP server and headless Chromium a
// test owns, started with limits and stopped by process id even from an exit handler.
'use strict';
const path = require('path');
const { execFileSync, spawn } = require('child_process');

const HERE = __dirname;
const REPO = path.resolve(HERE, '../..');
const STEP_LIMIT_MS = 15000; // any single browser call

// The options of a browser test: the tools, the browser, a work directory, --keep, and the
// test's own `extra` options, each taking a path.
function parseOptions(argv, script, extra) {
  const options = {
    hlsvtt: path.join(REPO, 'build/hlsvtt'),
    master: path.join(REPO, 'build/hlsvtt-master'),
    chromium: '/usr/bin/chromium',
    work: null,
    keep: false,
  };
  for (const key of extra) options[key] = null;
  for (let i = 0; i < argv.length; i += 2) {
    const key = argv[i].replace(/^--/, '');
    if (key === 'keep') {
      options.keep = true;
      i -= 1;
      continue;
    }
    if (!(key in options) || i + 1 >= argv.length) {
      const more = extra.map((key) => ` [--${key} PATH]`).join('');
      throw new Error(`usage: ${script} [--hlsvtt BIN] [--master BIN] [--chromium PATH] [--work DIR]${more} [--keep]`);
    }
    options[key] = path.resolve(argv[i + 1]);
  }
  return options;
}

function run(program, args, limitMs = 30000) {
  return execFileSync(program, args, { timeout: limitMs, killSignal: 'SIGKILL', encoding: 'utf8', stdio: ['ignore', 'pipe', 'pipe'] });
}

// Runs a program that must succeed; on failure the error names it with what it printed.
function runChecked(program, args) {
  try {
    return run(program, args);
  } catch (e) {
    const said = `${e.stdout || ''}${e.stderr || ''}`.trim();
    throw new Error(`${path.basename(program)} ${args.join(' ')}: ${e.status === null ? e.signal : `status ${e.status}`}` +
      (said ? `: ${said.split('\n').slice(-3).join(' | ')}` : ''));
  }
}

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

// Serves `root` with the pages of this folder under /page and the players under /lib.
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

async function startBrowser(puppeteer, executablePath) {
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

// Evaluates `fn` in the page, failing when it gives no answer within the step limit.
async function call(page, what, fn, ...args) {
  return within(STEP_LIMIT_MS, what, page.evaluate(fn, ...args));
}

const fmt = (t) => t.toFixed(3);
const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

// Runs the test's `main` (a promise of the exit status) with a limit on its whole time, and
// exits with its status; the server and browser are stopped however it ends.
function runTest(main, limitMs) {
  process.on('exit', stopProcesses);
  const watchdog = setTimeout(() => {
    console.log(`FAIL the whole test took longer than ${limitMs / 1000} s`);
    stopProcesses();
    process.exit(1);
  }, limitMs);
  main().then((status) => {
    clearTimeout(watchdog);
    process.exit(status);
  }, (e) => {
    console.log(`FAIL ${e.message}`);
    stopProcesses();
    process.exit(1);
  });
}

module.exports = { runTest, parseOptions, run, runChecked, stopProcesses, within, startServer, startBrowser, call, fmt, sleep, STEP_LIMIT_MS };
