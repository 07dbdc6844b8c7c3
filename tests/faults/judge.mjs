// What must hold for a process that has gone through a sequence, told from its trace: a list of
//
//   { event: 'called', call, kind, from, at }       a call of a script or of a native thread begins …
//   { event: 'callback', call, value, at }          … its callback or completion runs …
//   { event: 'returned', call, value, at }          … and it returns
//   { event: 'agent', does, id, name, email, begun, at }  an agent came to serve, stop, continue, or was killed
//   { event: 'answered', answer, at }               the customer has answered a window, which is gone
//   { event: 'told', id, email, at }                agent `id` was told; `email` is undefined where it says not what
//   { event: 'quiet', left, at }                    no agent, no call, no window: what is left over, by name
//
// in the order of `at`, in milliseconds.

import { agents } from './sequence_steps.mjs';

// As in the table of faults: a limit lies where the next longer wait would end, and not closer.
const oneWait = 3800;
const noWait = 1900;

const given = { Return: 1, decline: 1, Escape: 2, 'command-w': 2, 'close-mark': 2 };

function callsOf(trace) {
  const calls = new Map();
  for (const { event, call, ...more } of trace) {
    if (event === 'called') calls.set(call, { call, ...more, called: more.at, callbacks: [] });
    if (event === 'callback') calls.get(call).callbacks.push(more);
    if (event === 'returned') Object.assign(calls.get(call), { returned: more.at, value: more.value });
  }
  for (const call of calls.values()) {
    // A callback inside the call may make another one, which has its own time.
    call.ended = call.kind === 'ask' && call.value === false ? call.callbacks[0]?.at : call.returned;
    call.ms = call.ended - call.called;
  }
  return [...calls.values()];
}

/** Whether the agent can be told to have answered this call. */
function isAnswered({ kind, value, callbacks }) {
  if (kind === 'status') return value > 0;
  if (kind === 'ask') return value === true || callbacks.some((callback) => callback.value === 1);
  return kind === 'code' && callbacks.some((callback) => callback.value === 'code');
}

function* callbackFaults(calls, trace) {
  const quiet = trace.filter(({ event }) => event === 'quiet').map(({ at }) => at);
  for (const { call, kind, called, returned, value, callbacks } of calls) {
    if (returned === undefined) {
      if (quiet.some((at) => at > called)) yield { rule: 'hangs', text: `${kind} ${call} never returned` };
      continue;
    }
    if (callbacks.length > 1) yield { rule: 'callback twice', text: `${kind} ${call}: ${callbacks.length} callbacks` };
    if (kind === 'ask' && value === false) {
      if (!callbacks.some(({ at }) => at <= returned)) {
        yield { rule: 'callback missing', text: `ask ${call} returned false without a callback` };
      }
      if (callbacks.some((callback) => ![0, 1].includes(callback.value))) {
        yield { rule: 'callback wrong', text: `ask ${call} returned false with ${callbacks[0].value}` };
      }
    }
    if (kind === 'code' && callbacks.length === 0 && quiet.some((at) => at > returned)) {
      yield { rule: 'callback missing', text: `code ${call} was never completed` };
    }
    if (kind === 'code' && !/^(code|neither|error (4097|4099|4101))$/.test(callbacks[0]?.value ?? 'code')) {
      yield { rule: 'callback wrong', text: `code ${call} was completed with ${callbacks[0].value}` };
    }
  }
}

/** One callback for each window, with what the customer chose; one window at least for those that were asked for. */
function* windowFaults(calls, trace) {
  const delivered = calls.filter(({ kind, value }) => kind === 'ask' && value === true)
    .flatMap(({ callbacks }) => callbacks).sort((a, b) => a.at - b.at).map(({ value }) => value);
  const answers = trace.filter(({ event }) => event === 'answered').map(({ answer }) => given[answer]);
  if (`${delivered}` !== `${answers}`) {
    yield { rule: 'answers', text: `the customer answered [${answers}], the callbacks got [${delivered}]` };
  }
  let since = -Infinity;
  for (const { at } of trace.filter(({ event }) => event === 'quiet')) {
    const isWithin = (time) => time > since && time < at;
    if (calls.some(({ kind, value, returned }) => kind === 'ask' && value === true && isWithin(returned)) &&
        !trace.some(({ event, at: time }) => event === 'answered' && isWithin(time))) {
      yield { rule: 'no window', text: 'an ask returned true and no window came' };
    }
    since = at;
  }
}

/** At most one for each answer, and only what was answered. An agent may have no address, which is none to tell. */
function* toldFaults(trace) {
  const answers = trace.filter(({ event }) => event === 'answered').map(({ answer }) => answer);
  const count = (answer) => answers.filter((one) => one === answer).length;
  const told = trace.filter(({ event }) => event === 'told').map(({ email }) => email);
  const served = trace.filter(({ event, does }) => event === 'agent' && does === 'serve');
  const mayLackAddress = served.some(({ email }) => email === null);
  const refusals = told.filter((email) => email === null).length;
  const addresses = told.filter((email) => typeof email === 'string');
  if (told.length > count('Return') + count('decline') || addresses.length > count('Return') ||
      refusals > count('decline') + (mayLackAddress ? count('Return') : 0)) {
    yield { rule: 'told', text: `answered [${answers}], told ${JSON.stringify(told)}` };
  }
  const known = new Set(served.map(({ email }) => email));
  for (const email of addresses.filter((address) => !known.has(address))) {
    yield { rule: 'told', text: `told ${JSON.stringify(email)}, which no agent has` };
  }
}

