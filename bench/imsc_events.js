// Parses a TTML document with imsc and lists its time events, RUNS times in this process, and
// prints the median seconds of one parse and listing (Node's start-up and the file read are not
// counted). Usage: node bench/imsc_events.js FILE [RUNS]
'use strict';
const fs = require('fs');
// imsc's document module: its renderer needs a browser, parsing does not.
const imsc = require('imsc/src/main/js/doc.js');

const text = fs.readFileSync(process.argv[2], 'utf8');
const runs = Number(process.argv[3] || 5);
const times = [];
let events = 0;
for (let i = 0; i < runs; i++) {
  const start = process.hrtime.bigint();
  const doc = imsc.fromXML(text, () => {});
  events = doc.getMediaTimeEvents().length;
  times.push(Number(process.hrtime.bigint() - start) / 1e9);
}
times.sort((a, b) => a - b);
console.log(`${times[Math.floor(times.length / 2)].toFixed(3)} ${events}`);
