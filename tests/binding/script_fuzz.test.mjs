// The script functions under generated calls: the process lives, and nothing comes out of a call that
// the module or the engine is not known to throw. FUZZ_SEED replays a run, FUZZ_CALLS says how many
// calls each function gets.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import path from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { agentPath, buildFolder, makeSession } from '../support/agent.mjs';
import { runHost, startDisplay } from '../support/display.mjs';
import { sanitizerEnvironment } from '../support/sanitizer.mjs';

const calls = Number(process.env.FUZZ_CALLS ?? 2_000);
const seed = process.env.FUZZ_SEED ?? '1';

const fuzzer = fileURLToPath(new URL('script_fuzzer.js', import.meta.url));
const modulePath = path.join(buildFolder, 'pellmar.node');

/** An agent whose output nobody keeps. */
async function startAgent(t, session, ...options) {
  const agent = spawn(agentPath, ['serve', ...options],
    { env: { ...process.env, ...session.env }, stdio: ['ignore', 'pipe', 'inherit'] });
  t.after(() => agent.kill());
  await once(agent.stdout, 'data', { signal: AbortSignal.timeout(60_000) });
  agent.stdout.resume();
}

function check(t, { status, signal, stdout, stderr }) {
  t.diagnostic(`seed ${seed}`);
  for (const line of stdout.split('\n').filter(Boolean)) t.diagnostic(line);
  assert.equal(signal, null, stderr);
  const faults = stdout.split('\n').filter((line) => line.startsWith('{"fault"'));
  assert.deepEqual(faults, [], `FUZZ_SEED=${seed}`);
  assert.equal(status, 0, stderr);
  assert.doesNotMatch(stderr, /without pool|ERROR: |runtime error/);
}

async function runNode(session, count, ...answer) {
  const env = { ...process.env, ...sanitizerEnvironment(), ...session.env };
  delete env.DISPLAY;
  const child = spawn(process.execPath, [fuzzer, modulePath, seed, String(count), ...answer],
    { env, stdio: ['ignore', 'pipe', 'pipe'] });
  let stdout = '';
  let stderr = '';
  child.stdout.on('data', (data) => (stdout += data));
  // Every failed connection is a line in the log: its end is enough.
  child.stderr.on('data', (data) => (stderr = (stderr + data).slice(-100_000)));
  const [status, signal] = await once(child, 'close');
  return { status, signal, stdout, stderr };
}

test(`${calls} calls of each function, with an agent that does not ask`, async (t) => {
  const session = makeSession(t);
  await startAgent(t, session, '--should-ask', 'no');
  check(t, await runNode(session, calls, '1'));
});

test(`${Math.ceil(calls / 10)} calls of each function without an agent`, async (t) => {
  check(t, await runNode(makeSession(t), Math.ceil(calls / 10), '0'));
});

test(`${Math.ceil(calls / 10)} calls of each function, with the window up`, async (t) => {
  const session = makeSession(t);
  await startAgent(t, session);
  const display = await startDisplay();
  t.after(() => display.stop());
  const host = runHost(fuzzer,
    { display, env: session.env, args: [modulePath, seed, String(Math.ceil(calls / 10)), '0'] });
  t.after(() => host.stop());
  check(t, await host.ended);
});
