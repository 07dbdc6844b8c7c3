// The table: each row is a fault, a call, what its caller must get, and within what time.
//
//   fault, call       the first two columns
//   expected, within  what the call gives, and the milliseconds that it may take: [least, most]
//   agent | peer      what serves: the development agent's options, or a fault of fault_peer.cpp and
//                     the request that meets it; without either there is no agent
//   caller            'node' (where it is missing), 'native' or 'window'
//   script            what the caller is told, where `call` is only its description
//   run               what to do, where it is more than the call; gives { value, ms }
//   preload           a library of the build that is loaded before all others
//   environment       what the caller has in its environment besides
//   never             what standard error must not have
//   ends              the row itself ends the caller
//   alone             takes all processors

import { execFileSync, spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import path from 'node:path';
import { setTimeout as delay } from 'node:timers/promises';

import { buildFolder } from '../support/agent.mjs';
import { until } from '../support/display.mjs';
import { isSanitized } from '../support/sanitizer.mjs';
import { Caller, modulePath } from './callers.mjs';
import { application, decline } from './row.mjs';

const check = 'checkConnectionWithCallback:';
const fetch = 'fetchAskingPermissionStatus:';
const update = 'updateAllowedCustomerEmail:callback:';
const notes = 'showReleaseNotesForAppWithCallback:';
const event = 'reportUsageEvent:eventInfo:';
const code = 'provideAuthCodeWithClientID:scope:callback:';

// The machine may be busy, so that a limit lies where the next longer wait would end, and not closer.
/** Without the two seconds of a wait. */
const atOnce = [0, 1900];
/** Of what nobody waits for, and other processes take part in. */
const soon = [0, 9000];
/** Of a call that waits for a reply and gets none: one wait. */
const twoSeconds = [1900, 3800];
const atMostTwoSeconds = [0, 3800];
/** Of a request that waits for the first check of an agent that does not answer it. */
const checkTimeout = [7500, 10_000];
const calm = ['--should-ask', 'no'];
/** What a process that hears the notification daemon has of them: one listens, one is connected. */
const daemonSockets = 2;

/** A row whose call is a line of script, or of the native caller, and nothing else. */
function call(row) {
  return {
    ...row,
    async run(running) {
      const caller = await running.startCaller();
      await running.startServer();
      return caller.tell(row.script ?? row.call);
    },
  };
}

/** A row with requests of the native caller, of which something comes while the agent runs. */
function native(row) {
  return {
    within: soon,
    ...row,
    caller: 'native',
    async run(running) {
      const caller = await running.startCaller();
      await running.startServer();
      await caller.tell(row.script);
      return caller.tell('outcome 30000');
    },
  };
}

/** The same with one authorization code. */
function oneCode(row) {
  return native({ ...row, call: 'request a code', script: 'codes 1 1' });
}

/** A row with one authorization code that stays unanswered until its agent goes. */
function patientCode(row, error) {
  return {
    ...row,
    call: 'request a code',
    expected: `1 unanswered; once the agent is gone 1 × error ${error}`,
    within: [300, 9000],
    caller: 'native',
    async run(running) {
      const caller = await running.startCaller();
      const server = await running.startServer();
      await caller.tell('codes 1 1');
      const before = await caller.tell('outcome 300');
      await server.stop('SIGKILL');
      const after = await caller.tell('outcome 30000');
      return { value: `${before.value}; once the agent is gone ${after.value}`, ms: after.ms };
    },
  };
}

/** A question whose window is answered with `key` while no agent runs; `afterwards` tells the rest. */
function answered(row, key, afterwards) {
  return {
    ...row,
    caller: 'window',
    async run(running) {
      const { agent, caller } = await running.startWindow();
      const succeed = await running.prepareSuccessor();
      await agent.stop('SIGKILL');
      const start = performance.now();
      await running.press(key);
      const { answer } = await caller.event('answer');
      const succeedAfter = async (milliseconds) => {
        await delay(start + milliseconds - performance.now());
        return succeed();
      };
      return afterwards(running, { caller, start, value: `callback(${answer})`, succeedAfter });
    },
  };
}

/** A window row that ends its process. */
function ending(row, end) {
  return {
    ...row,
    caller: 'window',
    ends: true,
    within: soon,
    async run(running) {
      const { caller } = await running.startWindow();
      const start = performance.now();
      end(caller);
      const { status, signal } = await caller.end();
      const ms = performance.now() - start;
      await running.windowIsGone();
      return { value: `the process ends with ${signal ?? status}`, ms };
    },
  };
}

const absent = [
  call({ fault: 'agent absent', call: 'status()', expected: '0', within: atOnce }),
  call({ fault: 'agent absent', call: 'ask()', expected: 'false, callback(0)', within: atOnce }),
  call({
    fault: 'agent absent', call: 'the other functions', within: atOnce,
    expected: 'returned undefined, undefined, undefined, true',
    script: `thrown(() => [pellmar.PLReportUsageEvent('e'), pellmar.PLShowReleaseNotesWindow(), ` +
      `pellmar.PLShowReleaseNotesWindowIfNeeded(), pellmar.PLCanShowReleaseNotesWindow()]` +
      `.map(String).join(', '))`,
  }),
  oneCode({ fault: 'agent absent', expected: '1 × error 4099', within: atOnce }),
  {
    fault: 'agent dead, its socket left behind', call: 'status()', expected: '0', within: atOnce,
    async run(row) {
      const caller = await row.startCaller();
      await (await row.startAgent()).stop('SIGKILL');
      return caller.tell('status()');
    },
  },
  {
    fault: 'service directory open to others', call: 'status()', expected: '0', within: atOnce,
    async run(row) {
      const caller = await row.startCaller();
      await row.startAgent(...calm);
      fs.chmodSync(row.session.env.COCOA_SERVICE_DIR, 0o755);
      return caller.tell('status()');
    },
  },
];

const silent = [
  call({
    fault: 'name served, never accepted', peer: ['never-accepts'],
    call: 'status()', expected: '0', within: twoSeconds,
  }),
  call({
    fault: 'name served, its queue full', peer: ['queue-full'],
    call: 'ask()', expected: 'false, callback(0)', within: twoSeconds,
  }),
  patientCode({ fault: 'name served, never accepted', peer: ['never-accepts'] }, 4099),
  call({
    fault: 'accepts and hangs', agent: ['--hang', check],
    call: 'status()', expected: '0', within: twoSeconds,
  }),
  call({
    fault: 'not ready', peer: ['not-ready', check],
    call: 'status()', expected: '0', within: atOnce,
  }),
  ...[['hangs over the first check', '--hang', checkTimeout], ['first check dropped', '--drop', soon]].map(
    ([fault, option, within]) => native({
      fault, agent: [option, check], call: 'request 20 codes', script: 'codes 20 2',
      expected: '20 × error 4099', within,
    })),
  {
    fault: 'stopped, continued after 5 s', call: 'request a code', expected: '1 × code',
    within: [4500, 9500], caller: 'native',
    async run(row) {
      const caller = await row.startCaller();
      const agent = await row.startAgent();
      await agent.suspend();
      await caller.tell('codes 1 1');
      setTimeout(() => agent.process.kill('SIGCONT'), 5000);
      return caller.tell('outcome 30000');
    },
  },
  oneCode({ fault: 'not ready', peer: ['not-ready', check], expected: '1 × error 4099' }),
  call({
    fault: 'hangs over the request', agent: ['--hang', fetch],
    call: 'ask()', expected: 'false, callback(0)', within: twoSeconds,
  }),
  call({
    fault: 'hangs over the request', agent: ['--hang', fetch], script: `[status(), status(), ask()].join(', ')`,
    call: 'status(), status(), ask()', expected: '0, 0, false, callback(0)', within: twoSeconds,
  }),
  patientCode({ fault: 'hangs over the request', agent: ['--hang', code] }, 4097),
  ...[[1000, '1', [900, 1900]], [3000, '0', twoSeconds]].map(([pause, expected, within]) => ({
    fault: `stopped, continued after ${pause / 1000} s`, call: 'status(), status()', within,
    expected: `${expected}, then 1`,
    async run(row) {
      const caller = await row.startCaller();
      const agent = await row.startAgent(...calm);
      await agent.suspend();
      const asking = caller.tell('status()');
      await delay(pause);
      agent.process.kill('SIGCONT');
      const { value, ms } = await asking;
      // Its reply to the check comes first.
      let then;
      await until(async () => (then = (await caller.tell('status()')).value) !== '0', 'it is there again');
      return { value: `${value}, then ${then}`, ms };
    },
  })),
  ...[['stopped before it answered', check], ['stopped after it answered', fetch]].map(([fault, last]) => ({
    fault, call: 'status(), status(), status(), ask()', within: twoSeconds,
    expected: '0, 0, 0, false, callback(0), and once it goes on 1',
    async run(row) {
      const caller = await row.startCaller();
      const agent = await row.startAgent(...calm);
      if (last === fetch) await caller.tell('status()');
      await agent.suspend();
      const start = performance.now();
      const values = [];
      for (const call of ['status()', 'status()', 'status()', 'ask()']) {
        values.push((await caller.tell(call)).value);
      }
      const ms = performance.now() - start;
      agent.process.kill('SIGCONT');
      await until(async () => (await caller.tell('status()')).value === '1', 'it is there again');
      return { value: `${values.join(', ')}, and once it goes on 1`, ms };
    },
  })),
  {
    fault: 'hangs over an event', call: 'report an event, status()', within: atOnce, expected: '1',
    async run(row) {
      const caller = await row.startCaller();
      const agent = await row.startAgent(...calm, '--hang', event);
      await caller.tell(`pellmar.PLReportUsageEvent('e')`);
      await agent.waitFor(event);
      return caller.tell('status()');
    },
  },
  {
    fault: 'busy with 100,000 events', call: 'status()', within: atOnce, expected: '1', alone: true,
    async run(row) {
      const caller = await row.startCaller();
      await row.startAgent(...calm);
      await caller.tell(`for (let i = 0; i < 100_000; ++i) pellmar.PLReportUsageEvent('e' + i)`);
      return caller.tell('status()');
    },
  },
  {
    fault: 'stopped, then goes on', call: '3,000,000 usage events', alone: true, within: [0, 60_000],
    expected: 'none waits, 4096 arrive in order, 2995904 are dropped, later ones arrive',
    async run(row) {
      const caller = await row.startCaller();
      const agent = await row.startAgent(...calm);
      await agent.suspend();
      const { ms } = await caller.tell(
        'for (let i = 0; i < 3_000_000; ++i) pellmar.PLReportUsageEvent(i)');
      agent.process.kill('SIGCONT');
      await agent.waitFor(event, 4096, 60_000);
      // What is dropped is the newest; there is room again once the agent has taken some.
      await until(async () => {
        await caller.tell(`pellmar.PLReportUsageEvent('later')`);
        return agent.requestsOf(event).length > 4096;
      }, 'events get through again');
      const names = agent.requestsOf(event).map(({ arguments: [name] }) => name);
      const arrived = names.indexOf('later');
      const isOrdered = names.every((name, i) => i < arrived ? Number(name) === i : name === 'later');
      return { value: `none waits, ${arrived} arrive ${isOrdered ? 'in' : 'out of'} order, ` +
        `${3_000_000 - arrived} are dropped, later ones arrive`, ms };
    },
  },
];

const dying = [
  call({
    fault: 'dies before reading', peer: ['goes-at-once'],
    call: 'status()', expected: '0', within: atOnce,
  }),
  oneCode({ fault: 'dies before reading', peer: ['goes-at-once'], expected: '1 × error 4099' }),
  call({
    fault: 'dies over the first check', agent: ['--die-on', check],
    call: 'ask()', expected: 'false, callback(0)', within: atOnce,
  }),
  call({
    fault: 'dies mid-request', agent: ['--die-on', fetch],
    call: 'status()', expected: '0', within: atMostTwoSeconds,
  }),
  oneCode({ fault: 'dies mid-request', agent: ['--die-on', code], expected: '1 × error 4097' }),
  {
    fault: 'dies after the reply', call: 'status(), status()', expected: '1, then 0', within: atOnce,
    async run(row) {
      const caller = await row.startCaller();
      const peer = await row.startPeer('replies-and-dies', fetch);
      const { value, ms } = await caller.tell('status()');
      await until(() => peer.process.exitCode !== null, 'the peer has died');
      return { value: `${value}, then ${(await caller.tell('status()')).value}`, ms };
    },
  },
  oneCode({ fault: 'dies after the reply', peer: ['replies-and-dies'], expected: '1 × code' }),
  {
    fault: 'replaced between two calls', call: 'status(), status()', within: atOnce,
    expected: '1, then 1 of the successor',
    async run(row) {
      const caller = await row.startCaller();
      const agent = await row.startAgent(...calm);
      const first = await caller.tell('status()');
      await agent.stop('SIGKILL');
      const successor = await row.startAgent(...calm);
      const { value, ms } = await caller.tell('status()');
      const [request] = await successor.waitFor(fetch);
      return { value: `${first.value}, then ${value}${request && ' of the successor'}`, ms };
    },
  },
];

const replacements = [
  {
    fault: 'hangs over the first check, killed, a successor in place', within: soon,
    call: 'request a code, and another inside the completion', caller: 'native',
    expected: '1 × code, 1 × error 4099',
    async run(row) {
      const caller = await row.startCaller();
      const agent = await row.startAgent('--hang', check);
      const succeed = await row.prepareSuccessor();
      await caller.tell('persist');
      await agent.waitFor(check);
      succeed();
      const start = performance.now();
      await agent.stop('SIGKILL');
      const { value } = await caller.tell('outcome 30000');
      return { value, ms: performance.now() - start };
    },
  },
];

const replies = [
  call({
    fault: 'reply late (2.5 s)', peer: ['late', fetch],
    call: 'ask()', expected: 'false, callback(0)', within: twoSeconds,
  }),
  {
    fault: 'reply late (2.5 s)', call: 'status(), and once it is there status()', within: twoSeconds,
    expected: '0, then 1',
    async run(row) {
      const caller = await row.startCaller();
      const peer = await row.startPeer('late', fetch);
      const { value, ms } = await caller.tell('status()');
      await peer.stop('SIGKILL');
      await row.startAgent(...calm);
      return { value: `${value}, then ${(await caller.tell('status()')).value}`, ms };
    },
  },
  call({
    fault: 'reply twice', agent: [...calm, '--twice', fetch], never: /no outstanding request/,
    call: 'ask()', expected: 'false, callback(1)', within: atOnce,
  }),
  call({
    fault: 'reply twice on the wire', peer: ['twice'],
    call: 'ask()', expected: 'false, callback(1)', within: atOnce,
  }),
  oneCode({
    fault: 'reply twice', agent: ['--twice', code], never: /no outstanding request/,
    expected: '1 × code',
  }),
  oneCode({ fault: 'reply twice on the wire', peer: ['twice'], expected: '1 × code' }),
  oneCode({ fault: 'reply to no request first', peer: ['unasked-first'], expected: '1 × code' }),
  call({
    fault: 'reply never', peer: ['hangs', fetch],
    call: 'ask()', expected: 'false, callback(0)', within: twoSeconds,
  }),
  patientCode({ fault: 'reply never', peer: ['hangs', code] }, 4097),
  call({
    fault: 'reply dropped', agent: ['--drop', fetch],
    call: 'status()', expected: '0', within: atMostTwoSeconds,
  }),
  oneCode({ fault: 'reply dropped', agent: ['--drop', code], expected: '1 × error 4097' }),
  call({
    fault: 'reply byte by byte', peer: ['slow', fetch],
    call: 'status()', expected: '1', within: [50, 1900],
  }),
];

/** Faults of a reply's content and frame, with what the two kinds of calls make of each: the
 * answer, and the error of a code, or null for neither. */
const contents = [
  ['reply nil', 'nil', '1', null],
  ['reply of a wrong class', 'wrong-class', '1', '4101'],
  ['reply of a wrong scalar', 'wrong-scalar', '0', '4101'],
  ['reply with an argument too few', 'too-few', '0', '4101'],
  ['reply with an argument too many', 'too-many', '0', '4101'],
  ['reply nested too deeply', 'too-deep', '0', '4097'],
  ['invalid UTF-8', 'invalid-utf8', '0', '4097'],
  ['truncated frame', 'truncated', '0', '4097'],
  ['length prefix too short', 'length-too-short', '0', '4097'],
  ['length prefix beyond the limit', 'length-beyond-limit', '0', '4097'],
  ['random bytes', 'random-bytes', '0', '4097'],
  ['unknown selector, sent to the caller', 'unknown-selector', '0', '4097'],
  ['unknown selector, refused by the agent', 'hangs-up', '0', '4097'],
].flatMap(([fault, peer, status, error]) => [
  call({
    fault, peer: [peer, fetch], call: 'status()', expected: status,
    within: status === '0' ? atMostTwoSeconds : atOnce,
  }),
  oneCode({
    fault, peer: [peer, code], expected: error === null ? '1 × neither' : `1 × error ${error}`,
  }),
]);

const malformed = [
  ...contents,
  call({
    fault: 'length prefix too long', peer: ['length-too-long', fetch],
    call: 'status()', expected: '0', within: twoSeconds,
  }),
  patientCode({ fault: 'length prefix too long', peer: ['length-too-long', code] }, 4097),
  oneCode({
    fault: 'wrong element classes in a collection', peer: ['wrong-elements', code],
    expected: '1 × error 7',
  }),
  oneCode({ fault: 'reply with a code and an error', peer: ['text-and-error', code], expected: '1 × both' }),
  {
    fault: 'release notes: error of a wrong class', call: 'PLShowReleaseNotesWindowIfNeeded() twice',
    expected: 'asked twice', within: soon,
    async run(row) {
      const caller = await row.startCaller();
      const agent = await row.startAgent(...calm, '--wrong-type', notes);
      // The answer to a later request tells that the earlier ones have been dealt with.
      const ask = 'pellmar.PLShowReleaseNotesWindowIfNeeded(); status()';
      const first = await caller.tell(ask);
      const second = await caller.tell(ask);
      // What it prints comes after what it answers.
      await agent.waitFor(notes, 2, 2000).catch(() => {});
      const count = agent.requestsOf(notes).length;
      return { value: count === 2 ? 'asked twice' : `asked ${count}×`, ms: first.ms + second.ms };
    },
  },
  call({
    fault: 'reply of 8 MiB', peer: ['8-MiB', fetch], alone: true,
    call: 'status()', expected: '1', within: atOnce,
  }),
  oneCode({
    fault: 'reply of 64 MiB', peer: ['64-MiB', code], alone: true,
    expected: '1 × code', within: soon,
  }),
  call({
    fault: 'random bytes for the first check', peer: ['random-bytes', check],
    call: 'ask()', expected: 'false, callback(0)', within: atOnce,
  }),
  oneCode({
    fault: 'truncated frame for the first check', peer: ['truncated', check],
    expected: '1 × error 4099', within: atOnce,
  }),
  call({
    fault: 'wrong scalar for the first check', peer: ['wrong-scalar', check],
    call: 'status()', expected: '0', within: atOnce,
  }),
];

/** 10,000 requests of eight threads. */
function manyCodes(row, while_ = async () => {}) {
  return {
    ...row,
    call: '10,000 codes from 8 threads',
    caller: 'native',
    alone: true,
    async run(running) {
      const caller = await running.startCaller();
      const server = await running.startServer();
      const [, outcome] = await Promise.all([
        caller.tell('codes 10000 8'), caller.tell('outcome 30000'), while_(server)]);
      return running.summary ? { ...outcome, value: running.summary(outcome.value) } : outcome;
    },
  };
}

const crowds = [
  manyCodes({
    fault: 'none but the crowd', agent: [], expected: '10000 × code', within: [0, 60_000],
  }),
  manyCodes({ fault: 'agent absent', expected: '10000 × error 4099', within: [0, 60_000] }),
  manyCodes({
    fault: 'agent killed meanwhile', agent: [], expected: 'each answered once', within: [0, 60_000],
    summary(value) {
      const parts = value.split(', ').map((part) => /^(\d+) × (code|error \d+)$/.exec(part));
      const isWhole = parts.every(Boolean) &&
        parts.reduce((sum, [, number]) => sum + Number(number), 0) === 10_000;
      return isWhole ? 'each answered once' : value;
    },
  }, async (agent) => {
    await agent.waitFor(code);
    await agent.stop('SIGKILL');
  }),
  {
    fault: '64 hung requests', call: 'readFiles(200), twice', expected: '400 files read',
    within: atOnce,
    async run(row) {
      const caller = await row.startCaller();
      const agent = await row.startAgent(...calm, '--hang', notes);
      const { threads } = caller;
      await caller.tell('for (let i = 0; i < 64; ++i) pellmar.PLShowReleaseNotesWindow()');
      await agent.waitFor(notes);
      const { value, ms } = await caller.tell('readFiles(200)');
      const more = caller.threads - threads;
      if (more > 4) return { value: `${more} threads more`, ms };
      return { value: `${value} files read`, ms };
    },
  },
];

const unsendable = native({
  fault: 'objects that cannot be sent', agent: [], script: 'unsendable',
  call: 'report an event, request a code', expected: '1 × error 4099',
});

const scripts = [
  unsendable,
  call({
    fault: 'callback throws', agent: calm, expected: 'threw mine', within: atOnce,
    call: `thrown(() => ask(() => { throw new Error('mine'); }))`,
  }),
  call({
    fault: 'callback asks again', agent: calm, expected: 'false, callback(1)', within: atOnce,
    call: 'ask(() => ask(() => ask()))',
  }),
  call({
    fault: 'callback asks again without an agent', expected: 'false, callback(0)', within: atOnce,
    call: 'ask(() => ask(() => ask()))',
  }),
  {
    fault: 'callback turns logging on and off', call: 'ask(() => { … })', within: atOnce,
    expected: 'false, callback(1)',
    async run(row) {
      const caller = await row.startCaller();
      const logging = [true, false, true, true, false, false]
        .map((value) => `pellmar.PLEnableDebugLogging(${value});`).join(' ');
      await row.startAgent(...calm);
      // The connection to the notification daemon stays for the process's life. Off again at once, it
      // might not have been made at all.
      const before = caller.sockets;
      await caller.tell('pellmar.PLEnableDebugLogging(true)');
      await until(() => caller.sockets >= before + daemonSockets, 'the daemon is connected', 20_000);
      await caller.tell('pellmar.PLEnableDebugLogging(false)');
      await row.settled();
      row.countAgain();
      return caller.tell(`ask(() => { ${logging} })`);
    },
  },
  {
    fault: 'two copies of the module in a process', call: 'status(), ask() of both', within: atOnce,
    expected: '1, 1, false, callback(1), false, callback(1)',
    async run(row) {
      const copy = path.join(row.session.folder, 'copy.node');
      fs.copyFileSync(modulePath, copy);
      const caller = await row.startCaller();
      await caller.tell(`globalThis.other = require(${JSON.stringify(copy)}); status(other)`);
      row.countAgain();
      await row.startAgent(...calm);
      return caller.tell(`[status(), status(other), ask(), ask(undefined, other)].join(', ')`);
    },
  },
  {
    fault: 'a worker thread requires it', call: 'new Worker(…), then status()', within: soon,
    expected: 'ERR_DLOPEN_FAILED: Module did not self-register; then 1',
    async run(row) {
      const caller = await row.startCaller();
      await row.startAgent(...calm);
      const { value, ms } = await caller.tell('requireInWorker()');
      const message = value.replace(/: '.*$/s, '');
      return { value: `${message}; then ${(await caller.tell('status()')).value}`, ms };
    },
  },
];

const windows = [
  {
    fault: 'e-mail of a wrong class', call: 'ask(), Return', within: soon,
    expected: 'callback(1), agent told [null]',
    async run(row) {
      const { agent, caller } = await row.startWindow({ agent: ['--wrong-type', fetch] });
      return answerAndTell(row, agent, caller);
    },
  },
  {
    fault: 'e-mail nil', call: 'ask(), Return', within: soon,
    expected: 'callback(1), agent told [null]',
    async run(row) {
      const { agent, caller } = await row.startWindow({ agent: ['--no-email'] });
      return answerAndTell(row, agent, caller);
    },
  },
  {
    fault: 'e-mail of 8 MiB', call: 'ask(), Return', within: soon,
    expected: 'callback(1)',
    async run(row) {
      const { caller } = await row.startWindow({ peer: ['asks-with-8-MiB', fetch] });
      return answer(row, caller);
    },
  },
  {
    fault: 'e-mail of 100,000 units', call: 'ask(), Return', within: soon,
    expected: 'callback(1), agent told all of it',
    async run(row) {
      const email = `${'x'.repeat(99_988)}@example.com`;
      const { agent, caller } = await row.startWindow({ agent: ['--email', email] });
      const { value, ms } = await answer(row, caller);
      const [{ arguments: [told] }] = await agent.waitFor(update);
      return { value: `${value}, agent told ${told === email ? 'all of it' : told}`, ms };
    },
  },
  {
    fault: 'agent replies twice', call: 'ask(), Return', within: soon,
    expected: 'callback(1), agent told ["customer@example.com"]',
    async run(row) {
      const { agent, caller } = await row.startWindow({
        agent: ['--twice', fetch, '--twice', update],
      });
      return answerAndTell(row, agent, caller);
    },
  },
  {
    fault: 'callback throws', call: 'ask(), Return', within: soon,
    expected: 'callback(1), uncaughtException mine, then 0',
    async run(row) {
      const { agent, caller } = await row.startWindow({
        ask: `process.on('uncaughtException', ({ message }) => print({ event: 'uncaught', message }));
          ask(() => { throw new Error('mine'); })`.replace(/\n\s*/, ' '),
      });
      const { value, ms } = await answer(row, caller);
      const { message } = await caller.event('uncaught');
      await agent.stop('SIGKILL');
      const after = await caller.tell('status()');
      return { value: `${value}, uncaughtException ${message}, then ${after.value}`, ms };
    },
  },
  {
    fault: 'callback asks again', call: 'ask(), Return, Escape', within: soon,
    expected: 'callback(1), callback(2)',
    async run(row) {
      const { caller } = await row.startWindow({ agent: ['--always-ask'], ask: 'ask(() => ask())' });
      const first = await answer(row, caller);
      await row.display.focused(application);
      const second = await answer(row, caller, 'Escape');
      return { value: `${first.value}, ${second.value}`, ms: Math.max(first.ms, second.ms) };
    },
  },
  {
    fault: 'callback turns logging on and off', call: 'ask(), Return', within: soon,
    expected: 'callback(1)',
    async run(row) {
      const { caller } = await row.startWindow({
        ask: 'ask(() => { for (const on of [true, false, true, false]) ' +
          'pellmar.PLEnableDebugLogging(on); })',
      });
      return answer(row, caller);
    },
  },
  answered({
    fault: 'agent dies while the window is open', call: 'Return', within: soon,
    expected: 'callback(1), other calls know at once',
  }, 'Return', async (row, { caller, start, value }) => {
    const ms = performance.now() - start;
    const other = await caller.tell('status()');
    return {
      value: `${value}, ${other.value === '0' && other.ms < 500
        ? 'other calls know at once' : `status() ${other.value} after ${other.ms} ms`}`,
      ms,
    };
  }),
  ending({ fault: 'window open', call: 'process.exit(3)', expected: 'the process ends with 3' },
    (caller) => caller.input.write('process.exit(3)\n')),
  ending({ fault: 'window open', call: 'app.quit()', expected: 'the process ends with 0' },
    (caller) => caller.input.write('app.quit()\n')),
  ending({ fault: 'window open', call: 'uncaught exception', expected: 'the process ends with 1' },
    (caller) => {
      caller.alsoExpected = [/./];
      caller.input.write(`setImmediate(() => { throw new Error('nobody catches this'); })\n`);
    }),
  ending({ fault: 'window open', call: 'SIGTERM', expected: 'the process ends with SIGTERM' },
    (caller) => caller.process.kill('SIGTERM')),
  {
    fault: 'two copies, both ask', call: 'ask(), ask() of the copy, Return, Return',
    expected: 'callback(1), callback(1), agent told twice', within: soon,
    async run(row) {
      const copy = path.join(row.session.folder, 'copy.node');
      fs.copyFileSync(modulePath, copy);
      const { agent, caller } = await row.startWindow();
      await caller.tell(`globalThis.other = require(${JSON.stringify(copy)})`);
      await row.shownBy(caller, 'ask(undefined, other)');
      await until(async () => (await row.display.windows(application)).length === 2,
        'both windows are up');
      const first = await answer(row, caller);
      await row.display.focused(application);
      const second = await answer(row, caller);
      const updates = await agent.waitFor(update, 2);
      return {
        value: `${first.value}, ${second.value}, agent told ${updates.length === 2 ? 'twice' : '?'}`,
        ms: Math.max(first.ms, second.ms),
      };
    },
  },
  {
    fault: 'defaults unwritable', call: 'ask(), Escape', expected: 'callback(2), and asks again',
    within: soon,
    async run(row) {
      row.makeUnwritableDefaults();
      const { caller } = await row.startWindow();
      const { value, ms } = await answer(row, caller, 'Escape');
      await row.windowIsGone();
      await row.shownBy(caller);
      await answer(row, caller);
      return { value: `${value}, and asks again`, ms };
    },
  },
];

/** Presses the key that answers and returns what the callback got, and how long that took. */
async function answer(row, caller, key = 'Return') {
  const start = performance.now();
  await row.press(key);
  const { answer: given } = await caller.event('answer');
  return { value: `callback(${given})`, ms: performance.now() - start };
}

async function answerAndTell(row, agent, caller) {
  const { value, ms } = await answer(row, caller);
  await agent.waitFor(update);
  await row.windowIsGone();
  return { value: `${value}, agent told ${JSON.stringify(row.told)}`, ms };
}

/** How long one waits for a report that must not come, or not again. */
const surplus = 400;

const restarts = [
  answered({
    fault: 'agent restarts, back after 0.5 s', call: 'Return', within: soon,
    expected: 'callback(1), told []',
  }, 'Return', async (row, { caller, start, value, succeedAfter }) => {
    const ms = performance.now() - start;
    const successor = await succeedAfter(500);
    await caller.tell('status()');
    await successor.waitFor(fetch);
    await delay(surplus);
    return { value: `${value}, told ${JSON.stringify(row.told)}`, ms };
  }),
  ...[['Return', '["customer@example.com"]'], [decline, '[null]']].map(([key, told]) => ({
    fault: 'agent replaced while the window is open', call: key, caller: 'window', within: soon,
    expected: `callback(1), told ${told}`,
    async run(row) {
      const { agent, caller } = await row.startWindow();
      await agent.stop('SIGKILL');
      const successor = await row.startAgent();
      const { value, ms } = await answer(row, caller, key);
      await successor.waitFor(update);
      return { value: `${value}, told ${JSON.stringify(row.told)}`, ms };
    },
  })),
  {
    // A reply that brings the address must not turn the refusal into a consent.
    fault: 'status() all the time', call: decline, caller: 'window', within: soon,
    expected: 'callback(1), told [null]',
    async run(row) {
      const { agent, caller } = await row.startWindow();
      await caller.tell('setInterval(status, 2).unref(); 0');
      const { value, ms } = await answer(row, caller, decline);
      await agent.waitFor(update);
      return { value: `${value}, told ${JSON.stringify(row.told)}`, ms };
    },
  },
  {
    fault: 'agent dies over the answer, a successor comes', call: 'Return', within: soon,
    expected: 'callback(1), told ["customer@example.com"]', caller: 'window',
    async run(row) {
      const { agent, caller } = await row.startWindow({ agent: ['--die-on', update] });
      const { value, ms } = await answer(row, caller);
      await until(() => agent.process.exitCode !== null, 'the agent has died');
      await row.startAgent();
      await delay(2000);
      return { value: `${value}, told ${JSON.stringify(row.told)}`, ms };
    },
  },
];

/** What the process has of the system, and what that may lack. */
const surroundings = [
  {
    fault: 'the caller itself is stopped past its deadline', call: 'status(), status()', within: [2900, 9000],
    expected: '0, and once the agent goes on 1',
    async run(row) {
      const caller = await row.startCaller();
      const agent = await row.startAgent(...calm);
      await agent.suspend();
      const asking = caller.tell('status()');
      await delay(300);
      caller.process.kill('SIGSTOP');
      await delay(2700);
      caller.process.kill('SIGCONT');
      const { value, ms } = await asking;
      agent.process.kill('SIGCONT');
      await until(async () => (await caller.tell('status()')).value === '1', 'it is there again');
      return { value: `${value}, and once the agent goes on 1`, ms };
    },
  },
  {
    fault: 'no descriptors left in the process', call: 'all functions, and with descriptors status()',
    expected: 'returned undefined, undefined, undefined, true, 0, false, callback(0), then 1', within: soon,
    async run(row) {
      const caller = await row.startCaller();
      await row.startAgent(...calm);
      const { value, ms } = await caller.tell(`(() => { const taken = takeDescriptors();
        const seen = thrown(() => [pellmar.PLReportUsageEvent('e'), pellmar.PLShowReleaseNotesWindow(),
          pellmar.PLShowReleaseNotesWindowIfNeeded(), pellmar.PLCanShowReleaseNotesWindow(), status(), ask()]
          .map(String).join(', '));
        taken.forEach((descriptor) => require('fs').closeSync(descriptor));
        return seen; })()`.replace(/\n\s*/g, ' '));
      let then;
      await until(async () => (then = (await caller.tell('status()')).value) !== '0', 'the agent is found');
      return { value: `${value}, then ${then}`, ms };
    },
  },
  {
    fault: 'two applications and one agent', call: 'status() of both, 20 times', expected: '40 × 1', within: soon,
    async run(row) {
      const caller = await row.startCaller();
      await row.startAgent(...calm);
      const other = await Caller.inNode(row);
      const start = performance.now();
      const answers = await Promise.all(Array.from({ length: 20 }, () =>
        [caller, other].map((one) => one.tell('status()'))).flat());
      const right = answers.filter(({ value }) => value === '1').length;
      return { value: `${right} × 1`, ms: performance.now() - start };
    },
  },
  {
    fault: 'a child process outlives the application', call: 'status(), then spawn()', within: soon,
    expected: '1, and the child holds nothing of it',
    async run(row) {
      const caller = await row.startCaller();
      const agent = await row.startAgent(...calm);
      await caller.tell(`pellmar.PLReportUsageEvent('e')`);
      const { value, ms } = await caller.tell('status()');
      await agent.waitFor(event);
      const { value: held } = await caller.tell(
        `require('child_process').execFileSync('ls', ['-l', '/proc/self/fd'], { stdio: ['ignore', 'pipe', 'ignore'] })
        .toString().split(String.fromCharCode(10)).filter((line) => / ([3-9]|[1-9][0-9]+) -> (socket|anon_inode)/.test(line)).length`
          .replace(/\n\s*/g, ''));
      return { value: `${value}, and the child holds ${held === 0 ? 'nothing of it' : `${held} descriptors`}`, ms };
    },
  },
  {
    fault: 'replies come while the process ends', call: '200 requests, process.exit(3)', within: soon, ends: true,
    expected: 'the process ends with 3',
    async run(row) {
      const caller = await row.startCaller();
      await row.startAgent(...calm);
      caller.input.write('for (let i = 0; i < 200; ++i) pellmar.PLShowReleaseNotesWindow(); ' +
        'status(); process.exit(3)\n');
      const start = performance.now();
      const { status, signal } = await caller.end();
      return { value: `the process ends with ${signal ?? status}`, ms: performance.now() - start };
    },
  },
];

/** The system's wall clock, memory, and a process that is doubled. */
const systems = [
  ...[['ahead', 3], ['back', -3]].map(([way, hours]) => ({
    fault: `wall clock jumps ${way} by ${Math.abs(hours)} hours, again and again`, call: 'status()',
    within: twoSeconds,
    expected: '0 of an agent that hangs, 1 of one that answers after 0.5 s',
    preload: 'clock_jumper.so', environment: { CLOCK_JUMP: String(hours * 3600) },
    async run(row) {
      const caller = await row.startCaller();
      const { value: moved } = await caller.tell(
        `new Promise((done) => { const times = []; const timer = setInterval(() => {
          if (times.push(Date.now()) > 20) { clearInterval(timer); done(Math.max(...times) - Math.min(...times)); }
        }, 20); })`.replace(/\n\s*/g, ' '));
      caller.alsoExpected = [/WARNING: system time changed/];
      if (moved < 3 * 3600_000) throw new Error(`the clock has moved by ${moved} ms only`);
      const agent = await row.startAgent(...calm, '--hang', check);
      const hung = await caller.tell('status()');
      await agent.stop('SIGKILL');
      await row.startAgent(...calm, '--reply-delay', '500');
      let late;
      await until(async () => (late = await caller.tell('status()')).value !== '0', 'it is there again');
      const isLate = late.ms >= 450 && late.ms < 3800;
      return {
        value: `${hung.value} of an agent that hangs, ${late.value} of one that answers after ` +
          `${isLate ? 0.5 : late.ms / 1000} s`,
        ms: hung.ms,
      };
    },
  })),
  {
    fault: 'the caller forks without exec', call: 'request 20 codes', caller: 'native', within: soon,
    expected: '20 × code, 20 × code once the child has gone, the child ends with 0',
    async run(row) {
      const caller = await row.startCaller();
      await row.startAgent();
      await caller.tell('codes 1 1');
      await caller.tell('outcome 30000');
      await caller.tell('fork');
      await caller.tell('codes 20 2');
      const { value, ms } = await caller.tell('outcome 30000');
      const end = await caller.tell('reap');
      await caller.tell('codes 20 2');
      const after = await caller.tell('outcome 30000');
      return { value: `${value}, ${after.value} once the child has gone, ${end.value}`, ms };
    },
  },
  // The sanitizers end a process that gets no memory.
  ...(isSanitized() ? [] : [{
    fault: 'no memory for a reply of 64 MiB', call: 'request a code', caller: 'native', within: [0, 30_000],
    expected: '1 × error 4097, and with memory 1 × code',
    async run(row) {
      const caller = await row.startCaller();
      await row.startPeer('64-MiB', code);
      const { pid } = caller.process;
      const [, taken] = /^VmSize:\s*(\d+) kB$/m.exec(fs.readFileSync(`/proc/${pid}/status`, 'utf8'));
      const limit = (bytes) => execFileSync('prlimit', ['--pid', String(pid), `--as=${bytes}:`]);
      limit(Number(taken) * 1024 + (40 << 20));
      await caller.tell('codes 1 1');
      const { value, ms } = await caller.tell('outcome 30000');
      limit('unlimited');
      await caller.tell('codes 1 1');
      return { value: `${value}, and with memory ${(await caller.tell('outcome 30000')).value}`, ms };
    },
  }]),
];

/** A table with `text` for each of the window's texts; without the mark GNUstep would complain. */
const texts = (text) => '\ufeff' + ['Let’s stay in touch!', '%@ invites you to receive its newsletters and offers.',
  'Pellmar will share your %@ email with the developers of %@.', 'No, Thanks', 'Sure, I’m In', 'Ask Me Later']
  .map((key) => `"${key}" = ${text};\n`).join('');

/** The same with a byte that is no UTF-8 for each question mark. */
const invalid = (text) => Buffer.from(text).map((byte) => (byte === 0x3f ? 0xff : byte));

/** What the application says of itself: [fault, change, how many texts are English in spite of the table]. */
const applications = [
  ...['%n', '%s', '%99$@', '%@ %@ %@'].map((text) => [`each translation ${text}`, { table: texts(`"${text}"`) }, 3]),
  ['each translation of 10,000 characters', { table: texts(`"${'long '.repeat(2000)}"`) }, 0],
  ['translations in invalid UTF-8', { table: invalid(texts('"?"')) }, 0],
  ['translations that are no property list', { table: 'not = (a table' }, 0],
  ['each translation a list', { table: texts('( "a", "list" )') }, 0],
  ['name %@ %n %s', { name: '"%@ %n %s %99$@"' }, 0],
  ['name with line breaks', { name: '"The\\nLong\\nWinded\\nEditor"' }, 0],
  ['name of 10,000 characters', { name: `"${'Long Name '.repeat(1000)}"` }, 0],
  ['name a number', { name: '<*I42>' }, 0],
  ['no name', { name: null }, 0],
  ['no icon', { hasIcon: false }, 0],
].map(([fault, change, english]) => ({
  fault: `application: ${fault}`, call: 'ask(), Return', within: soon,
  expected: `callback(1)${english ? `, ${english} texts stay English` : ''}`,
  async run(row) {
    row.changeApplication(change);
    const { caller } = await row.startWindow();
    caller.alsoExpected = [/the placeholders of the translation do not fit/, /strings|property list|parse|plist/i];
    const { value, ms } = await answer(row, caller);
    const count = caller.stderr.match(/do not fit/g)?.length ?? 0;
    return { value: `${value}${count ? `, ${count} texts stay English` : ''}`, ms };
  },
}));

// The sanitizers' own allocators keep what is freed for a while.
const messages = isSanitized() ? [] : [
  {
    fault: 'debug messages without a pause for 10 s', call: 'PLEnableDebugLogging(true)', within: [0, 30_000],
    expected: 'messages come, the script is held up for 50 ms at the most, memory stays',
    async run(row) {
      const caller = await Caller.inHost(row, row.display);
      row.running = caller;
      caller.alsoExpected = [/message \d+ of the flood/, /are you there\?/];
      await caller.tell('pellmar.PLEnableDebugLogging(true)');
      const post = (...words) => spawn(path.join(buildFolder, 'debug_poster'), [String(caller.process.pid), ...words],
        { env: { ...process.env, ...row.session.env }, stdio: 'ignore' });
      await until(async () => {
        await once(post('text', 'are you there?'), 'close');
        return caller.stderr.includes('are you there?');
      }, 'the host hears a message', 20_000);
      const memory = () => Number(/^VmRSS:\s*(\d+) kB$/m.exec(
        fs.readFileSync(`/proc/${caller.process.pid}/status`, 'utf8'))[1]) / 1024;
      const start = performance.now();
      const poster = post('flood', '10');
      row.after(() => poster.kill('SIGKILL'));
      await until(() => caller.stderr.includes('of the flood'), 'the flood begins');
      await caller.tell('longestTurn(1000)');
      const before = memory();
      const { value: turn } = await caller.tell('longestTurn(9000)');
      const grown = memory() - before;
      const ms = performance.now() - start;
      poster.kill('SIGKILL');
      await caller.tell('pellmar.PLEnableDebugLogging(false)');
      return {
        value: `messages come, the script is held up for ${turn <= 50 ? '50 ms at the most' : `${turn} ms`}, ` +
          `memory ${grown < 32 ? 'stays' : `grows by ${grown} MiB`}`,
        ms,
      };
    },
  },
];

/** The domain of the application's defaults as it may be found. */
const defaults = [
  ['truncated', '{ ShouldAskForPermissionLater = YE'],
  ['of a wrong type', '{ ShouldAskForPermissionLater = (1, 2); }'],
  ['no property list', '\0\xff\xfe('],
].map(([kind, text]) => ({
  fault: `defaults ${kind}`, call: 'ask(), Escape, status()', within: soon,
  expected: 'callback(2), then 2',
  async run(row) {
    fs.mkdirSync(row.session.defaultsFolder, { recursive: true });
    fs.writeFileSync(path.join(row.session.defaultsFolder, `${application}.plist`), text, 'latin1');
    const { caller } = await row.startWindow();
    caller.alsoExpected = [/defaults|plist|property list|parse/i];
    const { value, ms } = await answer(row, caller, 'Escape');
    await row.windowIsGone();
    return { value: `${value}, then ${(await caller.tell('status()')).value}`, ms };
  },
}));

export const table = [
  ...absent, ...silent, ...dying, ...replacements, ...replies, ...malformed, ...crowds, ...scripts, ...surroundings,
  ...systems,
  ...[...windows, ...restarts, ...defaults, ...applications, ...messages].map((row) => ({ caller: 'window', ...row })),
];
