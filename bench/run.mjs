// Counts what the product costs, measures what the customer feels beside floors of the same run, and prints a
// table. Started by scripts/bench: run.mjs [--json FILE] [--plots DIR] [--record].

import { execFile } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { setTimeout as delay } from 'node:timers/promises';
import { fileURLToPath } from 'node:url';
import { parseArgs, promisify } from 'node:util';

import { runHost, startDisplay } from '../tests/support/display.mjs';
import { buildFolder as build } from '../tests/support/agent.mjs';
import { figuresOf } from '../tests/bundle/figures.mjs';
import { costOfCalls } from './callgrind.mjs';
import { drawGrowth } from './growth.mjs';
import { repeat, Scope } from './processes.mjs';
import { median, Table } from './table.mjs';

const run = promisify(execFile);
const here = path.dirname(fileURLToPath(import.meta.url));
const { values: options } = parseArgs({
  options: { json: { type: 'string' }, plots: { type: 'string' }, record: { type: 'boolean' } },
});
const event = 'reportUsageEvent:eventInfo:';
const recordFile = path.join(here, 'recorded.json');
const table = new Table(JSON.parse(fs.readFileSync(recordFile, 'utf8')));

// --- The product's own cost --------------------------------------------------------------------------

/** The desktop host's surroundings. */
const desktop = { PELLMAR_BUILD_DIR: build, PELLMAR_APPEARANCE: 'light', LC_ALL: 'C.UTF-8' };

/** Runs a script under callgrind beside an agent with those options, and gives the costs of what it counts. */
const count = (options, command, ...args) => Scope.run(async (scope) => {
  const folder = path.join(scope.session.folder, 'counts');
  fs.mkdirSync(folder);
  await scope.agent(...options);
  const display = await startDisplay();
  scope.after(() => display.stop());
  await run('valgrind', ['--tool=callgrind', '--instr-atstart=no', `--callgrind-out-file=${folder}/out`, command,
    ...args, `${folder}/methods`], { env: { ...scope.env, ...display.env, ...desktop } });
  return costOfCalls(folder, fs.realpathSync(`${build}/pellmar.node`));
});

const countCalls = () => count(['--should-ask', 'no'], process.execPath, path.join(here, 'counted.js'), build);
const host = `${build}/Pellmar Demo.app`;
const countWindow = () => count(['--always-ask'], `${host}/Pellmar Demo`, `${host}/Resources/main.js`,
  path.join(here, 'windows.js'), build, 'count');

