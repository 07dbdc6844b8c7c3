// Calls the module's functions in every way with every kind of value:
//
//   node --expose-gc script_fuzzer.js MODULE SEED CALLS [ANSWER]
//
// CALLS generated calls of each function, the same for the same seed. With ANSWER the module must
// answer that after each function. Prints a line of JSON for each function; ends with 1 where a call
// threw or returned what it may not.
'use strict';

const { setImmediate: turn } = require('node:timers/promises');
const v8 = require('node:v8');
const vm = require('node:vm');

const { Marker, randomNumbers, makeValues } = require('./script_values.js');

const [modulePath, seed, calls, answer] = process.argv.slice(2);
const pellmar = require(modulePath);
const names = Object.keys(pellmar);

v8.setFlagsFromString('--expose-gc');
const collectGarbage = vm.runInNewContext('gc');

/** The module's own exceptions: all that it ever throws. */
const own = {
  PLReportUsageEvent: [
    'Wrong number of arguments. Should be at least 1 string arg.',
    'Second argument is not supportted rignt now',
  ],
  PLEnableDebugLogging: [
    'Wrong number of arguments. Should be 1.',
    'Wrong argument type. Should be Boolean.',
  ],
};

/** The engine's, when it converts a value, calls a callback or makes an object. */
const engine = [
  /^Cannot convert a Symbol value to a string$/,
  /^Cannot convert object to primitive value$/,
  /^Cannot perform '\w+' on a proxy that has been revoked$/,
  /^Class constructor \w* cannot be invoked without 'new'$/,
  /^Constructor Map requires 'new'$/,
  /^Promise constructor cannot be invoked without 'new'$/,
  /on a detached ArrayBuffer$/,
  /^number 7 is not a function$/,
  /^'7' returned for property 'Symbol\(Symbol\.toPrimitive\)' of object .* is not a function$/,
];

const results = {
  PLShowReleaseNotesWindowIfNeeded: (result) => result === undefined,
  PLShowReleaseNotesWindow: (result) => result === undefined,
  PLCanShowReleaseNotesWindow: (result) => result === true,
  PLReportUsageEvent: (result) => result === undefined,
  PLGetLastUserEmailSharingResponse: (result) => [0, 1, 2].includes(result),
  PLAskUserToShareEmail: (result) => typeof result === 'boolean',
  PLEnableDebugLogging: (result) => result === undefined,
};

const random = randomNumbers(Number(seed));
const { below, pick, chance } = random;
/** When garbage is collected is not the seed's to say: it must not shift what comes after. */
const finalizerRandom = randomNumbers(Number(seed) + 1);
const faults = [];
let thrown;
let depth = 0;
let finalized = 0;

function note(kind) {
  thrown[kind] = (thrown[kind] ?? 0) + 1;
}

function fault(what) {
  if (faults.length < 20) faults.push(what);
}

/** Counts an exception under what it is, or as a fault. */
function judge(name, error) {
  if (error === undefined || error instanceof Marker) return note('the script’s own');
  const message = String(error?.message);
  if (error instanceof TypeError && own[name]?.includes(message)) return note(message);
  // A value or a callback may have called another of the functions.
  if (error instanceof TypeError && name !== 'PLCanShowReleaseNotesWindow' &&
      Object.values(own).flat().includes(message)) return note(message);
  const known = engine.find((pattern) => pattern.test(message));
  if (known && error?.name === 'TypeError') return note(`the engine: ${message.replace(/constructor \w+/, 'constructor …')}`);
  return fault(`${name} threw ${error?.name}: ${message}`);
}

const { value, callback } = makeValues(random, {
  again(argument) {
    if (depth < 3) invoke(pick(names), [argument]);
  },
  gc() {
    if (chance(0.02)) collectGarbage();
  },
});

