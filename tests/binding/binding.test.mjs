// The script functions in plain node: no display, no window, a real agent or none.

import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import path from 'node:path';
import { test } from 'node:test';

import { Agent, buildFolder, makeSession, nodePath, weakReferences } from '../support/agent.mjs';
import { sanitizerEnvironment } from '../support/sanitizer.mjs';

const modulePath = path.join(buildFolder, 'pellmar.node');
/** How long a call waits for an agent that hangs, less what clocks may be apart, in milliseconds. */
const oneWait = 1900;

class LateError extends Error {}

function checkAtOnce(milliseconds) {
  if (milliseconds >= oneWait) throw new LateError(`${milliseconds} ms`);
}

/** A machine may be busy, so that only a second wait is told from one. */
function checkOneWait(milliseconds) {
  assert.ok(milliseconds >= oneWait, `${milliseconds} ms`);
  if (milliseconds >= 2 * oneWait) throw new LateError(`${milliseconds} ms`);
}

/** A machine that stands still for a moment is late once, a call that waits too long each time. */
function timedTest(name, body) {
  test(name, async (t) => {
    for (let triesLeft = 2; ; --triesLeft) {
      try {
        return await body(t);
      } catch (error) {
        if (!(error instanceof LateError) || triesLeft === 0) throw error;
        t.diagnostic(`late, tried again: ${error.message}`);
      }
    }
  });
}

function environment(session) {
  const env = { ...process.env, ...sanitizerEnvironment(), ...session.env };
  delete env.DISPLAY;
  return env;
}

/** Runs a script in a node of its own; `pellmar` is the module. Returns what it printed as JSON. */
async function script(session, text, { expectStatus = 0 } = {}) {
  const child = spawn(
    nodePath,
    ['--expose-gc', '-e', `const pellmar = require(${JSON.stringify(modulePath)});
      const { performance } = require('perf_hooks');
      const print = (value) => require('fs').writeSync(1, JSON.stringify(value) + '\\n');
      ${text}`],
    { env: environment(session), stdio: ['ignore', 'pipe', 'pipe'] }
  );
  let stdout = '';
  let stderr = '';
  child.stdout.on('data', (data) => (stdout += data));
  child.stderr.on('data', (data) => (stderr += data));
  const [status, signal] = await once(child, 'close');
  assert.equal(signal, null, `ended by ${signal}: ${stderr}`);
  assert.equal(status, expectStatus, stderr);
  return { values: stdout.split('\n').filter(Boolean).map((line) => JSON.parse(line)), stderr };
}

/** What a call threw, printed by the script as [constructor name, message]. */
const thrown = (call) => `try { ${call}; print(null); } catch (error) {
  print([error.constructor.name, error.message]); }`;

const names = [
  'PLShowReleaseNotesWindowIfNeeded', 'PLShowReleaseNotesWindow', 'PLCanShowReleaseNotesWindow',
  'PLReportUsageEvent', 'PLGetLastUserEmailSharingResponse', 'PLAskUserToShareEmail',
  'PLEnableDebugLogging',
];

test('the exports are the seven functions in their order and nothing else', async (t) => {
  const { values } = await script(makeSession(t), `
    print(Reflect.ownKeys(pellmar));
    print(Object.values(pellmar).every((value) => typeof value === 'function'));`);
  assert.deepEqual(values, [names, true]);
});

test('requiring the module starts no thread or process and leaves no file open', async (t) => {
  const { values } = await script(makeSession(t), `
    const { readdirSync } = require('fs');
    print([readdirSync('/proc/self/task').length, readdirSync('/proc/self/fd').length]);`);
  const { stdout } = spawnSync(nodePath, ['-e', `
    const { readdirSync } = require('fs');
    console.log(JSON.stringify(
      [readdirSync('/proc/self/task').length, readdirSync('/proc/self/fd').length]));`],
    { encoding: 'utf8', stdio: ['ignore', 'pipe', 'pipe'] });
  assert.deepEqual(values[0], JSON.parse(stdout));
});

test('PLCanShowReleaseNotesWindow is true', async (t) => {
  const { values } = await script(makeSession(t), 'print(pellmar.PLCanShowReleaseNotesWindow(1, 2))');
  assert.deepEqual(values, [true]);
});