/** The stretches in which the agent stayed as it was: who serves, and from when to when. */
function stretchesOf(trace) {
  const changes = trace.filter(({ event }) => event === 'agent');
  let serving;
  return changes.map((change, i) => {
    if (change.does === 'serve') serving = change;
    if (change.does === 'kill') serving = undefined;
    return {
      from: change.at, to: changes[i + 1]?.begun ?? Infinity,
      id: serving?.id, agent: agents[serving?.name], stands: change.does === 'stop',
    };
  });
}

/** What holds for calls while nothing happens to the agent. */
function* stretchFaults(calls, trace) {
  for (const { from, to, id, agent, stands } of stretchesOf(trace)) {
    const within = calls.filter(({ called, returned }) => called > from && returned < to)
      .sort((a, b) => a.called - b.called);
    const emails = within.filter(({ kind }) => kind === 'status' || kind === 'ask');
    if (!agent) {
      for (const call of emails.filter(isAnswered)) {
        yield { rule: 'answered by nobody', isOfTime: true, text: `${call.kind} ${call.call} without an agent` };
      }
    } else if (stands || agent.hangs) {
      yield* hungFaults(emails);
    } else if (agent.serves) {
      yield* unansweredFaults(within, to);
      yield* untoldFaults(within, trace, id);
    }
  }
}

/** An agent that hangs costs its two seconds once. */
function* hungFaults(emails) {
  const first = emails.find(({ ms }) => ms >= noWait);
  const second = first && emails.find(({ called, ms }) => called > first.ended && ms >= noWait);
  if (second) {
    const [one, other] = [first, second].map(({ kind, call, ms }) => `${kind} ${call} waited ${ms.toFixed()} ms`);
    yield { rule: 'hung twice', isOfTime: true, text: `${one} for an agent that hangs, and then ${other}` };
  }
}

/** When an agent that serves is known to the process. */
const knownFrom = (within) => Math.min(...within.filter(isAnswered).map(({ ended }) => ended));

/** An agent that serves and has answered a call answers the later ones. */
function* unansweredFaults(within, to) {
  // What the last reply said is known to the process as a whole: calls side by side may miss their own.
  const isAlone = (call) => within.every((other) => other === call || !['status', 'ask'].includes(other.kind) ||
    other.called > call.ended || other.ended < call.called);
  for (const call of within.filter(({ called }) => called > knownFrom(within))) {
    const isOver = call.kind === 'ask' ? isAlone(call) : call.callbacks.length > 0 && call.callbacks[0].at < to;
    if (isOver && !isAnswered(call)) {
      yield { rule: 'not answered', isOfTime: true, text: `${call.kind} ${call.call}, by an agent that serves` };
    }
  }
}

/** It is told what is answered: a later call that it answers comes after that over the same connection. */
function* untoldFaults(within, trace, id) {
  const last = Math.max(...within.filter(isAnswered).map(({ called }) => called));
  const answers = trace.filter(({ event, at }) => event === 'answered' && at > knownFrom(within) && at < last)
    .map(({ answer }) => answer).filter((answer) => answer === 'Return' || answer === 'decline');
  const told = trace.filter((entry) => entry.event === 'told' && entry.id === id).map(({ email }) => email);
  if (told.length < answers.length) {
    yield { rule: 'not told', isOfTime: true, text: `answered [${answers}], told ${JSON.stringify(told)}` };
  }
}

function* timeFaults(calls) {
  for (const { call, kind, from, ms } of calls) {
    const limit = kind === 'status' || kind === 'ask' ? oneWait : noWait;
    if (ms > limit) {
      yield { rule: 'too long', isOfTime: true, text: `${kind} ${call} of a ${from} took ${ms.toFixed()} ms` };
    }
  }
}

function* leftFaults(trace) {
  for (const { left } of trace.filter(({ event }) => event === 'quiet')) {
    for (const [name, count] of Object.entries(left)) {
      if (count > 0) yield { rule: `left: ${name}`, text: `${count} ${name} left over` };
    }
  }
}

/**
 * The faults of a trace: `{ rule, text, isOfTime }` each. What is of time can be the machine's fault, and has to be
 * seen again.
 */
export function judge(trace) {
  const ordered = [...trace].sort((a, b) => a.at - b.at);
  const calls = callsOf(ordered);
  return [
    ...callbackFaults(calls, ordered), ...windowFaults(calls, ordered), ...toldFaults(ordered),
    ...stretchFaults(calls, ordered), ...timeFaults(calls), ...leftFaults(ordered),
  ];
}
