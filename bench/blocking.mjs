// What could keep the main thread waiting, each by itself, with the answers: the median of five. For the
// build of another version, too: PELLMAR_BUILD_DIR=… node bench/blocking.mjs

import { Caller } from '../tests/faults/callers.mjs';
import { repeat, Scope } from './processes.mjs';
import { median } from './table.mjs';

const event = 'reportUsageEvent:eventInfo:';
const start = async (options, work) => Scope.run(async (scope) =>
  work(await Caller.inNode(scope), options && await scope.agent('--should-ask', 'no', ...options)));

const behind = (count) => start([], async (caller) => {
  await caller.tell('status()');
  await caller.tell(`for (let i = 0; i < ${count}; i++) pellmar.PLReportUsageEvent('e' + i)`);
  return caller.tell('status()');
});

const eventEvery = (pause) => start(null, async (caller) => caller.tell(`(async () => {
  let total = 0;
  pellmar.PLReportUsageEvent('starts the toolkit');
  for (let i = 0; i < 40; i++) {
    await new Promise((done) => setTimeout(done, ${pause}));
    const start = performance.now();
    pellmar.PLReportUsageEvent('e');
    total += performance.now() - start;
  }
  return (total / 40 * 1000).toFixed(0) + ' µs each';
})()`.replaceAll('\n', ' ')));

const figures = {
  'a question behind 10,000 events': () => behind(10_000),
  'a question behind 100,000 events': () => behind(100_000),
  'a question while the agent hangs over an event': () => start(['--hang', event], async (caller, agent) => {
    await caller.tell(`pellmar.PLReportUsageEvent('e')`);
    await agent.waitFor(event);
    return caller.tell('status()');
  }),
  'three questions and an ask, agent hung': () => start([], async (caller, agent) => {
    await agent.suspend();
    return caller.tell(`[status(), status(), status(), ask()].join(' ')`);
  }),
  'an event every 25 ms without an agent': () => eventEvery(25),
  'an event every 100 ms without an agent': () => eventEvery(100),
};

for (const [name, measure] of Object.entries(figures)) {
  const { value, ms } = await repeat(5, measure);
  const answers = [...new Set(value)].join('; ');
  console.log(`${name}: ${/µs/.test(answers) ? value.sort()[2] : `${median(ms).toFixed(1)} ms, answered ${answers}`}`);
}
