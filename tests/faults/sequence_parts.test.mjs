// What makes, judges and shortens sequences, without any process: each rule refuses a trace that breaks it.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { judge } from './judge.mjs';
import { found, generate, parse } from './sequence_steps.mjs';
import { shorten } from './shorten.mjs';

test('a seed gives the same sequence again, and another one another', () => {
  assert.deepEqual(generate(7, 30), generate(7, 30));
  assert.notDeepEqual(generate(7, 30), generate(8, 30));
});

test('every sequence can be read back, and ends quiet', () => {
  const steps = new Set();
  for (let seed = 1; seed <= 300; ++seed) {
    const words = generate(seed, 40);
    assert.equal(words.length, 40);
    assert.equal(words.at(-1), 'quiet');
    assert.deepEqual(parse(words.join(' ')).map(({ word }) => word), words);
    parse(words.join(' ')).forEach(({ step }) => steps.add(step));
  }
  // What cannot come in 300 sequences will never come.
  for (const step of ['replace', 'flap', 'stop', 'continue', 'ask-throw', 'native-ask', 'decline', 'look', 'settle']) {
    assert.ok(steps.has(step), step);
  }
});

test('the sequences that are kept can be read', () => {
  for (const line of found) assert.equal(parse(line).at(-1).step, 'quiet');
});

test('what is no step is refused', () => {
  for (const line of ['serve', 'serve:nobody', 'kill:now', 'native-code', 'native-code:9', 'wait:', 'toString', 'a b']) {
    assert.throws(() => parse(line), /not a step/, line);
  }
});

test('a failing list is shortened to what fails', async () => {
  let tried = 0;
  const list = Array.from({ length: 40 }, (_, i) => i);
  const short = await shorten(list, async (candidate) => {
    ++tried;
    return candidate.includes(3) && candidate.includes(29) && candidate.indexOf(3) < candidate.indexOf(29);
  });
  assert.deepEqual(short, [3, 29]);
  assert.ok(tried < 80, `${tried} tries`);
  assert.deepEqual(await shorten(list, async () => true), []);
  assert.deepEqual(await shorten(list, async () => false), list);
  assert.deepEqual(await shorten(list, async () => true, () => true), list);
});

test('an element that only another one keeps goes with it', async () => {
  // 2 is needed as long as 5 is there.
  const fails = async (list) => list.includes(1) && (!list.includes(5) || list.includes(2));
  assert.deepEqual(await shorten([1, 2, 3, 4, 5, 6], fails), [1]);
});

// A trace is written with its times: `at(5, …)`.
const at = (time, entry) => ({ at: time, ...entry });
const call = (name, kind, from, to, value, ...callbacks) => [
  at(from, { event: 'called', call: name, kind, from: 'script' }),
  ...callbacks.map(([time, answer]) => at(time, { event: 'callback', call: name, value: answer })),
  ...(to === undefined ? [] : [at(to, { event: 'returned', call: name, value })]),
];
const serve = (time, name, id = 0, email = `customer-${id}@example.com`) =>
  at(time, { event: 'agent', does: 'serve', begun: time - 1, name, id, email });
const change = (time, does) => at(time, { event: 'agent', does, begun: time - 1 });
const answered = (time, answer) => at(time, { event: 'answered', answer });
const told = (time, email, id = 0) => at(time, { event: 'told', id, email });
const quiet = (time, left = {}) => at(time, { event: 'quiet', left });
const rulesOf = (...parts) => judge(parts.flat(2)).map(({ rule }) => rule);

/** A life in which nothing is wrong. */
const good = [
  serve(10, 'asks'), call('1', 'ask', 20, 30, true, [60, 1]), answered(70, 'Return'),
  call('2', 'code', 80, 81, null, [90, 'code']), told(75, 'customer-0@example.com'), change(100, 'kill'),
  call('3', 'ask', 110, 112, false, [111, 0]), call('4', 'status', 120, 121, 0), quiet(200, { descriptors: 0, threads: -2 }),
];

test('nothing is found where nothing is wrong', () => assert.deepEqual(rulesOf(good), []));

