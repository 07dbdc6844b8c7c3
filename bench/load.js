// What loading a module costs a fresh process: prints the milliseconds of its `require`, the resident
// memory added in MiB, and the threads and descriptors added.

const fs = require('fs');

const [file] = process.argv.slice(2);

const residentMiB = () => Number(/VmRSS:\s+(\d+)/.exec(fs.readFileSync('/proc/self/status'))[1]) / 1024;
const count = (folder) => fs.readdirSync(`/proc/self/${folder}`).length;

count('task');
const before = { resident: residentMiB(), threads: count('task'), descriptors: count('fd') };
const start = process.hrtime.bigint();
require(file);
const time = Number(process.hrtime.bigint() - start) / 1e6;
const after = { resident: residentMiB(), threads: count('task'), descriptors: count('fd') };
console.log(JSON.stringify({
  time,
  resident: after.resident - before.resident,
  threads: after.threads - before.threads,
  descriptors: after.descriptors - before.descriptors,
}));