test('PLReportUsageEvent without an argument throws and reports nothing', async (t) => {
  const session = makeSession(t);
  const agent = await Agent.start(t, session);
  const { values } = await script(session, `${thrown('pellmar.PLReportUsageEvent()')}
    pellmar.PLReportUsageEvent('last');`);
  assert.deepEqual(values, [
    ['TypeError', 'Wrong number of arguments. Should be at least 1 string arg.']]);
  const events = await agent.waitFor('reportUsageEvent:eventInfo:');
  assert.deepEqual(events.map((event) => event.arguments), [['last', null]]);
});

test('PLReportUsageEvent with a second argument throws and still reports the event', async (t) => {
  const session = makeSession(t);
  const agent = await Agent.start(t, session);
  const { values } = await script(session, thrown(`pellmar.PLReportUsageEvent('kept', {})`));
  assert.deepEqual(values, [['TypeError', 'Second argument is not supportted rignt now']]);
  const [event] = await agent.waitFor('reportUsageEvent:eventInfo:');
  assert.deepEqual(event.arguments, ['kept', null]);
});

test('PLReportUsageEvent converts every value as the engine does', async (t) => {
  const session = makeSession(t);
  const agent = await Agent.start(t, session);
  await script(session, `
    for (const value of [42, true, null, undefined, [1, 'a'], { toString: () => 'object' }, 1n, '',
      'Grüße, 世界 🎉', 'before\\0after'])
      pellmar.PLReportUsageEvent(value);`);
  const events = await agent.waitFor('reportUsageEvent:eventInfo:', 10);
  assert.deepEqual(events.map((event) => event.arguments[0]), [
    '42', 'true', 'null', 'undefined', '1,a', 'object', '1', '', 'Grüße, 世界 🎉', 'before']);
});

test('an unpaired surrogate is reported, too', async (t) => {
  const session = makeSession(t);
  const agent = await Agent.start(t, session);
  await script(session, `pellmar.PLReportUsageEvent('\\ud800'); pellmar.PLReportUsageEvent('next');`);
  const events = await agent.waitFor('reportUsageEvent:eventInfo:', 2);
  // Newer engines put U+FFFD in its place; older ones give bytes that are no UTF-8.
  assert.ok(['', '\ufffd'].includes(events[0].arguments[0]));
  assert.equal(events[1].arguments[0], 'next');
});

test('a value that cannot be converted is reported as the empty string and throws nothing', async (t) => {
  const session = makeSession(t);
  const agent = await Agent.start(t, session);
  const { values } = await script(session, `
    const { proxy, revoke } = Proxy.revocable({}, {});
    revoke();
    const values = [Symbol('s'), { toString() { throw new RangeError('mine'); } },
      { toString: () => ({}), valueOf: () => ({}) }, Object.create(null), proxy];
    for (const value of values) ${thrown(`print(String(pellmar.PLReportUsageEvent(value)))`)}
    for (const value of values) ${thrown('pellmar.PLReportUsageEvent(value, 2)')}
    pellmar.PLReportUsageEvent('last');`);
  assert.deepEqual(values.slice(0, 10), Array(5).fill(['undefined', null]).flat());
  assert.deepEqual(values.slice(10),
    Array(5).fill(['TypeError', 'Second argument is not supportted rignt now']));
  const events = await agent.waitFor('reportUsageEvent:eventInfo:', 11);
  assert.deepEqual(events.map((event) => event.arguments), [
    ...Array(10).fill(['', null]), ['last', null]]);
});

test('the conversion of an event happens once', async (t) => {
  const session = makeSession(t);
  const agent = await Agent.start(t, session);
  const { values } = await script(session, `
    let calls = 0;
    pellmar.PLReportUsageEvent({ toString: () => 'counted ' + ++calls });
    print(calls);`);
  assert.deepEqual(values, [1]);
  const [event] = await agent.waitFor('reportUsageEvent:eventInfo:');
  assert.deepEqual(event.arguments, ['counted 1', null]);
});

test('PLEnableDebugLogging takes a boolean and nothing else', async (t) => {
  const { values } = await script(makeSession(t), `
    ${thrown('pellmar.PLEnableDebugLogging()')}
    for (const value of [1, 0, 'true', null, undefined, {}, new Boolean(true)])
      ${thrown('pellmar.PLEnableDebugLogging(value)')}
    ${thrown(`print(String(pellmar.PLEnableDebugLogging(false, 'surplus')))`)}`);
  assert.deepEqual(values[0], ['TypeError', 'Wrong number of arguments. Should be 1.']);
  for (const value of values.slice(1, 8)) {
    assert.deepEqual(value, ['TypeError', 'Wrong argument type. Should be Boolean.']);
  }
  assert.deepEqual(values.slice(8), ['undefined', null]);
});

