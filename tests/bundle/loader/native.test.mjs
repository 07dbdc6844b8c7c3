// Native code calls what the bundle exports.

import assert from 'node:assert/strict';
import path from 'node:path';
import { test } from 'node:test';

import { Agent, buildFolder, makeSession } from '../../support/agent.mjs';
import { constants, functions, versionMarker } from '../expected.mjs';
import { modulePath, run, slice } from './fixtures.mjs';

/** What a script prints as JSON that finds the native caller as `native`. */
function printed(session, script) {
  const { status, signal, stdout, stderr } = run(slice, `
    require(${JSON.stringify(modulePath)});
    const native = require(${JSON.stringify(path.join(buildFolder, 'native.node'))});
    native.use(${JSON.stringify(modulePath)});
    const print = (value) => console.log(JSON.stringify(value));
    ${script}`, session.env);
  assert.equal(signal, null, stderr);
  assert.equal(status, 0, stderr);
  return stdout.split('\n').filter(Boolean).map((line) => JSON.parse(line));
}

test('functions and constants are found by their names', (t) => {
  const names = [...functions, ...Object.keys(constants), versionMarker.name];
  const [found] = printed(makeSession(t), `print(${JSON.stringify(names)}.map(native.exports));`);
  assert.deepEqual(found, names.map(() => true));
});

test('constants have their texts', (t) => {
  const wanted = { ...constants, [versionMarker.name]: versionMarker.value };
  const [texts] = printed(makeSession(t),
    `print(${JSON.stringify(Object.keys(wanted))}.map(native.constant));`);
  assert.deepEqual(texts, Object.values(wanted));
});

test('an event reaches the agent with its information', async (t) => {
  const session = makeSession(t);
  const agent = await Agent.start(t, session);
  printed(session, 'native.report(true);');
  const [event] = await agent.waitFor('reportUsageEvent:eventInfo:');
  assert.deepEqual(event.arguments, ['native', { text: 'Grüße', number: 42, list: [1, 'two'] }]);
});

test('an event that cannot be sent is dropped, and the next one is sent', async (t) => {
  const session = makeSession(t);
  const agent = await Agent.start(t, session);
  printed(session, 'native.report(false); native.report(true);');
  const events = await agent.waitFor('reportUsageEvent:eventInfo:');
  assert.deepEqual(events.map(({ arguments: [, info] }) => info.number), [42]);
});

test('an authorization code comes', async (t) => {
  const session = makeSession(t);
  const agent = await Agent.start(t, session);
  const [outcome] = printed(session, 'print(native.requestCode(true));');
  assert.match(outcome, /^code ./);
  const [request] = await agent.waitFor('provideAuthCodeWithClientID:scope:callback:');
  assert.deepEqual(request.arguments, ['native', ['application.access']]);
});

test('a request for a code that cannot be sent fails, and the next one succeeds', async (t) => {
  const session = makeSession(t);
  await Agent.start(t, session);
  const [refused, outcome] =
    printed(session, 'print(native.requestCode(false)); print(native.requestCode(true));');
  assert.equal(refused, 'error NSCocoaErrorDomain 4099');
  assert.match(outcome, /^code ./);
});
