// The application's own test: with the client's stand-in, on any system.
'use strict';

const assert = require('assert/strict');
const { beforeEach, test } = require('node:test');

const pellmar = require('pellmar/fake');

const { handlers } = require('../sharing.js');

const application = handlers(pellmar.promises);

beforeEach(() => pellmar.reset());

test('a customer who answers is told so, and it is known from then on', async () => {
  pellmar.setAgent('asks');
  const answer = application['sharing:ask']();
  pellmar.answer(1);
  assert.equal(await answer, 'given');
  assert.equal(await application['sharing:answer'](), 'given');
});

test('a customer who postpones is told so', async () => {
  pellmar.setAgent('asks');
  const answer = application['sharing:ask']();
  pellmar.answer(2);
  assert.equal(await answer, 'postponed');
});

test('without an agent nobody is asked', async () => {
  assert.equal(await application['sharing:ask'](), 'unknown');
  assert.equal(pellmar.isAsking(), false);
});

test('events are those of the list', () => {
  application['usage:report']({}, 'export');
  application['usage:report']({}, 'constructor');
  assert.deepEqual(pellmar.calls, [['PLReportUsageEvent', 'Document exported']]);
});

test('other systems have no client', async () => {
  const other = handlers(undefined);
  assert.equal(await other['sharing:ask'](), 'unknown');
  assert.equal(await other['sharing:answer'](), 'unknown');
  other['usage:report']({}, 'export');
  assert.deepEqual(pellmar.calls, []);
});