test('the functions without a result return undefined', async (t) => {
  const { values } = await script(makeSession(t), `
    print(['PLShowReleaseNotesWindowIfNeeded', 'PLShowReleaseNotesWindow'].map((name) =>
      String(pellmar[name](1, 2, 3))));
    print(String(pellmar.PLReportUsageEvent('event')));`);
  assert.deepEqual(values, [['undefined', 'undefined'], 'undefined']);
});

timedTest('without an agent the e-mail functions answer 0 without waiting for one', async (t) => {
  const { values } = await script(makeSession(t), `
    const timed = (call) => { const start = performance.now(); const value = call();
      return [value, performance.now() - start]; };
    pellmar.PLGetLastUserEmailSharingResponse();
    const answers = [];
    print(timed(() => pellmar.PLGetLastUserEmailSharingResponse()));
    print(timed(() => pellmar.PLAskUserToShareEmail((...args) => answers.push(args))));
    print(answers);`);
  assert.equal(values[0][0], 0);
  assert.equal(values[1][0], false);
  assert.deepEqual(values[2], [[0]]);
  checkAtOnce(values[0][1]);
  checkAtOnce(values[1][1]);
});

test('an answer on record is 1, and the callback has run before the call returns', async (t) => {
  const session = makeSession(t);
  await Agent.start(t, session, '--should-ask', 'no');
  const { values } = await script(session, `
    print(pellmar.PLGetLastUserEmailSharingResponse());
    const answers = [];
    const result = pellmar.PLAskUserToShareEmail(function (...args) {
      answers.push([...args, this === globalThis]);
    });
    print([result, answers]);`);
  assert.deepEqual(values, [1, [false, [[1, true]]]]);
});

test('PLAskUserToShareEmail survives arguments that are no functions', async (t) => {
  const session = makeSession(t);
  await Agent.start(t, session, '--should-ask', 'no');
  const { values } = await script(session, `
    const results = [pellmar.PLAskUserToShareEmail()];
    for (const value of [undefined, null, 0, 7, -0, NaN, 1n, '', 'text', true, Symbol('s'), {}, [],
      new Proxy({}, {}), /x/, class A {}, Object.create(null), new Proxy(function () {}, {})])
      try { results.push(pellmar.PLAskUserToShareEmail(value)); } catch (error) {
        results.push(error.message); }
    const revoked = Proxy.revocable(function () {}, {});
    revoked.revoke();
    try { results.push(pellmar.PLAskUserToShareEmail(revoked.proxy)); } catch (error) {
      results.push(error.constructor.name); }
    global.gc();
    print(results);`);
  const [results] = values;
  assert.equal(results.length, 20);
  // A class refuses to be called: that is the script's own exception.
  assert.deepEqual(results.filter((result) => result !== false).map(String), [
    "Class constructor A cannot be invoked without 'new'", 'TypeError']);
});

test('an exception of the callback comes out of the call that ran it', async (t) => {
  const session = makeSession(t);
  await Agent.start(t, session, '--should-ask', 'no');
  const { values } = await script(session,
    thrown(`pellmar.PLAskUserToShareEmail(() => { throw new RangeError('mine'); })`));
  assert.deepEqual(values, [['RangeError', 'mine']]);
});

test('the callback runs in the async resource "nan:Callback:Call"', async (t) => {
  const session = makeSession(t);
  await Agent.start(t, session, '--should-ask', 'no');
  const { values } = await script(session, `
    const hooks = require('async_hooks');
    const types = [];
    const destroyed = [];
    const ids = new Set();
    hooks.createHook({
      init(id, type) { if (type === 'nan:Callback:Call') { types.push(type); ids.add(id); } },
      destroy(id) { if (ids.has(id)) destroyed.push(id); },
    }).enable();
    pellmar.PLAskUserToShareEmail(() => {});
    // What is destroyed is told among the immediates, even if the timer is due before.
    setTimeout(() => setImmediate(() => print([types, destroyed.length])), 20);`);
  assert.deepEqual(values, [[['nan:Callback:Call'], 1]]);
});

test('the callback is called once and can be collected afterwards', async (t) => {
  const session = makeSession(t);
  await Agent.start(t, session, '--should-ask', 'no');
  const { values } = await script(session, `
    ${weakReferences}
    let calls = 0;
    let callback = () => { ++calls; };
    const reference = new WeakRef(callback);
    pellmar.PLAskUserToShareEmail(callback);
    callback = null;
    setTimeout(() => { global.gc(); print([calls, reference.deref() === undefined]); }, 20);`);
  assert.deepEqual(values, [[1, true]]);
});

