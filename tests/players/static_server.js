#!/usr/bin/env node
// A small static file server for the playback tests and the preview script. It listens on
// 127.0.0.1 only, on the port given by PORT (default 0: the system picks a free one), prints its
// base address as the first line on standard output, and serves until it is stopped.
// Usage: static_server.js ROOT [/prefix=DIR ...]
// Each /prefix=DIR serves DIR under /prefix/; everything else comes from ROOT. A path that
// leaves its directory is refused.
'use strict';
const fs = require('fs');
const http = require('http');
const path = require('path');

const TYPES = {
  '.html': 'text/html; charset=utf-8',
  '.js': 'text/javascript; charset=utf-8',
  '.css': 'text/css; charset=utf-8',
  '.m3u8': 'application/x-mpegURL',
  '.ts': 'video/mp2t',
  '.webvtt': 'text/vtt; charset=utf-8',
  '.vtt': 'text/vtt; charset=utf-8',
  '.png': 'image/png',
};

const [root, ...mountArgs] = process.argv.slice(2);
if (!root) {
  process.stderr.write('usage: static_server.js ROOT [/prefix=DIR ...]\n');
  process.exit(2);
}
const mounts = mountArgs.map((arg) => {
  const eq = arg.indexOf('=');
  if (!arg.startsWith('/') || eq < 2) {
    process.stderr.write(`bad mount "${arg}": expected /prefix=DIR\n`);
    process.exit(2);
  }
  return { prefix: arg.slice(0, eq).replace(/\/+$/, '') + '/', dir: path.resolve(arg.slice(eq + 1)) };
});

// Maps a request path to a file, or null when it names nothing we serve.
function resolve(urlPath) {
  let decoded;
  try {
    decoded = decodeURIComponent(urlPath);
  } catch {
    return null;
  }
  if (decoded.includes('\0')) return null;
  let base = path.resolve(root);
  let rest = decoded;
  for (const m of mounts) {
    if (decoded.startsWith(m.prefix)) {
      base = m.dir;
      rest = decoded.slice(m.prefix.length);
      break;
    }
  }
  const file = path.resolve(base, '.' + path.posix.normalize('/' + rest));
  if (file !== base && !file.startsWith(base + path.sep)) return null;
  return file;
}

const server = http.createServer((req, res) => {
  const url = new URL(req.url, 'http://127.0.0.1');
  let file = resolve(url.pathname);
  if (file && url.pathname.endsWith('/')) file = path.join(file, 'index.html');
  if (!file || (req.method !== 'GET' && req.method !== 'HEAD')) {
    res.writeHead(file ? 405 : 404).end();
    return;
  }
  fs.readFile(file, (err, data) => {
    if (err) {
      res.writeHead(404).end();
      return;
    }
    res.writeHead(200, {
      'Content-Type': TYPES[path.extname(file).toLowerCase()] || 'application/octet-stream',
      'Content-Length': data.length,
      'Cache-Control': 'no-store',
      'Access-Control-Allow-Origin': '*',
    });
    res.end(req.method === 'HEAD' ? undefined : data);
  });
});

server.listen(Number(process.env.PORT || 0), '127.0.0.1', () => {
  process.stdout.write(`http://127.0.0.1:${server.address().port}/\n`);
});
for (const signal of ['SIGINT', 'SIGTERM']) {
  process.on(signal, () => process.exit(0));
}
