// The steps of a sequence, each a word such as `serve:asks` or `native-code:4`, and sequences drawn from a seed.

import { createRequire } from 'node:module';

const { randomNumbers } = createRequire(import.meta.url)('../binding/script_values.js');

const fetch = 'fetchAskingPermissionStatus:';
const update = 'updateAllowedCustomerEmail:callback:';
const code = 'provideAuthCodeWithClientID:scope:callback:';
const check = 'checkConnectionWithCallback:';
const notes = 'showReleaseNotesForAppWithCallback:';

/**
 * How agents behave: the development agent's options, or a fault of fault_peer.cpp and the request that meets it.
 * `serves`: it answers everything, soon and rightly. `hangs`: once it hangs, it answers nothing whatsoever.
 */
export const agents = {
  asks: { agent: ['--always-ask'], serves: true },
  once: { agent: [], serves: true },
  calm: { agent: ['--should-ask', 'no'], serves: true },
  'asks-twice': {
    agent: ['--always-ask', ...[fetch, update, code, notes].flatMap((method) => ['--twice', method])], serves: true,
  },
  newer: { agent: ['--always-ask', '--api-version', '2.0'], serves: true },
  late: { agent: ['--always-ask', '--reply-delay', '700'] },
  'too-late': { agent: ['--always-ask', '--reply-delay', '2500'] },
  'late-status': { peer: ['late', fetch] },
  'twice-on-the-wire': { peer: ['twice'] },
  unasked: { peer: ['unasked-first'] },
  'wrong-class': {
    agent: ['--always-ask', ...[fetch, code, notes].flatMap((method) => ['--wrong-type', method])],
  },
  'wrong-scalar': { peer: ['wrong-scalar'] },
  'too-few': { peer: ['too-few'] },
  truncated: { peer: ['truncated'] },
  'random-bytes': { peer: ['random-bytes', fetch] },
  'unknown-selector': { peer: ['unknown-selector', code] },
  'hangs-up': { peer: ['hangs-up'] },
  'not-ready': { peer: ['not-ready', check] },
  'drops-status': { agent: ['--always-ask', '--drop', fetch] },
  'drops-code': { agent: ['--always-ask', '--drop', code] },
  'drops-check': { agent: ['--drop', check], hangs: true },
  'hangs-at-once': { agent: ['--hang', check], hangs: true },
  'hangs-over-status': { agent: ['--always-ask', '--hang', fetch], hangs: true },
  'hangs-over-answer': { agent: ['--always-ask', '--hang', update] },
  'never-accepts': { peer: ['never-accepts'], hangs: true },
  'goes-at-once': { peer: ['goes-at-once'] },
  'dies-over-check': { agent: ['--die-on', check] },
  'dies-over-status': { agent: ['--die-on', fetch] },
  'dies-over-code': { agent: ['--die-on', code] },
  'dies-over-answer': { agent: ['--always-ask', '--die-on', update] },
  'replies-and-dies': { peer: ['replies-and-dies'] },
};

const names = Object.keys(agents);
/** Calls of scripts, and of native threads. */
const scriptKinds = [
  'status', 'ask', 'ask-again', 'ask-throw', 'event', 'notes', 'notes-if-needed', 'log-on', 'log-off',
];
const nativeKinds = ['status', 'ask', 'code', 'event', 'notes'];
/** What the customer does with the window. */
const answers = ['Return', 'Escape', 'command-w', 'decline', 'close-mark'];

/** Those that can take another one's place from one moment to the next. */
const successors = names.filter((name) => agents[name].agent);

const number = /^\d{1,4}$/;
/** So many threads, so many milliseconds later. */
const threads = /^[1-8](\+\d{1,4})?$/;
const arguments_ = {
  // The agent.
  serve: names, replace: successors, flap: number, kill: null, stop: null, continue: null,
  // The script, and native threads.
  ...Object.fromEntries(scriptKinds.map((kind) => [kind, null])),
  ...Object.fromEntries(nativeKinds.map((kind) => [`native-${kind}`, threads])),
  // The customer, and the desktop.
  ...Object.fromEntries(answers.map((answer) => [answer, null])), look: ['dark', 'light', 'flicker'],
  // Waits: so many milliseconds, until all calls have returned, and until nothing is left to be done.
  wait: number, settle: null, quiet: null,
};

/** Sequences that something was found with; each run goes through them first. */
export const found = [
  // A check that was under way answered for a request behind it, which hung.
  'serve:hangs-over-status notes status status quiet',
  // The refusal took the address from the window of a question that had been asked before it.
  'serve:late ask settle wait:1500 native-ask:1 wait:50 status wait:100 decline settle Return quiet',
];

/** The steps of a line: `{ word, step, argument }` each. Throws where a word is none. */
export function parse(line) {
  return line.split(/\s+/).filter(Boolean).map((word) => {
    const [, step, argument] = /^([\w-]+)(?::([\w+-]+))?$/.exec(word) ?? [];
    const takes = Object.hasOwn(arguments_, step ?? '') ? arguments_[step] : undefined;
    const fits = takes === null ? argument === undefined
      : Array.isArray(takes) ? takes.includes(argument) : takes?.test(argument ?? '');
    if (!fits) throw new Error(`not a step: ${word}`);
    return { word, step, argument };
  });
}

/** The words of `count` steps, always the same for a seed; the last one is `quiet`. */
export function generate(seed, count) {
  const { below, pick, chance } = randomNumbers(seed);
  let runs = false;
  let stands = false;
  const words = [];
  const agent = (among = names) => pick(chance(0.45) ? among.filter((name) => agents[name].serves) : among);

  function agentStep() {
    if (stands && chance(0.6)) {
      stands = false;
      return 'continue';
    }
    if (runs && chance(0.35)) {
      stands = true;
      return 'stop';
    }
    if (runs && chance(0.25)) {
      runs = stands = false;
      return 'kill';
    }
    stands = false;
    if (chance(0.12)) return (runs = false, `flap:${1 + below(12)}`);
    return runs && chance(0.4) ? `replace:${agent(successors)}` : (runs = true, `serve:${agent()}`);
  }
  const native = () => `native-${pick([...nativeKinds, 'code', 'ask'])}:${1 + below(chance(0.2) ? 8 : 3)}` +
    pick(['', '', `+${below(400)}`]);
  const script = () => (chance(0.4) ? pick(['ask', 'ask', 'ask-again', 'status', 'status']) : pick(scriptKinds));
  const time = () => (chance(0.4) ? 'settle' : `wait:${pick([0, 5, 20, 50, 150, 400, 1000, 2100])}`);
  const weighed = [
    [5, agentStep], [5, script], [4, native], [4, () => pick(answers)], [1, () => `look:${pick(arguments_.look)}`],
    [4, time], [0.3, () => (runs = stands = false, 'quiet')],
  ];
  const total = weighed.reduce((sum, [weight]) => sum + weight, 0);

  words.push(`serve:${agent()}`);
  runs = true;
  while (words.length < count - 1) {
    let at = below(1000) / 1000 * total;
    const word = weighed.find(([weight]) => (at -= weight) < 0)[1]();
    // What a call leaves behind shows in the next one.
    words.push(...Array.from({ length: /^(status|ask)/.test(word) && chance(0.4) ? 2 : 1 }, () => word));
  }
  return [...words.slice(0, count - 1), 'quiet'];
}
