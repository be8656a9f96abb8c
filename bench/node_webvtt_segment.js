// Peer: node-webvtt's HLS segmenter, writing its segments and playlist as files.
// Usage: node node_webvtt_segment.js <input.vtt> <output dir> <seconds>
'use strict';
const fs = require('fs');
const path = require('path');
const { hls } = require('node-webvtt');

const [input, out, seconds] = process.argv.slice(2);
const text = fs.readFileSync(input, 'utf8');
for (const { filename, content } of hls.hlsSegment(text, Number(seconds))) {
  fs.writeFileSync(path.join(out, filename), content);
}
fs.writeFileSync(path.join(out, 'playlist.m3u8'), hls.hlsSegmentPlaylist(text, Number(seconds)));
