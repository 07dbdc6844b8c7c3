// Resident memory before and after a million usage events that all reach the agent: prints MiB.

const fs = require('fs');

const [build] = process.argv.slice(2);
const pellmar = require(`${build}/pellmar.node`);

function report(events) {
  for (let sent = 0; sent < events; sent += 10_000) {
    for (let i = 0; i < 10_000; i++) pellmar.PLReportUsageEvent('20 characters, or so');
    if (pellmar.PLGetLastUserEmailSharingResponse() === 0) throw new Error('the agent does not answer');
  }
}

function residentMiB() {
  global.gc();
  return Number(/VmRSS:\s+(\d+)/.exec(fs.readFileSync('/proc/self/status'))[1]) / 1024;
}

report(50_000);
const before = residentMiB();
report(1_000_000);
console.log(JSON.stringify({ before, after: residentMiB() }));
