// Measures what the module exists for beside floors of its own, and prints a table. Started by
// scripts/bench: run.mjs BUILD [--json FILE] [--plots DIR].

import { execFile, spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import path from 'node:path';
import { createInterface } from 'node:readline';
import { fileURLToPath } from 'node:url';
import { parseArgs, promisify } from 'node:util';

import { Agent, makeSession } from '../tests/support/agent.mjs';
import { runHost, startDisplay } from '../tests/support/display.mjs';
import { plot } from './plot.mjs';

const run = promisify(execFile);
const here = path.dirname(fileURLToPath(import.meta.url));
const { values: options, positionals: [build] } = parseArgs({
  allowPositionals: true,
  options: { json: { type: 'string' }, plots: { type: 'string' } },
});

// --- Measuring ---------------------------------------------------------------------------------------

const sorted = (values) => [...values].sort((a, b) => a - b);
const median = (values) => sorted(values)[values.length >> 1];
const least = (values) => Math.min(...values);
const greatest = (values) => Math.max(...values);

/** What is to be undone at the end of one measurement. */
class Scope {
  #ends = [];

  after(end) {
    this.#ends.unshift(end);
  }

  async close() {
    for (const end of this.#ends) await end();
  }
}

async function within(work) {
  const scope = new Scope();
  try {
    return await work(scope, makeSession(scope));
  } finally {
    await scope.close();
  }
}

/** Starts the benchmarks' own agent and waits until it can be reached. */
async function startPeer(scope, session, ...args) {
  const child = spawn(`${build}/bench/bench_peer`, [session.folder, ...args], {
    env: { ...process.env, ...session.env },
    stdio: ['pipe', 'pipe', 'inherit'],
  });
  scope.after(async () => {
    const end = once(child, 'exit');
    child.kill('SIGCONT');
    child.stdin.end();
    await end;
  });
  await once(createInterface({ input: child.stdout }), 'line');
  return child;
}

async function script(session, file, args, flags = []) {
  const { stdout } = await run(process.execPath, [...flags, path.join(here, file), ...args.map(String)], {
    env: { ...process.env, ...session.env },
    timeout: 120_000,
  });
  return JSON.parse(stdout);
}

/** The calls of a script while the agent is in one of four states. */
const states = {
  up: (scope, session) => startPeer(scope, session),
  absent: () => {},
  hung: (scope, session) => Agent.start(scope, session, '--hang', 'reportUsageEvent:eventInfo:'),
  stopped: async (scope, session) => (await startPeer(scope, session)).kill('SIGSTOP'),
};

function measureCalls() {
  return within(async (scope) => {
    const scripts = {};
    for (const [state, start] of Object.entries(states)) {
      const session = makeSession(scope);
      await start(scope, session);
      const child = spawn(process.execPath,
        [path.join(here, 'calls.js'), build, 500, ...(state === 'up' ? ['drain'] : [])],
        { env: { ...process.env, ...session.env }, stdio: ['pipe', 'pipe', 'inherit'] });
      scope.after(() => child.kill());
      const lines = createInterface({ input: child.stdout })[Symbol.asyncIterator]();
      scripts[state] = async () => {
        child.stdin.write('\n');
        return JSON.parse((await lines.next()).value);
      };
    }
    // The states are interleaved, a few milliseconds each: the machine is faster or slower for some tens.
    const all = Object.fromEntries(Object.keys(states).map((state) => [state, {}]));
    for (let round = 0; round < 200; round++) {
      for (const [state, measure] of Object.entries(scripts)) {
        for (const [key, value] of Object.entries(await measure())) (all[state][key] ??= []).push(value);
      }
    }
    return all;
  });
}

/** Google Benchmark's results as lists of nanoseconds, by name. */
function measureConnection() {
  return within(async (scope, session) => {
    await startPeer(scope, session);
    const { stdout } = await run(`${build}/bench/connection_benchmark`, [
      // Short ones, interleaved: what else the machine does changes every few milliseconds.
      '--benchmark_format=json', '--benchmark_repetitions=60', '--benchmark_min_time=0.005',
      '--benchmark_enable_random_interleaving=true',
    ], { env: { ...process.env, ...session.env, PELLMAR_BENCH_FOLDER: session.folder },
      timeout: 300_000, maxBuffer: 1 << 26 });
    const times = {};
    for (const { run_type, run_name, real_time, threads, items_per_second } of JSON.parse(stdout).benchmarks) {
      if (run_type !== 'iteration') continue;
      const name = run_name.replace(/\/(real_time|iterations:\d+)/g, '');
      // A time per thread is divided by the threads there.
      (times[name] ??= []).push(items_per_second ? 1e9 / items_per_second : real_time * threads);
    }
    return times;
  });
}

async function measureLoad() {
  const modules = { ours: `${build}/pellmar.node`, empty: `${build}/bench/bench_empty.node` };
  const all = { ours: [], empty: [] };
  // A process takes half again as long when the machine is busy, so there are many, first one and
  // then the other module's.
  for (let turn = 0; turn < 120; turn++) {
    const order = Object.entries(modules);
    for (const [key, file] of turn % 2 ? order.reverse() : order) {
      // Has the system forget what it has read of the file.
      await run('dd', [`if=${file}`, 'iflag=nocache', 'count=0']);
      const load = () => within((_, session) => script(session, 'load.js', [file]));
      const cold = await load();
      all[key].push({ ...(await load()), cold: cold.time });
    }
  }
  return all;
}

const measureMemory = () => within(async (scope, session) => {
  await startPeer(scope, session);
  return script(session, 'memory.js', [build], ['--expose-gc']);
});

const measureAbsent = () => within((_, session) => script(session, 'request.js', [build, 50]));

const measureDesktop = () => within(async (scope, session) => {
  await startPeer(scope, session, '--should-ask');
  const display = await startDisplay();
  scope.after(() => display.stop());
  const host = runHost(path.join(here, 'desktop.js'), {
    display, args: [build, '80'],
    env: { ...session.env, PELLMAR_BUILD_DIR: build, PELLMAR_APPEARANCE: 'light' },
  });
  scope.after(() => host.stop());
  return host.next(120_000);
});

// --- Rows ----------------------------------------------------------------------------------------------

const rows = [];

/**
 * The median of each round's own ratio: on a machine that has two speeds, the medians of ours and of the
 * floor would each jump from one to the other.
 */
const ratioOf = (ours, floor) => median(ours.map((value, round) => value / floor[round]));

/** A row whose goal is a multiple of the floor, and perhaps more: `also(ours, floor)`. */
function addRatio(name, unit, ours, floor, most, also = () => true, alsoText = '') {
  const row = {
    name, unit,
    ours: median(ours), oursLeast: least(ours), floor: median(floor), floorLeast: least(floor),
    goal: `≤ ${most} ×${alsoText}`,
  };
  row.ratio = ratioOf(ours, floor);
  row.held = row.ratio <= most && also(row.ours, row.floor);
  rows.push(row);
}

/** A row whose goal is a number of its own. */
function addLimit(name, unit, ours, most, floor) {
  const row = {
    name, unit, ours: median(ours), oursLeast: least(ours),
    floor: floor && median(floor), floorLeast: floor && least(floor), ratio: null,
    goal: floor ? `≤ ${most} ${unit} more` : `≤ ${most} ${unit}`,
  };
  row.held = row.ours - (row.floor ?? 0) <= most;
  rows.push(row);
}

/** A row that only tells. */
function addNote(name, unit, ours) {
  rows.push({ name, unit, ours: median(ours), oursLeast: least(ours), ratio: null, goal: '–', held: true });
}

const calls = await measureCalls();
addRatio('PLCanShowReleaseNotesWindow()', 'ns', calls.up.canShow, calls.up.empty, 1.15);
addRatio('PLReportUsageEvent(), agent up', 'ns', calls.up.event, calls.up.convert, 8,
  (ours) => ours < 1000, ', < 1000 ns');
for (const state of ['absent', 'hung', 'stopped']) {
  addRatio(`PLReportUsageEvent(), agent ${state}`, 'ns', calls[state].event, calls.up.event, 1.3);
  addLimit(`  longest of 100,000 calls, agent ${state}`, 'ms', [greatest(calls[state].longest)], 5);
  addNote('  the machine stood still meanwhile', 'ms', [greatest(calls[state].standstill)]);
}

const connection = await measureConnection();
const perSecond = (times) => times.map((nanoseconds) => 1e9 / nanoseconds);
{
  const ours = perSecond(connection['EventsOurs/20']);
  const floor = perSecond(connection['EventsFloor/20']);
  const row = {
    name: 'usage events through to the agent', unit: '/s', goal: '≥ 0.5 ×',
    ours: median(ours), oursLeast: least(ours), floor: median(floor), floorLeast: least(floor),
  };
  row.ratio = ratioOf(ours, floor);
  row.held = row.ratio >= 0.5;
  rows.push(row);
}
const microseconds = (times) => times.map((nanoseconds) => nanoseconds / 1000);
addRatio('PLGetLastUserEmailSharingResponse()', 'µs', microseconds(connection.RoundTripOurs),
  microseconds(connection.RoundTripFloor), 1.5);
addLimit('  the same without an agent', 'ms', await measureAbsent(), 5);

const load = await measureLoad();
const loads = (key, field) => load[key].map((one) => one[field]);
addRatio('require, cold', 'ms', loads('ours', 'cold'), loads('empty', 'cold'), 1.1);
addRatio('require, warm', 'ms', loads('ours', 'time'), loads('empty', 'time'), 1.1);
addLimit('  threads and descriptors added by it', '',
  load.ours.map((one) => one.threads + one.descriptors), 0);

const desktop = await measureDesktop();
addRatio('ask to window on screen', 'ms', desktop.window, desktop.empty, 2,
  (ours, floor) => ours - floor <= 16, ', ≤ 16 ms more');
addLimit('appearance switch', 'ms', desktop.switch, 8);
// Hiding the window comes first, and is the toolkit's and the display's.
const inMicroseconds = (times) => times.map((milliseconds) => milliseconds * 1000);
addRatio('click to script callback, without orderOut:', 'µs',
  inMicroseconds(desktop.click.map((time, i) => time - desktop.orderOut[i])),
  inMicroseconds(desktop.block), 1.5);
addNote('  its orderOut:', 'µs', inMicroseconds(desktop.orderOut));

addLimit('resident memory added by require', 'MiB', loads('ours', 'resident'), 1,
  loads('empty', 'resident'));
const memory = await measureMemory();
addLimit('resident memory after 1,000,000 events', 'MiB', [memory.after], 4, [memory.before]);

// --- What comes of it ----------------------------------------------------------------------------------

const number = (value) => value === undefined || value === null ? '–'
  : value >= 1000 ? value.toFixed(0) : value.toPrecision(3);
const lines = [
  ['', 'ours (least)', 'floor (least)', 'ratio', 'goal', ''],
  ...rows.map((row) => [
    row.name,
    `${number(row.ours)} ${row.unit} (${number(row.oursLeast)})`,
    row.floor === undefined ? '–' : `${number(row.floor)} ${row.unit} (${number(row.floorLeast)})`,
    row.ratio === null ? '–' : row.ratio.toFixed(2),
    row.goal,
    row.goal === '–' ? '' : row.held ? 'held' : 'MISSED',
  ]),
];
const widths = lines[0].map((_, column) => Math.max(...lines.map((line) => line[column].length)));
for (const line of lines) {
  console.log(line.map((cell, column) => cell.padEnd(widths[column])).join('  ').trimEnd());
}

if (options.json) {
  const kept = rows.map(({ name, unit, ours, floor, ratio, goal, held }) => ({
    name: `${name.trim()}${unit && `, ${unit}`}`, ours, floor: floor ?? null, ratio, goal, held,
  }));
  fs.writeFileSync(options.json, `${JSON.stringify({ rows: kept }, null, 2)}\n`);
}
if (options.plots) await plot(options.plots, connection);
process.exitCode = rows.every((row) => row.held) ? 0 : 1;