test('no call needs an autorelease pool of its caller', async (t) => {
  const session = makeSession(t);
  await Agent.start(t, session, '--should-ask', 'no');
  // The toolkit says it on standard error when an object without a pool is lost for good.
  const { stderr } = await script(session, `
    for (const name of Object.keys(pellmar)) if (name !== 'PLEnableDebugLogging')
      pellmar[name](() => {});
    pellmar.PLEnableDebugLogging(false);`);
  assert.equal(stderr, '');
});

timedTest('with an agent that hangs the e-mail functions answer 0 after two seconds', async (t) => {
  const session = makeSession(t);
  await Agent.start(t, session, '--hang', 'fetchAskingPermissionStatus:');
  const { values } = await script(session, `
    const start = performance.now();
    const answer = pellmar.PLGetLastUserEmailSharingResponse();
    print([answer, performance.now() - start]);`);
  assert.equal(values[0][0], 0);
  checkOneWait(values[0][1]);
});

timedTest('with an agent that is stopped they answer 0 after two seconds, and 1 once it goes on', async (t) => {
  const session = makeSession(t);
  const agent = await Agent.start(t, session, '--should-ask', 'no');
  await agent.suspend();
  const { values } = await script(session, `
    const start = performance.now();
    const answer = pellmar.PLGetLastUserEmailSharingResponse();
    print([answer, performance.now() - start]);
    // Nobody waits for it again meanwhile.
    print([pellmar.PLGetLastUserEmailSharingResponse(), performance.now() - start]);
    process.kill(${agent.process.pid}, 'SIGCONT');
    const ask = () => {
      if (pellmar.PLGetLastUserEmailSharingResponse() === 1) print('there again');
      else setTimeout(ask, 10);
    };
    ask();`);
  assert.equal(values[0][0], 0);
  assert.equal(values[1][0], 0);
  assert.equal(values[2], 'there again');
  checkOneWait(values[0][1]);
  checkOneWait(values[1][1]);
});

for (const [name, options] of [
  ['dies before the first check', ['--die-on', 'checkConnectionWithCallback:']],
  ['dies in the middle of a request', ['--die-on', 'fetchAskingPermissionStatus:']],
  ['lets its reply go', ['--drop', 'fetchAskingPermissionStatus:']],
]) {
  timedTest(`with an agent that ${name} the answer is 0 within two seconds`, async (t) => {
    const session = makeSession(t);
    await Agent.start(t, session, ...options);
    const { values } = await script(session, `
      const start = performance.now();
      const answer = pellmar.PLGetLastUserEmailSharingResponse();
      const elapsed = performance.now() - start;
      global.gc();
      setTimeout(() => print([answer, elapsed]), 50);`);
    assert.equal(values[0][0], 0);
    if (values[0][1] >= 2 * oneWait) throw new LateError(`${values[0][1]} ms`);
  });
}

test('an agent that replies twice or with a wrong class does no harm', async (t) => {
  const session = makeSession(t);
  await Agent.start(t, session, '--should-ask', 'no', '--twice', 'fetchAskingPermissionStatus:',
    '--wrong-type', 'fetchAskingPermissionStatus:', '--wrong-type',
    'showReleaseNotesForAppWithCallback:');
  const { values } = await script(session, `
    pellmar.PLShowReleaseNotesWindowIfNeeded();
    print(pellmar.PLGetLastUserEmailSharingResponse());
    print(pellmar.PLGetLastUserEmailSharingResponse());`);
  assert.deepEqual(values, [1, 1]);
});

test('an agent that comes back is found by the next call', async (t) => {
  const session = makeSession(t);
  const agent = await Agent.start(t, session, '--should-ask', 'no');
  const child = spawn(nodePath, ['-e', `
    const pellmar = require(${JSON.stringify(modulePath)});
    process.stdin.on('data', () =>
      console.log(pellmar.PLGetLastUserEmailSharingResponse()));`],
    { env: environment(session), stdio: ['pipe', 'pipe', 'inherit'] });
  t.after(() => child.kill('SIGKILL'));
  const ask = async () => {
    child.stdin.write('?');
    const [data] = await once(child.stdout, 'data', { signal: AbortSignal.timeout(60_000) });
    return Number(data);
  };
  assert.equal(await ask(), 1);
  await agent.stop('SIGKILL');
  assert.equal(await ask(), 0);
  await Agent.start(t, session, '--should-ask', 'no');
  assert.equal(await ask(), 1);
});

