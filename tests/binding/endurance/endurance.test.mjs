// What many calls leave behind in one process: nothing. ENDURANCE_EVENTS and ENDURANCE_ROUNDS say how
// many; without them a short form runs, in which only what is lost at every call would show.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import path from 'node:path';
import { createInterface } from 'node:readline';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { agentPath, buildFolder, makeSession } from '../../support/agent.mjs';
import { runHost, startDisplay, until } from '../../support/display.mjs';

const events = Number(process.env.ENDURANCE_EVENTS ?? 30_000);
const rounds = Number(process.env.ENDURANCE_ROUNDS ?? 20);

/** Threads of the workers that may rest for a while after their work. */
const restingThreads = 4;

const here = path.dirname(fileURLToPath(import.meta.url));
const modulePath = path.join(buildFolder, 'pellmar.node');
const probePath = path.join(buildFolder, 'tests/binding/memory_probe.node');

/** An agent of which only the number of its requests is kept. */
async function startAgent(t, session, ...options) {
  const process_ = spawn(agentPath, ['serve', ...options],
    { env: { ...process.env, ...session.env }, stdio: ['ignore', 'pipe', 'inherit'] });
  const counts = {};
  const lines = createInterface({ input: process_.stdout });
  lines.on('line', (line) => {
    const { method } = JSON.parse(line);
    counts[method] = (counts[method] ?? 0) + 1;
  });
  await once(lines, 'line', { signal: AbortSignal.timeout(60_000) });
  t.after(() => process_.kill());
  return {
    counts,
    async stop() {
      process_.kill();
      await once(lines, 'close');
    },
  };
}

/** What is lost at every call shows in any number of them, what settles only in many. */
function check(t, tenths, calls, isLong) {
  // The engine's heap grows and shrinks by its own pages, and is no larger for our calls.
  for (const tenth of tenths) tenth.native = tenth.anonymous - tenth.heap;
  t.diagnostic('tenth   malloc   native   script heap   descriptors   threads   seconds');
  tenths.forEach((tenth, i) => t.diagnostic([
    i + 1, ...['allocated', 'native', 'heap'].map((name) => `${Math.round(tenth[name] / 1024)} KiB`),
    tenth.descriptors, tenth.threads, tenth.seconds.toFixed(1)].join('   ')));
  assert.equal(tenths.length, 10);
  const [first, last] = [tenths[0], tenths[9]];
  const each = (last.allocated - first.allocated) / (calls * 0.9);
  t.diagnostic(`${each.toFixed(2)} bytes stay allocated for each`);
  if (isLong) {
    for (const name of ['allocated', 'native']) {
      assert.ok(last[name] <= first[name] * 1.02,
        `${name}: ${first[name]} after the first tenth, ${last[name]} after the last`);
    }
  }
  assert.equal(last.descriptors, first.descriptors, 'descriptors');
  assert.ok(last.threads <= first.threads + restingThreads,
    `${first.threads} threads after the first tenth, ${last.threads} after the last`);
  return each;
}

test(`${events} usage events`, async (t) => {
  const session = makeSession(t);
  const agent = await startAgent(t, session, '--should-ask', 'no');
  const env = { ...process.env, ...session.env };
  delete env.DISPLAY;
  // The engine's own young generation would grow for a while.
  const child = spawn(process.execPath,
    ['--max-semi-space-size=1', path.join(here, 'events.js'), modulePath, probePath, events],
    { env, stdio: ['pipe', 'pipe', 'inherit'] });
  t.after(() => child.kill());
  const ended = once(child, 'close');
  const tenths = [];
  const taken = () => agent.counts['reportUsageEvent:eventInfo:'] ?? 0;
  let reported = 0;
  let dropped = 0;
  for await (const line of createInterface({ input: child.stdout })) {
    const value = JSON.parse(line);
    if (!('reported' in value)) {
      tenths.push(value);
      continue;
    }
    reported = value.reported;
    // What the client drops where the acknowledgements are late, as on a busy machine, never comes.
    await until(() => taken() + dropped === reported, '', 10_000).catch(() => {
      dropped = reported - taken();
    });
    child.stdin.write('on\n');
  }
  assert.deepEqual(await ended, [0, null]);
  await agent.stop();
  assert.ok(reported >= events);
  t.diagnostic(`${dropped} of ${reported} were dropped`);
  assert.ok(dropped < reported / 10, `${dropped} of ${reported} were dropped`);
  // The smallest piece of memory that there is has 16 bytes.
  assert.ok(check(t, tenths, events, 'ENDURANCE_EVENTS' in process.env) < 8);
});

test(`${rounds} questions and answers`, async (t) => {
  const session = makeSession(t);
  const display = await startDisplay();
  t.after(() => display.stop());
  const agent = await startAgent(t, session, '--always-ask');
  const host = runHost(path.join(here, 'questions.js'),
    { display, env: session.env, args: [modulePath, probePath, String(rounds)] });
  t.after(() => host.stop());
  // Not --sync, which waits for good for a window that has been answered meanwhile.
  const find = ['search', '--onlyvisible', '--classname', '^Pellmar Demo$'];
  const answers = {
    allow: [...find, 'windowfocus', '--sync', 'key', 'Return'],
    postpone: [...find, 'windowfocus', '--sync', 'key', 'Escape'],
    decline: [...find, 'mousemove', '--window', '%1', 217, 290, 'click', 1],
  };

  const tenths = [];
  let asked = 0;
  const heard = (async () => {
    while (tenths.length < 10) {
      const line = await host.next(60_000);
      if (line === 'asking') ++asked;
      else tenths.push(line);
    }
  })();
  const answered = (async () => {
    for (let round = 1; tenths.length < 10; ++round) {
      const isOver = () => tenths.length === 10 || asked > round;
      const answer = ['allow', 'postpone', 'decline'][round % 3];
      await until(() => tenths.length === 10 || asked >= round, 'the next question');
      while (!isOver()) {
        // The window of the question before may still be found; then it takes another try.
        await display.xdotool(...answers[answer]).catch(() => {});
        await until(isOver, 'the answer is there', 300).catch(() => {});
      }
    }
  })();
  await Promise.all([heard, answered]);
  const { status, stderr } = await host.ended;
  assert.deepEqual([status, stderr], [0, '']);
  await agent.stop();
  t.diagnostic(JSON.stringify(agent.counts));
  check(t, tenths, rounds, 'ENDURANCE_ROUNDS' in process.env);
});
