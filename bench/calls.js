// What calls cost a script, each beside its floor. Started by run.mjs with the build folder, the number
// of calls to time one by one in each round, and "drain" where an agent answers. Does one round for
// each line of its input and prints what it came to: nanoseconds a call, and in milliseconds the longest
// single call and what the machine stood still for during one.

const { createInterface } = require('readline');

const [build, singleCalls, drain] = process.argv.slice(2);
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

// The engine compiles first what is called often.
for (const work of Object.values(measured)) for (let i = 0; i < 4; i++) nanoseconds(work);
settle();

createInterface({ input: process.stdin }).on('line', () => {
  const round = { longest: 0 };
  for (const [key, work] of Object.entries(measured)) {
    round[key] = nanoseconds(work);
    if (key === 'event') settle();
  }
  for (let i = 0; i < Number(singleCalls); i++) {
    floor.startCall();
    pellmar.PLReportUsageEvent(name);
    round.longest = Math.max(round.longest, floor.stopCall());
  }
  settle();
  console.log(JSON.stringify({ ...round, standstill: floor.longestStandstill() }));
});
