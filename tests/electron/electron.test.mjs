// The client as an application gets it, in the runtime that it is for. scripts/test-electron runs this:
//
//   PELLMAR_ELECTRON   the runtime's executable
//   PELLMAR_CLIENT     the folder to require
//   PELLMAR_BUILD_DIR  the build folder, for the development agent
//
// The question in the window is answered with a key, which System Events presses only for programs that the
// user has allowed to (Privacy & Security, Accessibility and Automation). Where that was not done the test
// is skipped and says so; with CI in the environment it fails.

import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import { createInterface } from 'node:readline';
import { test } from 'node:test';
import { setTimeout as delay } from 'node:timers/promises';
import { fileURLToPath } from 'node:url';
import { isDeepStrictEqual } from 'node:util';

import { Agent, agentPath } from '../support/agent.mjs';

const { PELLMAR_ELECTRON: electron, PELLMAR_CLIENT: client } = process.env;
const file = (name) => fileURLToPath(new URL(name, import.meta.url));

const names = [
  'PLShowReleaseNotesWindowIfNeeded', 'PLShowReleaseNotesWindow', 'PLCanShowReleaseNotesWindow',
  'PLReportUsageEvent', 'PLGetLastUserEmailSharingResponse', 'PLAskUserToShareEmail',
  'PLEnableDebugLogging',
];

/** Runs a script in the runtime without an application around it; returns what it printed as JSON. */
function script(text, runtime = electron) {
  const { status, stdout, stderr } = spawnSync(
    runtime,
    ['-e', `const pellmar = require(${JSON.stringify(client)});
      const print = (value) => console.log(JSON.stringify(value));
      const thrown = (call) => { try { call(); } catch (error) { return [error.name, error.message]; } };
      ${text}`],
    { encoding: 'utf8', env: { ...process.env, ELECTRON_RUN_AS_NODE: '1' }, timeout: 30_000 },
  );
  return { status, stderr, values: stdout.split('\n').filter(Boolean).map((line) => JSON.parse(line)) };
}

function printedBy(text) {
  const { status, stderr, values } = script(text);
  assert.equal(status, 0, stderr);
  return values;
}

/** The application, started, and a way to have it run a line and print one. */
async function startApplication(t, { PELLMAR_CLIENT = client } = {}) {
  const { ELECTRON_RUN_AS_NODE, ...env } = process.env;
  const child = spawn(electron, [file('app')], {
    env: { ...env, PELLMAR_CLIENT },
    stdio: ['pipe', 'pipe', 'pipe'],
  });
  t.after(() => child.kill('SIGKILL'));
  let log = '';
  child.stderr.on('data', (data) => (log += data));
  const lines = createInterface({ input: child.stdout })[Symbol.asyncIterator]();
  const next = async () => {
    const { value, done } = await lines.next();
    assert.ok(!done, `the application has ended: ${log}`);
    return JSON.parse(value);
  };
  const processor = await next();
  return {
    pid: child.pid,
    processor,
    next,
    run(line) {
      child.stdin.write(`${line}\n`);
      return next();
    },
    async logged(text) {
      while (!log.includes(text)) await once(child.stderr, 'data');
    },
    /** Has it end itself; returns its exit code and the signal that ended it. */
    async quit() {
      const end = once(child, 'exit');
      child.stdin.end();
      return end;
    },
  };
}

/**
 * Has the application quit, which must end with 0. Electron 11 can crash on arm64 while it quits, with any
 * application (electron/electron, issue 30354). So an end by a signal is taken there, but only if the same
 * application without the client ends by the same one.
 */
async function quit(t, application) {
  const end = await application.quit();
  if (isDeepStrictEqual(end, [0, null])) return;
  const [, signal] = end;
  for (let runs = 1; application.processor === 'arm64' && signal && runs <= 5; ++runs) {
    const without = await (await startApplication(t, { PELLMAR_CLIENT: '' })).quit();
    if (isDeepStrictEqual(without, end)) {
      t.diagnostic(`${signal} ended the application, and without the client, too, in run ${runs}`);
      return;
    }
  }
  assert.deepEqual(end, [0, null]);
}

const startAgent = (t, ...options) =>
  Agent.startProgram(t, {}, file('../../scripts/agent'), options);

/** Why no key can be pressed, or undefined. */
function keyObstacle() {
  const { status, stdout, stderr, error } = spawnSync('osascript',
    ['-e', 'tell application "System Events" to get UI elements enabled'],
    { encoding: 'utf8', timeout: 30_000 }); // without an answer to the system's question it never ends
  if (status === 0 && stdout.trim() === 'true') return undefined;
  return `System Events presses no keys for this program: ${error?.message ?? (stderr || stdout).trim()}`;
}

