// The client as an application gets it, in the runtime that it is for. scripts/test-electron runs this:
//
//   PELLMAR_ELECTRON  the runtime's executable
//   PELLMAR_CLIENT    the folder to require
//   PELLMAR_AGENT     pellmar-dev-agent, or empty

import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { createInterface } from 'node:readline';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { startAgent } from './launchd_agent.mjs';

const { PELLMAR_ELECTRON: electron, PELLMAR_CLIENT: client, PELLMAR_AGENT: agent } = process.env;
const application = fileURLToPath(new URL('app', import.meta.url));
const needsAgent = agent ? false : 'no development agent is given (--agent)';

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
async function startApplication(t) {
  const { ELECTRON_RUN_AS_NODE, ...env } = process.env;
  const child = spawn(electron, [application], {
    env: { ...env, PELLMAR_CLIENT: client },
    stdio: ['pipe', 'pipe', 'pipe'],
  });
  t.after(() => child.kill('SIGKILL'));
  const lines = createInterface({ input: child.stdout })[Symbol.asyncIterator]();
  const next = async () => {
    const { value, done } = await lines.next();
    assert.ok(!done, 'the application has ended');
    return JSON.parse(value);
  };
  assert.equal(await next(), 'ready');
  return {
    child,
    next,
    run(line) {
      child.stdin.write(`${line}\n`);
      return next();
    },
    async quit() {
      const end = once(child, 'exit');
      child.stdin.end();
      assert.deepEqual(await end, [0, null]);
    },
  };
}

function makeFolder(t) {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'pellmar-'));
  t.after(() => fs.rmSync(folder, { recursive: true }));
  return folder;
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

test('an application asks, reports and logs', { skip: needsAgent, timeout: 60_000 }, async (t) => {
  const folder = makeFolder(t);
  const { requests } = startAgent(t, agent, folder, '--should-ask', 'yes', '--email', 'jane@example.com');
  const app = await startApplication(t);

  let log = '';
  const logged = new Promise((resolve) => {
    app.child.stderr.on('data', (data) => {
      log += data;
      if (log.includes('a message for the log')) resolve();
    });
  });

  assert.equal(await app.run(`print(pellmar.PLReportUsageEvent('exported') === undefined)`), true);
  // 2 if an earlier run of the same application postponed the question.
  assert.ok([0, 2].includes(await app.run('print(pellmar.PLGetLastUserEmailSharingResponse())')));
  assert.equal(await app.run('print(pellmar.PLAskUserToShareEmail(() => {}))'), true);

  assert.equal(await app.run('pellmar.PLEnableDebugLogging(true); print(true)'), true);
  const { status } = spawnSync(agent, ['log', '--pid', String(app.child.pid), 'a message for the log']);
  assert.equal(status, 0);
  await logged;
  await app.quit();

  const methods = requests().map(({ method }) => method);
  for (const method of ['reportUsageEvent:eventInfo:', 'fetchAskingPermissionStatus:']) {
    assert.ok(methods.includes(method), methods.join(', '));
  }
});
