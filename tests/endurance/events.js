// Reports usage events, in plain node: `events.js MODULE PROBE COUNT`. Prints what the process holds
// after each tenth, as one line of JSON.
'use strict';

const [module_, probe, count] = process.argv.slice(2);
const pellmar = require(module_);
const holdings = require('./holdings.js')(probe);

/** No more than the channel keeps for a slow agent: the reply comes when all of them were taken. */
const batch = 500;

function report(events) {
  for (let i = 1; i <= events; ++i) {
    pellmar.PLReportUsageEvent(`Document exported: ${i}`);
    if (i % batch === 0 || i === events) pellmar.PLGetLastUserEmailSharingResponse();
  }
}

async function main() {
  const tenth = Math.ceil(Number(count) / 10);
  // What the engine and the toolkit make once is there before the first tenth.
  report(Math.min(tenth, 5000));
  for (let i = 0; i < 10; ++i) {
    report(tenth);
    await holdings.print();
  }
}

main();