/** Presses Return in the application until `answer` is there: its window may not have been up yet. */
async function pressReturn(pid, answer) {
  let isAnswered = false;
  answer.then(() => (isAnswered = true), () => {});
  for (let presses = 0; presses < 10 && !isAnswered; ++presses) {
    const { status, stderr, error } = spawnSync('osascript', [file('press-return.applescript'), String(pid)],
      { encoding: 'utf8', timeout: 30_000 });
    assert.equal(status, 0, error?.message ?? stderr);
    await Promise.race([answer, delay(3000)]);
  }
  assert.ok(isAnswered, 'Return in the application did not answer the question');
}

test('the module loads and has its seven functions', () => {
  assert.deepEqual(printedBy('print(Object.keys(pellmar))'), [names]);
});

test('wrong arguments are refused with their messages', () => {
  assert.deepEqual(
    printedBy(`print(thrown(() => pellmar.PLReportUsageEvent()));
      print(thrown(() => pellmar.PLReportUsageEvent('event', {})));
      print(thrown(() => pellmar.PLEnableDebugLogging()));
      print(thrown(() => pellmar.PLEnableDebugLogging(1)));`),
    [
      ['TypeError', 'Wrong number of arguments. Should be at least 1 string arg.'],
      ['TypeError', 'Second argument is not supportted rignt now'],
      ['TypeError', 'Wrong number of arguments. Should be 1.'],
      ['TypeError', 'Wrong argument type. Should be Boolean.'],
    ],
  );
});

test('without an agent there is no answer, and nobody waits for one', () => {
  const [answer, isAsking, answers, milliseconds, canShow] = printedBy(`
    const start = Date.now();
    const answers = [];
    print(pellmar.PLGetLastUserEmailSharingResponse());
    print(pellmar.PLAskUserToShareEmail((answer) => answers.push(answer)));
    print(answers);
    print(Date.now() - start);
    print(pellmar.PLCanShowReleaseNotesWindow());`);
  assert.deepEqual([answer, isAsking, answers, canShow], [0, false, [0], true]);
  assert.ok(milliseconds < 1500, `${milliseconds} ms`);
});

test('debug logging goes on and off, and is on when the process ends', () => {
  const { status, stderr, values } = script(`pellmar.PLEnableDebugLogging(true);
    pellmar.PLEnableDebugLogging(false); pellmar.PLEnableDebugLogging(true); print('end')`);
  assert.deepEqual([status, values], [0, ['end']], stderr);
  assert.equal(stderr.match(/Pellmar client 1\.6\.2: debug logging is on/g)?.length, 1, stderr);
});

test('a runtime of another module version is told what it would take', (t) => {
  if (process.versions.modules === String(printedBy('print(process.versions.modules)')[0])) {
    t.skip('this runtime is of the same version');
    return;
  }
  const { status, stderr } = script('', process.execPath);
  assert.notEqual(status, 0);
  assert.match(stderr, new RegExp(`Pellmar: .*${process.versions.modules}`));
});

test('an application reports, is told what is known, and logs', { timeout: 120_000 }, async (t) => {
  const agent = await startAgent(t);
  const application = await startApplication(t);

  assert.equal(await application.run(`print(pellmar.PLReportUsageEvent('exported') === undefined)`), true);
  // 2 if an earlier run of the same application postponed the question.
  assert.ok([0, 2].includes(await application.run('print(pellmar.PLGetLastUserEmailSharingResponse())')));
  const [report] = await agent.waitFor('reportUsageEvent:eventInfo:');
  assert.equal(report.arguments[0], 'exported');
  await agent.waitFor('fetchAskingPermissionStatus:');

  assert.equal(await application.run('pellmar.PLEnableDebugLogging(true); print(true)'), true);
  const { status } = spawnSync(agentPath, ['log', '--pid', String(application.pid), 'a message for the log']);
  assert.equal(status, 0);
  await application.logged('a message for the log');
  await quit(t, application);
});

test('the customer answers the question in the window with Return', { timeout: 180_000 }, async (t) => {
  const obstacle = keyObstacle();
  if (obstacle) {
    assert.ok(!process.env.CI, obstacle);
    t.skip(obstacle);
    return;
  }
  const agent = await startAgent(t, '--should-ask', 'yes', '--email', 'jane@example.com');
  const application = await startApplication(t);
  assert.equal(
    await application.run('print(pellmar.PLAskUserToShareEmail((answer) => print({ answer })))'), true);
  const answer = application.next();
  await pressReturn(application.pid, answer);
  assert.deepEqual(await answer, { answer: 1 });
  const [update] = await agent.waitFor('updateAllowedCustomerEmail:callback:');
  assert.deepEqual(update.arguments, ['jane@example.com']);
  await quit(t, application);
});