const { value: finalizerValue } = makeValues(finalizerRandom, {
  again: (argument) => attempt('PLReportUsageEvent', () => pellmar.PLReportUsageEvent(argument)),
  gc: collectGarbage,
});
const registry = new FinalizationRegistry((name) => {
  ++finalized;
  attempt(name, () => pellmar[name](finalizerValue()));
});

/** Ways to call with a result to look at … */
const plainWays = [
  (f, args) => f(...args),
  (f, args) => f.call(value(), ...args),
  (f, args) => f.apply(value(), args),
  (f, args) => Reflect.apply(f, value(), args),
  (f, args) => f.bind(value(), ...args)(),
  (f, args) => ({ f }).f(...args),
  (f, args) => new Proxy(f, {})(...args),
];
/** … and without. */
const oddWays = [
  (f, args) => new f(...args),
  (f, args) => Reflect.construct(f, args, pick([Object, Array, class B {}, f])),
  (f, args) => Reflect.construct(f, args, new Proxy(class C {}, { get() { throw new Marker(); } })),
  (f, args) => new (class extends f {})(...args),
  (f, args) => args.map(f),
  (f, args) => Object.defineProperty({}, 'x', { get: f, set: f }).x,
  (f, args) => { Object.defineProperty({}, 'x', { set: f }).x = args[0]; },
  (f) => 'aa'.replace(/a/g, f),
  (f) => [2, 1].sort(f),
  (f) => JSON.stringify({ toJSON: f }),
  (f, args) => f`${args[0]}`,
  (f) => `${{ toString: f, valueOf: f }}`,
  (f, args) => void new Promise(f).catch((error) => judge(nameOf(f), error)),
  (f, args) => void Promise.resolve(1).then(f).catch((error) => judge(nameOf(f), error)),
  (f) => setImmediate(() => attempt(nameOf(f), () => f())),
  (f) => queueMicrotask(() => attempt(nameOf(f), () => f(value()))),
];
const nameOf = (f) => names.find((name) => pellmar[name] === f);

function attempt(name, call) {
  try {
    return call();
  } catch (error) {
    judge(name, error);
    return Marker;
  }
}

function invoke(name, args) {
  ++depth;
  const isPlain = chance(0.7);
  const way = pick(isPlain ? plainWays : oddWays);
  const result = attempt(name, () => way(pellmar[name], args));
  if (isPlain && result !== Marker && !results[name](result)) {
    fault(`${name} returned ${typeof result} ${String(result)}`);
  }
  --depth;
}

function argumentsFor(name) {
  const count = pick([0, 1, 1, 1, 1, 1, 2, 3, below(20)]);
  const args = Array.from({ length: count }, () => value());
  if (name === 'PLAskUserToShareEmail' && count > 0) args[0] = callback();
  if (name === 'PLEnableDebugLogging' && count > 0 && chance(0.5)) args[0] = chance(0.5);
  return args;
}

async function main() {
  // Larger than a message may be, which is the library's own limit and no exception of the script's.
  const huge = 'x'.repeat(70 << 20);
  process.on('uncaughtException', (error) => judge('a callback', error));
  for (const name of names) {
    thrown = {};
    const start = performance.now();
    for (let i = 1; i <= Number(calls); ++i) {
      invoke(name, argumentsFor(name));
      if (i % 500 === 0) {
        registry.register({}, name);
        if (i % 10_000 === 0) collectGarbage();
        await turn();
      }
    }
    invoke(name, [huge, huge]);
    collectGarbage();
    await turn();
    if (answer !== undefined) {
      const said = pellmar.PLGetLastUserEmailSharingResponse();
      if (said !== Number(answer)) fault(`after ${name} the answer was ${said}`);
    }
    const seconds = (performance.now() - start) / 1000;
    console.log(JSON.stringify({
      name, calls: Number(calls), seconds: Number(seconds.toFixed(2)), finalized, thrown }));
  }
  pellmar.PLEnableDebugLogging(false);
  for (const what of faults) console.log(JSON.stringify({ fault: what }));
  process.exit(faults.length ? 1 : 0);
}

main();
