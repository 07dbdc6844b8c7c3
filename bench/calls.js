// What calls cost a script, each beside its floor, in alternation. Started by run.mjs with the build
// folder, the number of rounds, of calls that are timed one by one, and "drain" where an agent
// answers; prints one JSON object of arrays of nanoseconds a call, and in milliseconds the longest
// single call and what the machine stood still for during one.

const [build, rounds, singleCalls, drain] = process.argv.slice(2);
const pellmar = require(`${build}/pellmar.node`);
const floor = require(`${build}/bench/bench_floor.node`);

const calls = 2000;
const name = '20 characters, or so';

function nanoseconds(work) {
  const start = process.hrtime.bigint();
  for (let i = 0; i < calls; i++) work();
  return Number(process.hrtime.bigint() - start) / calls;
}

/** Waits until the agent has taken what was sent, which is not what is measured. */
function settle() {
  if (drain && pellmar.PLGetLastUserEmailSharingResponse() === 0) {
    throw new Error('the agent does not answer');
  }
}

const measured = {
  canShow: () => pellmar.PLCanShowReleaseNotesWindow(),
  empty: () => floor.empty(),
  event: () => pellmar.PLReportUsageEvent(name),
  convert: () => floor.convertToUtf8(name),
};
const times = Object.fromEntries(Object.keys(measured).map((key) => [key, []]));

// The engine compiles first what is called often.
for (const work of Object.values(measured)) for (let i = 0; i < 4; i++) nanoseconds(work);
settle();

for (let round = 0; round < Number(rounds); round++) {
  for (const [key, work] of Object.entries(measured)) {
    times[key].push(nanoseconds(work));
    if (key === 'event') settle();
  }
}

let longest = 0;
for (let i = 0; i < Number(singleCalls); i++) {
  floor.startCall();
  pellmar.PLReportUsageEvent(name);
  longest = Math.max(longest, floor.stopCall());
  if (i % calls === 0) settle();
}
console.log(JSON.stringify({ ...times, longest, standstill: floor.longestStandstill() }));
