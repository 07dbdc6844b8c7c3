// Takes processes through random sequences of what agents, callers, the customer and the desktop do:
//
//   sequences.mjs [--seed N] [--count N | --minutes N] [--steps N]
//   sequences.mjs --repeat 'WORD…' [--trace]      goes through that one, and prints its trace
//
// Those that something was found with come first. A sequence is drawn from the seed, and the ones after it from the
// numbers after that; without a seed from one that is printed. The first that fails is shortened, and printed with what is needed to repeat it; the run ends with 1.

import { parseArgs } from 'node:util';

import { startDisplay } from '../support/display.mjs';
import { judge } from './judge.mjs';
import { live } from './sequence_life.mjs';
import { found, generate } from './sequence_steps.mjs';
import { shorten } from './shorten.mjs';

/** Sequences mostly wait, each with a display of its own. */
const atATime = 3;
/** How often a shorter sequence is tried before it counts as one that does not fail. */
const tries = 2;
const shortenLimit = 5 * 60_000;

const { values: options } = parseArgs({
  options: {
    seed: { type: 'string', default: `${Math.floor(Math.random() * 1e6)}` }, count: { type: 'string', default: '6' },
    minutes: { type: 'string' }, steps: { type: 'string', default: '24' }, repeat: { type: 'string' },
    trace: { type: 'boolean' },
  },
});

async function attempt(line, display) {
  const { trace, faults } = await live(line, display);
  if (options.trace) [...trace].sort((a, b) => a.at - b.at).forEach((entry) => console.log(JSON.stringify(entry)));
  return [...faults, ...judge(trace)];
}

/** The fault of that rule in one of several tries, if there is one. */
async function failsBy(rule, words, display) {
  for (let i = 0; i < tries; ++i) {
    const fault = (await attempt(words.join(' '), display)).find((one) => one.rule === rule);
    if (fault) return fault;
  }
  return undefined;
}

/** Shortens a failing sequence, prints it, and returns whether it counts: what is of time has to be seen again. */
async function report(seed, words, faults, display) {
  const [{ rule, isOfTime }] = faults;
  console.log(`seed ${seed}: ${faults.map(({ text }) => text).join('; ')}\n  ${words.join(' ')}`);
  const detail = faults.find((fault) => fault.detail)?.detail;
  if (detail) console.log(detail.slice(0, 6000));
  if (isOfTime && !(await failsBy(rule, words, display))) {
    console.log('  not seen again: the machine was busy');
    return false;
  }
  const end = performance.now() + shortenLimit;
  // The last step is what looks at the whole.
  const steps = await shorten(words.slice(0, -1), (candidate) => failsBy(rule, [...candidate, 'quiet'], display),
    () => performance.now() > end);
  const short = [...steps, 'quiet'];
  console.log(`  node tests/faults/sequences.mjs --repeat '${short.join(' ')}'`);
  const again = await failsBy(rule, short, display);
  console.log(again ? `  ${again.text}` : '  which does not fail each time');
  return true;
}

async function repeat(line) {
  const display = await startDisplay();
  const faults = await attempt(line, display).finally(() => display.stop());
  faults.forEach(({ rule, text, detail = '' }) => console.log(`${rule}: ${text}\n${detail}`.trim()));
  return faults.length;
}

async function runAll() {
  const first = Number(options.seed);
  const limit = options.minutes ? performance.now() + 60_000 * Number(options.minutes) : Infinity;
  const count = options.minutes ? Infinity : Number(options.count);
  const known = [...found];
  let next = 0;
  let failed = 0;
  console.log(`seed ${first}`);
  await Promise.all(Array.from({ length: atATime }, async () => {
    const display = await startDisplay();
    while (failed === 0 && (known.length || (next < count && performance.now() < limit))) {
      const line = known.shift();
      const seed = line ? 'none' : first + next++;
      const words = line?.split(' ') ?? generate(seed, Number(options.steps));
      const faults = await attempt(words.join(' '), display);
      // One is enough to look at: the others would only take its time.
      if (faults.length && failed++ === 0 && !(await report(seed, words, faults, display))) failed = 0;
    }
    await display.stop();
  }));
  console.log(`${found.length} known sequences and ${next} of ${options.steps} steps, ${failed} failed, ` +
    `${(performance.now() / 1000).toFixed()} s`);
  return failed;
}

process.exitCode = (await (options.repeat === undefined ? runAll() : repeat(options.repeat))) ? 1 : 0;