/** What events 20 ms apart cost each: of the process alone, and what comes to the agent. */
function measureSpaced(what, hasAgent) {
  // All of them between two checks of the connection, of which the second comes with the 257th event.
  const rounds = 80;
  // Other threads of the engine would be woken up at any time.
  const script = [process.execPath, '--single-threaded', path.join(here, 'steady.js'), build, what, String(rounds)];
  return Scope.run(async (scope) => {
    const trace = path.join(scope.session.folder, 'trace');
    const agent = hasAgent && await scope.agent();
    const traced = run('strace', ['-f', '-qq', '-o', trace, ...script], { env: scope.env });
    // Once more without a trace, whose stops would be wake-ups.
    const printed = (await Promise.all([traced, Scope.run(async (other) => {
      if (hasAgent) await other.agent();
      return run(script[0], script.slice(1), { env: other.env });
    })])).map(({ stdout }) => JSON.parse(stdout));
    const calls = (times, pattern) => {
      const text = fs.readFileSync(trace, 'utf8').split(`/rounds-${times}"`)[1].split('/rounds-end"')[0];
      return text.split('\n').slice(1, -1).filter((line) => !/resumed>/.test(line) && pattern.test(line)).length;
    };
    const isConnection = /^\d+ +connect\(/;
    const each = (pattern) => (calls(2 * rounds, pattern) - calls(rounds, pattern)) / rounds;
    const connections = calls(rounds, isConnection) + calls(2 * rounds, isConnection);
    return {
      'system calls': each(/^/),
      'connections opened a second': connections / printed[0].seconds,
      'wake-ups': printed[1].wakeUps,
      'messages to the agent': hasAgent ? agent.requests.length / (3 * rounds + 10) : 0,
    };
  });
}

const names = {
  event: 'an event', events: '256 events', scriptEvent: 'an event of a script', question: 'a question',
  code: 'a code', notes: 'release notes', relay: 'the relay on and off', window: 'the window, shown and answered',
};
const goals = { 'an event: instructions': 120, 'an event: messages': 8 };

async function countAll() {
  const [calls, window, timer, present, absent] = await Promise.all([countCalls(), countWindow(),
    measureSpaced('timer', false), measureSpaced('event', true), measureSpaced('event', false)]);
  table.group("The product's own cost");
  for (const [key, name] of Object.entries(names)) {
    for (const [kind, amount] of Object.entries({ ...calls, ...window }[key])) {
      table.counted(`${name}: ${kind}`, amount, { most: goals[`${name}: ${kind}`] });
    }
  }
  for (const [state, found] of Object.entries({ up: present, absent })) {
    for (const [kind, amount] of Object.entries(found)) {
      const name = `an event every 20 ms, agent ${state}: ${kind}`;
      // Attempts to connect come by the clock, and their threads do not meet in the same way each time.
      if (state === 'up' || /messages/.test(kind)) table.counted(name, amount, { floor: timer[kind] });
      else if (/connections/.test(kind)) table.limit(name, amount, 4);
      else table.told(name, amount, timer[kind]);
    }
  }
}

// --- What the customer feels -------------------------------------------------------------------------

/** What ten seconds of calls cost while the agent hangs. */
const measureHung = () => Scope.run(async (scope) => {
  const agent = await scope.agent();
  const process = await scope.process();
  await agent.suspend();
  return process('hung()');
});

async function measureFirst() {
  const first = await repeat(16, () => Scope.run(async (scope) => {
    await scope.quietAgent('--should-ask', 'no');
    return (await scope.process())('first()');
  }));
  table.ratio('the first question of a process, ms', first.question, first.floorQuestion, 2);
  table.ratio('the first event of a process, ms', first.event, first.floorEvent, 2);
}

const measureQuestions = () => Scope.run(async (scope) => {
  await scope.quietAgent('--should-ask', 'no');
  const process = await scope.process();
  await process('connect()');
  const call = await repeat(20, () => process('calls()'));
  table.ratio('a function that asks nobody, ms', call.ours, call.floor, 1.2);
  const question = await repeat(200, () => process('question()'));
  table.ratio('a question, ms', question.ours, question.floor, 2);
  const behind = await repeat(15, () => process('behind(100_000)'));
  table.ratio('a question behind 100,000 events, ms', behind.ours, behind.floor, 2);

  const hung = await Scope.run(async (other) => {
    const agent = await other.agent('--should-ask', 'no', '--hang', event);
    const hungProcess = await other.process();
    await hungProcess('connect()');
    await hungProcess('report(1)');
    await agent.waitFor(event);
    return repeat(100, async () => ({
      ours: (await hungProcess('question()')).ours, floor: (await process('question()')).ours }));
  });
  table.ratio('a question behind a hung event method, ms', hung.ours, hung.floor, 2);
});

const measureAbsent = () => Scope.run(async (scope) => {
  const process = await scope.process();
  const times = await repeat(50, async () => ({ ours: await process('absent()') }));
  table.limit('a question without an agent, ms', median(times.ours), 5);
});

const measureSpacedTimes = () => Scope.run(async (scope) => {
  await scope.quietAgent();
  const present = await scope.process();
  await present('connect()');
  const absent = await Scope.run(async (other) => {
    const process = await other.process();
    // Both at once: what slows one slows the other.
    const [ours, floor] = await Promise.all([repeat(8, () => process('spaced(52, false)')),
      repeat(8, () => present('spaced(52, true)'))]);
    table.ratio('an event every 20 ms, ms', floor.ours, floor.floor, 2);
    return [ours.ours, floor.ours];
  });
  table.ratio('  without an agent, ms', ...absent, 2);
});

const sizes = { '20 B': 20, '1 KiB': 1 << 10, '64 KiB': 1 << 16, '1 MiB': 1 << 20 };

const measureSizes = () => Scope.run(async (scope) => {
  await scope.quietAgent();
  const process = await scope.process();
  await process('connect()');
  const found = {};
  for (const [name, size] of Object.entries(sizes)) {
    const rounds = await repeat(size < 1 << 20 ? 40 : 8, () => process(`size(${size})`));
    table.ratio(`the longest of 5 events of ${name}, ms`, rounds.ours, rounds.floor, 2);
    found[name] = rounds;
  }
  return found;
});

/** The most events that an agent gets and the memory in MiB, when `send` is called while it is stopped. */
const measureStopped = (warmUp, send) => Scope.run(async (scope) => {
  const agent = await scope.agent();
  const process = await scope.process();
  await process(warmUp);
  // The client has the last of these acknowledged.
  await agent.waitFor(event, 2049);
  await delay(500);
  await agent.suspend();
  const before = await process('memory()');
  await process(send);
  const memory = await process('memory()') - before;
  agent.process.kill('SIGCONT');
  for (let heard = 0; heard < agent.requests.length; await delay(1000)) heard = agent.requests.length;
  return { memory, events: agent.requestsOf(event).length - 2049 };
});

async function measureWindows() {
  const kinds = ['empty', 'plain', 'consent'];
  const rounds = await repeat(12, (i) => Scope.run(async (scope) => {
    await scope.agent('--always-ask');
    const display = await startDisplay({ windowManager: false });
    scope.after(() => display.stop());
    const shown = {};
    // In turns: what comes first finds less in the caches.
    for (const kind of i % 2 ? kinds : [...kinds].reverse()) {
      const later = kind === 'consent' && i < 3 ? 10 : 0;
      const host = runHost(path.join(here, 'windows.js'),
        { display, args: [build, kind, later], env: { ...scope.session.env, ...desktop } });
      scope.after(() => host.stop());
      shown[kind] = await host.next(60_000);
    }
    return shown;
  }));
  const first = (kind) => rounds[kind].map(({ first: { shown } }) => shown);
  const later = (kind, what) => rounds.consent.flatMap((round) => round[kind].map((one) => one[what]));
  table.ratio('the first window of a process, ms', first('consent'), first('plain'), 2);
  table.ratio('  against an empty one, ms', first('consent'), first('empty'));
  table.ratio('a later window, ms', later('consent', 'shown'), later('plain', 'shown'), 2);
  table.ratio('  against an empty one, ms', later('consent', 'shown'), later('empty', 'shown'));
  table.ratio('a click, ms', later('consent', 'clicked'), later('plain', 'clicked'), 4);
}

async function measureLoad() {
  const script = `
    const { execPath, hrtime, memoryUsage } = process;
    const count = () => ['task', 'fd'].reduce((n, folder) => n + fs.readdirSync('/proc/self/' + folder).length, 0);
    count();
    const before = [count(), memoryUsage.rss(), hrtime.bigint()];
    require(process.argv[1]);
    const time = Number(hrtime.bigint() - before[2]) / 1e6;
    const memory = (memoryUsage.rss() - before[1]) / 2 ** 20;
    console.log(JSON.stringify({ time, memory, added: count() - before[0] }))`;
  const load = (file) => Scope.run(async ({ env }) =>
    JSON.parse((await run(process.execPath, ['-e', script, file], { env })).stdout));
  const modules = [['ours', `${build}/pellmar.node`], ['floor', `${build}/bench/bench_empty.node`]];
  const loads = await repeat(24, async (i) => {
    const times = {};
    // In turns, since what comes second finds more in the caches.
    for (const [key, file] of i % 2 ? modules : [...modules].reverse()) times[key] = await load(file);
    return times;
  });
  const [ours, floor] = [loads.ours, loads.floor].map((list) => (what) => list.map((one) => one[what]));
  table.ratio('require, ms', ours('time'), floor('time'), 1.2);
  table.limit('  threads and descriptors added', Math.max(...ours('added')), 0);
  table.limit('  memory added, MiB', median(ours('memory')), 1, median(floor('memory')));
}

// --- All of it ---------------------------------------------------------------------------------------

// Counts are the same on a busy machine, and a call that hangs takes its time on an idle one.
const [hung] = await Promise.all([measureHung(), countAll()]);
table.group('What the customer feels');
await measureFirst();
await measureQuestions();
await measureAbsent();
table.limit('all calls of 10 s to an agent that hangs, ms', hung, 2200);
await measureSpacedTimes();
const bySize = await measureSizes();
const stopped = await measureStopped('report(2049)', 'report(3_000_000)');
table.limit('events outstanding after 3,000,000 to a stopped agent', stopped.events, 4096);
const bare = await measureStopped('connect(); sendBare(2049)', 'sendBare(4096)');
table.limit('  memory that they take, MiB', stopped.memory, 4, bare.memory);
await measureWindows();
await measureLoad();

const bundle = path.join(here, '../build/macos/pellmar.node');
if (fs.existsSync(bundle)) {
  table.group('The file for a Mac');
  for (const [name, figure] of Object.entries(figuresOf(bundle))) table.counted(name, figure);
}

console.log(String(table));
const write = (file, value) => fs.writeFileSync(file, `${JSON.stringify(value, null, 2)}\n`);
if (options.json) write(options.json, { rows: table.rows });
if (options.record) write(recordFile, table.lowered());
if (options.plots) await drawGrowth(build, options.plots, bySize);
process.exitCode = table.rows.every(({ held }) => held !== false) ? 0 : 1;