for (const [what, rule, ...trace] of [
  ['a callback that comes twice', 'callback twice', call('1', 'code', 0, 1, null, [5, 'code'], [6, 'code'])],
  ['a completion that never comes', 'callback missing', call('1', 'code', 0, 1, null), quiet(50)],
  ['false without a callback', 'callback missing', call('1', 'ask', 0, 5, false), quiet(50)],
  ['false before its callback', 'callback missing', call('1', 'ask', 0, 5, false, [6, 0])],
  ['false with the answer of a window', 'callback wrong', call('1', 'ask', 0, 5, false, [4, 2])],
  ['a code and an error', 'callback wrong', call('1', 'code', 0, 1, null, [4, 'both'])],
  ['an error that is none of those promised', 'callback wrong', call('1', 'code', 0, 1, null, [4, 'error 4'])],
  ['a call that does not return', 'hangs', call('1', 'status', 0), quiet(50)],
  ['an answer that reaches nobody', 'answers', call('1', 'ask', 0, 5, true), answered(20, 'Return')],
  ['a callback without an answer', 'answers', call('1', 'ask', 0, 5, true, [9, 1])],
  ['another answer than the customer gave', 'answers', call('1', 'ask', 0, 5, true, [9, 1]), answered(10, 'Escape')],
  ['a window that is not shown', 'no window', call('1', 'ask', 0, 5, true), quiet(50)],
  ['telling what was not answered', 'told', serve(1, 'asks'), told(9, 'customer-0@example.com')],
  ['telling a postponement', 'told', serve(1, 'asks'), call('1', 'ask', 2, 5, true, [9, 2]), answered(10, 'Escape'),
    told(11, null)],
  ['telling twice', 'told', serve(1, 'asks'), call('1', 'ask', 2, 5, true, [9, 1]), answered(10, 'decline'),
    told(11, null), told(12, null, 1)],
  ['a refusal of one who agreed', 'told', serve(1, 'asks'), call('1', 'ask', 2, 5, true, [9, 1]),
    answered(10, 'Return'), told(11, null)],
  ['an agreement of one who refused', 'told', serve(1, 'asks'), call('1', 'ask', 2, 5, true, [9, 1]),
    answered(10, 'decline'), told(11, 'customer-0@example.com')],
  ['an address that nobody gave', 'told', serve(1, 'asks'), call('1', 'ask', 2, 5, true, [9, 1]),
    answered(10, 'Return'), told(11, 'other@example.com')],
  ['an answer that is not told', 'not told', serve(1, 'asks'), call('1', 'ask', 2, 5, true, [9, 1]),
    answered(10, 'Return'), call('2', 'code', 20, 21, null, [25, 'code']), change(50, 'kill')],
  ['a question that is not answered any more', 'not answered', serve(1, 'calm'), call('1', 'status', 2, 5, 1),
    call('2', 'ask', 6, 9, false, [8, 0])],
  ['a code that is refused', 'not answered', serve(1, 'calm'), call('1', 'status', 2, 5, 1),
    call('2', 'code', 6, 9, null, [8, 'error 4099'])],
  ['an answer of nobody', 'answered by nobody', serve(1, 'calm'), change(5, 'kill'), call('1', 'status', 6, 9, 1)],
  ['a call beyond its time', 'too long', call('1', 'status', 0, 3900, 0)],
  ['a call that waits for the agent and should not', 'too long', call('1', 'event', 0, 2000, null)],
  ['an agent that hangs and costs twice', 'hung twice', serve(1, 'calm'), change(5, 'stop'),
    call('1', 'status', 10, 2011, 0), call('2', 'status', 2020, 4025, 0)],
  ['a descriptor that is left', 'left: descriptors', quiet(9, { descriptors: 1, threads: 0 })],
  ['a window controller that is left', 'left: controllers', quiet(9, { controllers: 1 })],
]) {
  test(`${what} is found`, () => assert.deepEqual(rulesOf(...trace), [rule]));
}

for (const [what, ...trace] of [
  ['what the agent does meanwhile is not the call\'s fault', serve(1, 'calm'), change(5, 'stop'),
    call('1', 'status', 10, 2011, 0), change(2015, 'continue'), change(2018, 'stop'), call('2', 'status', 2020, 4025, 0)],
  ['calls side by side wait side by side', serve(1, 'calm'), change(5, 'stop'), call('1', 'status', 10, 2011, 0),
    call('2', 'status', 500, 2505, 0)],
  ['a call inside a callback has its own time', serve(1, 'drops-status'), call('1', 'ask', 10, 4012, false, [2010, 0]),
    call('1.again', 'ask', 2010, 4011, false, [4011, 0])],
  ['a window that is up takes a second question', call('1', 'ask', 0, 5, true, [9, 1]), call('2', 'ask', 6, 7, true),
    answered(10, 'Return'), quiet(50)],
  ['an answer to an agent that is killed need not be told', serve(1, 'asks'), call('1', 'ask', 2, 5, true, [9, 1]),
    answered(10, 'Return'), change(12, 'kill')],
  ['an agent without an address is told none', serve(1, 'wrong-class', 0, null), call('1', 'ask', 2, 5, true, [9, 1]),
    answered(10, 'Return'), told(11, null)],
]) {
  test(what, () => assert.deepEqual(rulesOf(...trace), []));
}
