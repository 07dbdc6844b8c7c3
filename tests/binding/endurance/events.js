// Reports usage events, in plain node: `events.js MODULE PROBE COUNT`. Prints how many there have been
// after each batch, waits for a line of input, and prints what the process holds after each tenth, each as
// one line of JSON.
'use strict';

const [module_, probe, count] = process.argv.slice(2);
const pellmar = require(module_);
const holdings = require('./holdings.js')(probe);

/** No more than may be on their way to the agent. */
const batch = 2000;
const lines = require('node:readline').createInterface({ input: process.stdin })[Symbol.asyncIterator]();
let reported = 0;

async function report(events) {
  for (let i = 1; i <= events; ++i) {
    pellmar.PLReportUsageEvent(`Document exported: ${i}`);
    ++reported;
    if (i % batch !== 0 && i !== events) continue;
    process.stdout.write(`${JSON.stringify({ reported })}\n`);
    await lines.next();
  }
}

async function main() {
  const tenth = Math.ceil(Number(count) / 10);
  // What the engine and the toolkit make once is there before the first tenth.
  await report(Math.min(tenth, 5000));
  for (let i = 0; i < 10; ++i) {
    await report(tenth);
    await holdings.print();
  }
}

main().then(() => process.exit());