test('an event reported just before a normal exit reaches the agent', async (t) => {
  for (const end of ['', 'process.exit(0)', 'process.exitCode = 0']) {
    const session = makeSession(t);
    const agent = await Agent.start(t, session);
    await script(session, `pellmar.PLReportUsageEvent('farewell'); ${end}`);
    const [event] = await agent.waitFor('reportUsageEvent:eventInfo:');
    assert.deepEqual(event.arguments, ['farewell', null]);
  }
});

test('events arrive in the order of the calls', async (t) => {
  const session = makeSession(t);
  const agent = await Agent.start(t, session);
  await script(session, `for (let i = 0; i < 2000; ++i) pellmar.PLReportUsageEvent(i);`);
  const events = await agent.waitFor('reportUsageEvent:eventInfo:', 2000);
  assert.deepEqual(events.map((event) => Number(event.arguments[0])), [...Array(2000).keys()]);
});

timedTest('reporting never waits, not for a stopped agent with a full socket either', async (t) => {
  const session = makeSession(t);
  const agent = await Agent.start(t, session);
  await agent.suspend();
  const { values } = await script(session, `
    const event = 'x'.repeat(1000);
    let longest = 0;
    for (let i = 0; i < 20000; ++i) {
      const start = performance.now();
      pellmar.PLReportUsageEvent(event);
      longest = Math.max(longest, performance.now() - start);
    }
    print(longest);
    process.exit(0);`);
  checkAtOnce(values[0]);
});

test('the release notes are asked for until one request succeeded, and always by the plain call', async (t) => {
  const session = makeSession(t);
  const failing = await Agent.start(t, session, '--error',
    'showReleaseNotesForAppWithCallback:=com.example:1:no notes yet');
  const method = 'showReleaseNotesForAppWithCallback:';
  const child = spawn(nodePath, ['-e', `
    const pellmar = require(${JSON.stringify(modulePath)});
    process.stdin.on('data', (data) => {
      for (const letter of String(data))
        if (letter === 'n') pellmar.PLShowReleaseNotesWindowIfNeeded();
        else if (letter === 's') pellmar.PLShowReleaseNotesWindow();
        else console.log(pellmar.PLGetLastUserEmailSharingResponse());
    });`], { env: environment(session), stdio: ['pipe', 'pipe', 'inherit'] });
  t.after(() => child.kill('SIGKILL'));
  // The answer to a later request tells that the earlier ones have been dealt with.
  const settle = async () => {
    child.stdin.write('?');
    await once(child.stdout, 'data', { signal: AbortSignal.timeout(60_000) });
  };

  child.stdin.write('n');
  await failing.waitFor(method, 1);
  await settle();
  child.stdin.write('n');
  await failing.waitFor(method, 2);
  await settle();
  await failing.stop('SIGKILL');

  child.stdin.write('n');
  await settle();
  const working = await Agent.start(t, session);
  child.stdin.write('n');
  await working.waitFor(method, 1);
  await settle();
  child.stdin.write('nn');
  await settle();
  assert.equal(working.requestsOf(method).length, 1);
  child.stdin.write('ss');
  await working.waitFor(method, 3);
});

test('the first thread that requires the module has it, and no other', async (t) => {
  const inWorker = `new (require('worker_threads').Worker)(${JSON.stringify(`
    const pellmar = require(${JSON.stringify(modulePath)});
    require('worker_threads').parentPort.postMessage(
      [Object.keys(pellmar).length, pellmar.PLCanShowReleaseNotesWindow()]);`)}, { eval: true })`;
  const { values } = await script(makeSession(t), `
    ${inWorker}.on('error', (error) => print(error.message));`);
  assert.match(values[0], /^Module did not self-register/);

  const { stdout } = spawnSync(nodePath, ['-e', `
    const print = (value) => console.log(JSON.stringify(value));
    ${inWorker}.on('message', print).on('exit', () => {
      try { require(${JSON.stringify(modulePath)}); } catch (error) { print(error.message); }
    });`], { encoding: 'utf8', env: environment(makeSession(t)) });
  const [worker, main] = stdout.trim().split('\n').map((line) => JSON.parse(line));
  assert.deepEqual(worker, [7, true]);
  assert.match(main, /^Module did not self-register/);
});
