// How costs grow: measures what the table does not have, and draws it.

import { execFile } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { promisify } from 'node:util';

import { startDisplay, until } from '../tests/support/display.mjs';
import { draw } from './plot.mjs';
import { repeat, Scope } from './processes.mjs';
import { median } from './table.mjs';

const run = promisify(execFile);

/** Milliseconds of a question behind so many events. */
const questionsBehind = (counts) => Scope.run(async (scope) => {
  await scope.quietAgent('--should-ask', 'no');
  const process = await scope.process();
  const times = [];
  for (const count of counts) times.push(median((await repeat(7, () => process(`behind(${count})`))).ours));
  return times;
});

/** Clients that each ask every 100 ms: the agent's memory in MiB, and the longest that any of them waits, in ms. */
const clients = (counts) => Scope.run(async (scope) => {
  const agent = await scope.agent('--should-ask', 'no');
  const processes = [];
  const found = { memory: [], worst: [] };
  for (const count of counts) {
    while (processes.length < count) processes.push(await scope.process());
    found.worst.push(Math.max(...await Promise.all(processes.map((process) => process('worst(3000)')))));
    const status = fs.readFileSync(`/proc/${agent.process.pid}/status`, 'utf8');
    found.memory.push(/VmRSS:\s+(\d+)/.exec(status)[1] / 1024);
  }
  return found;
});

/**
 * Debug messages of a process that does not wait until they are logged: the milliseconds until all are, and the
 * longest for which no script ran meanwhile.
 */
const relay = (build, counts) => Scope.run(async (scope) => {
  const display = await startDisplay({ windowManager: false });
  scope.after(() => display.stop());
  const host = await scope.host(display);
  const post = (...args) => run(`${build}/debug_poster`, [String(host.pid), ...args], { env: scope.env });
  await host('pellmar.PLEnableDebugLogging(true)');
  await until(async () => {
    await post('text', 'are you there?');
    return host.log().includes('are you there?');
  }, 'the host hears a message', 30_000);
  const found = { time: [], gap: [] };
  for (const count of counts) {
    const from = host.log().length;
    await host('gap()');
    const start = performance.now();
    await post('burst', String(count));
    await until(() => host.log().slice(from).includes(`message ${count - 1} of the burst`), 'all are logged', 60_000);
    found.time.push(performance.now() - start);
    found.gap.push(await host('gap()'));
  }
  return found;
});

/** Draws the pictures into `folder`. `sizes`: times of events by the name of their size. */
export async function drawGrowth(build, folder, sizes) {
  const picture = (name, contents) => draw(path.join(folder, `performance-${name}.svg`), contents);

  const events = [0, 100, 1000, 10_000, 100_000];
  await picture('queued', {
    title: 'A question behind events', across: 'events reported just before', unit: 'ms', labels: events,
    series: [{ name: 'question', values: await questionsBehind(events) }],
  });

  const by = (kind) => Object.values(sizes).map((rounds) => median(rounds[kind]));
  await picture('size', {
    title: "The longest of five events, on the script's thread", across: "the event's size", unit: 'ms',
    labels: Object.keys(sizes), logarithmic: true,
    series: [{ name: 'client', values: by('ours') }, { name: 'bare connection', values: by('floor') },
      { name: 'conversion alone', values: by('convert') }],
  });

  const clientCounts = [1, 3, 10, 30, 100];
  const { memory, worst } = await clients(clientCounts);
  await picture('clients', {
    title: 'Clients that each ask every 100 ms', across: 'clients', unit: "ms of the slowest question",
    rightUnit: "MiB of the agent", labels: clientCounts,
    series: [{ name: 'slowest question', values: worst }, { name: "agent's memory", values: memory, isRight: true }],
  });

  const messages = [100, 1000, 10_000, 50_000];
  const { time, gap } = await relay(build, messages);
  await picture('relay', {
    title: 'Debug messages in one burst', across: 'messages', unit: 'ms', labels: messages, logarithmic: true,
    series: [{ name: 'until all are logged', values: time }, { name: "the script's longest gap", values: gap }],
  });
}
