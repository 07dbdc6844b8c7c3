// Values and ways of calling for the script fuzzer, drawn from a seeded generator.
'use strict';

const vm = require('node:vm');

/** What scripts of the fuzzer throw: whatever else comes out of a call is somebody else's. */
class Marker extends Error {}

/** The generator "mulberry32". */
function randomNumbers(seed) {
  let state = seed >>> 0;
  const next = () => {
    state = (state + 0x6d2b79f5) >>> 0;
    let mixed = Math.imul(state ^ (state >>> 15), state | 1);
    mixed ^= mixed + Math.imul(mixed ^ (mixed >>> 7), mixed | 61);
    return ((mixed ^ (mixed >>> 14)) >>> 0) / 4294967296;
  };
  const below = (limit) => Math.floor(next() * limit);
  return { below, pick: (list) => list[below(list.length)], chance: (part) => next() < part };
}

function raise() {
  throw new Marker('from a script');
}

function detachedBuffer(bytes = 8) {
  const buffer = new ArrayBuffer(bytes);
  structuredClone(buffer, { transfer: [buffer] });
  return buffer;
}

/**
 * Returns a function that makes values. `again()` makes a call of the module out of a value, and
 * `gc()` collects garbage.
 */
function makeValues(random, { again, gc }) {
  const { below, pick, chance } = random;
  const throwing = new Proxy({}, Object.fromEntries(
    Reflect.ownKeys(Reflect).filter((key) => typeof Reflect[key] === 'function')
      .map((trap) => [trap, raise])));
  const revoked = (target) => {
    const { proxy, revoke } = Proxy.revocable(target, {});
    revoke();
    return proxy;
  };
  const text = (length) => {
    let result = '';
    while (result.length < length) {
      result += chance(0.2) ? String.fromCharCode(below(0x10000)) : String.fromCharCode(32 + below(95));
    }
    return result;
  };
  const other = vm.createContext({});

  const primitives = [
    () => undefined, () => null, () => chance(0.5), () => pick([0, -0, NaN, Infinity, -Infinity]),
    () => below(2 ** 31) - 2 ** 30, () => Math.PI * 10 ** (below(600) - 300), () => 2 ** 53 + below(9),
    () => BigInt(below(1000)) ** BigInt(below(40)), () => -1n, () => Symbol(text(3)), () => Symbol.iterator,
    () => Symbol(), () => Symbol.for('x'),
  ];
  const texts = [
    () => '', () => text(below(40)), () => text(below(2000)), () => 'a\0b', () => '\ud800',
    () => '\udc00x', () => 'x\ud83d', () => '\ud83d\ude00'.repeat(below(50)), () => '%@%n%s%d',
    () => '\ufeff\u202e\uffff', () => (chance(0.01) ? 'long '.repeat(below(60_000)) : 'short'),
    // A rope, a slice and a two-byte text: the engine keeps each in another way.
    () => text(20) + text(20), () => text(200).slice(50, 150), () => `ä${text(30)}世`,
  ];
  const functions = [
    () => () => {}, () => raise, () => function named() { return this; }, () => async () => raise(),
    () => function* generator() { yield raise(); }, () => class A {}, () => raise.bind(null),
    () => Math.max, () => Map, () => Promise, () => Object, () => new Proxy(() => {}, {}),
    () => new Proxy(raise, {}), () => new Proxy(() => {}, { apply: raise }),
    () => revoked(() => {}), () => vm.runInContext('(function () { return 1; })', other),
    () => (...values) => again(values[0]), () => () => gc(), () => () => { throw undefined; },
  ];
  const objects = [
    () => ({}), () => [], () => Object.create(null), () => ({ a: value(1) }), () => [value(1), value(1)],
    () => new Map([[1, 2]]), () => new Set([1]), () => new Date(NaN), () => new Date(below(1e9)), () => /x/g,
    () => new Error(text(5)), () => Promise.resolve(1), () => new WeakRef({}), () => globalThis,
    () => new Boolean(chance(0.5)), () => new Number(7), () => new String(text(4)), () => Object(Symbol('s')),
    () => Object(1n), () => new Uint8Array(below(64)), () => new SharedArrayBuffer(8),
    () => new DataView(new ArrayBuffer(8)), () => detachedBuffer(),
    () => { const bytes = new Uint8Array(8); structuredClone(bytes.buffer, { transfer: [bytes.buffer] }); return bytes; },
    () => vm.runInContext('({ toString: () => "other" })', other), () => { const a = []; a.push(a); return a; },
    () => (function () { return arguments; })(1, 2), () => require('node:fs'),
  ];
  const tricky = [
    () => throwing, () => revoked({}), () => new Proxy({}, {}), () => new Proxy([], { get: raise }),
    () => ({ toString: raise }), () => ({ valueOf: raise, toString: undefined }),
    () => ({ get toString() { return raise(); } }), () => ({ get [Symbol.toPrimitive]() { return raise(); } }),
    () => ({ [Symbol.toPrimitive]: raise }), () => ({ [Symbol.toPrimitive]: () => ({}) }),
    () => ({ [Symbol.toPrimitive]: () => Symbol('s') }), () => ({ [Symbol.toPrimitive]: 7 }),
    () => ({ toString: () => ({}), valueOf: () => ({}) }), () => ({ toString: () => text(10) }),
    () => ({ toString: () => 1n }), () => ({ toString: () => { gc(); return 'collected'; } }),
    () => ({ toString: () => { again(value(1)); return 'again'; } }),
    () => ({ toString: () => { throw undefined; } }),
    () => ({ get then() { return raise(); } }), () => ({ toString() { delete this.toString; return 'once'; } }),
    () => [{ toString: raise }], () => [Symbol('inside')], () => ({ toJSON: raise, toString: () => 'json' }),
  ];

  function value(depth = 0) {
    const kinds = depth > 2 ? [primitives, texts] : [primitives, texts, functions, objects, tricky];
    return pick(pick(kinds))();
  }
  return { value, callback: () => (chance(0.6) ? pick(functions)() : value()) };
}

module.exports = { Marker, randomNumbers, makeValues };
