// Leaks in processes that scripts run in. LeakSanitizer has to go through the whole stack of every
// allocation here, which makes the start of an engine take seconds: so these processes do everything
// in one life, and the other tests that start an engine run without it.

import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import { once } from 'node:events';
import path from 'node:path';
import { createInterface } from 'node:readline';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { Agent, buildFolder, makeSession } from '../support/agent.mjs';
import { runHostScript, startDisplay } from '../support/display.mjs';

const modulePath = path.join(buildFolder, 'pellmar.node');
const suppressions = fileURLToPath(new URL('../support/sanitizers/leaks.supp', import.meta.url));
const leakEnvironment = {
  ASAN_OPTIONS: 'fast_unwind_on_malloc=0:malloc_context_size=14',
  LSAN_OPTIONS: `suppressions=${suppressions}:print_suppressions=0`,
};

const calls = `
  const attempt = (call) => { try { return call(); } catch {} };
  const callEverything = (count) => {
    for (let i = 0; i < count; ++i) {
      pellmar.PLReportUsageEvent('event');
      attempt(() => pellmar.PLReportUsageEvent('event', 2));
      attempt(() => pellmar.PLReportUsageEvent({ toString() { throw new Error(); } }));
      attempt(() => pellmar.PLReportUsageEvent());
      pellmar.PLShowReleaseNotesWindowIfNeeded();
      pellmar.PLShowReleaseNotesWindow();
      pellmar.PLCanShowReleaseNotesWindow();
      pellmar.PLGetLastUserEmailSharingResponse();
      pellmar.PLAskUserToShareEmail();
      pellmar.PLAskUserToShareEmail(() => {});
      pellmar.PLAskUserToShareEmail('no function');
      attempt(() => pellmar.PLAskUserToShareEmail(() => { throw new Error(); }));
      pellmar.PLEnableDebugLogging(true);
      pellmar.PLEnableDebugLogging(false);
      attempt(() => pellmar.PLEnableDebugLogging(1));
    }
  };`;

test('nothing is leaked by calls to agents that serve, drop, die, hang or are not there', async (t) => {
  const session = makeSession(t);
  const runtime = execFileSync('clang-19', ['-print-file-name=libclang_rt.asan-x86_64.so'],
    { encoding: 'utf8' }).trim();
  const env = { ...process.env, ...session.env, ...leakEnvironment, LD_PRELOAD: runtime };
  delete env.DISPLAY;
  const child = spawn(process.execPath, ['-e', `
    const pellmar = require(${JSON.stringify(modulePath)});
    ${calls}
    process.stdin.on('data', (data) => { callEverything(Number(data)); console.log('done'); });`],
    { env, stdio: ['pipe', 'pipe', 'pipe'] });
  t.after(() => child.kill('SIGKILL'));
  let stderr = '';
  child.stderr.on('data', (data) => (stderr += data));
  const lines = createInterface({ input: child.stdout });
  const callAll = async (count) => {
    child.stdin.write(String(count));
    await once(lines, 'line', { signal: AbortSignal.timeout(120_000) });
  };

  await callAll(10);
  const fetch = 'fetchAskingPermissionStatus:';
  for (const [count, ...options] of [
    [20, '--should-ask', 'no'],
    [5, '--should-ask', 'no', '--twice', fetch],
    [5, '--wrong-type', fetch],
    [2, '--die-on', fetch],
    [2, '--die-on', 'checkConnectionWithCallback:'],
    [1, '--drop', fetch],
    [1, '--hang', fetch],
    [1, '--error', 'showReleaseNotesForAppWithCallback:=com.example:1:none', '--should-ask', 'no'],
  ]) {
    const agent = await Agent.start(null, session, ...options);
    t.after(() => agent.stop('SIGKILL'));
    await callAll(count);
    await agent.stop('SIGKILL');
  }
  child.stdin.end();
  const [status, signal] = await once(child, 'close');
  assert.deepEqual([status, signal], [0, null], stderr);
});

test('nothing is leaked by windows that are answered, and by one that is up at the end', async (t) => {
  const session = makeSession(t);
  await Agent.start(t, session, '--always-ask');
  const display = await startDisplay();
  t.after(() => display.stop());
  const host = runHostScript(t, `
    const pellmar = require(${JSON.stringify(modulePath)});
    const ask = () => pellmar.PLAskUserToShareEmail((answer) => { print(answer); ask(); });
    ask();
    print('asking');
    process.on('SIGUSR2', () => process.exit());`,
    { display, env: { ...session.env, ...leakEnvironment } });
  assert.equal(await host.next(100_000), 'asking');
  for (const [key, answer] of [['Return', 1], ['Escape', 2], ['Return', 1]]) {
    await display.focused('Pellmar Demo');
    await display.xdotool('key', key);
    assert.equal(await host.next(60_000), answer);
  }
  await display.focused('Pellmar Demo');
  host.process.kill('SIGUSR2');
  const { status, signal, stderr } = await host.ended;
  assert.deepEqual([status, signal], [0, null], stderr);
});
