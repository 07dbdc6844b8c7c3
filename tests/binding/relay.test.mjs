// The debug log relay over real processes: a host that listens, a poster, a notification daemon.

import assert from 'node:assert/strict';
import { execFile, execFileSync, spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { promisify } from 'node:util';

import { agentPath, buildFolder, makeSession, nodePath } from '../support/agent.mjs';
import { runHostScript, startDisplay, until } from '../support/display.mjs';
import { sanitizerEnvironment } from '../support/sanitizer.mjs';

const modulePath = path.join(buildFolder, 'pellmar.node');
const poster = path.join(buildFolder, 'debug_poster');
const counter = path.join(buildFolder, 'center_counter.so');
const run = promisify(execFile);

let display;
before(async () => (display = await startDisplay({ windowManager: false })));
after(() => display.stop());

/** What the relay logged, a message each; the toolkit's own prefix is taken off. */
function logged({ stderr }) {
  const prefix = /^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} Pellmar Demo\[\d+:\d+\] /;
  return stderr.split('\n').filter((line) => prefix.test(line))
    .map((line) => line.replace(prefix, ''))
    .filter((line) => !/debug logging is on/.test(line));
}

const started = (app) =>
  app.stderr.split('\n').filter((line) => /debug logging is on for this process/.test(line));

/**
 * Starts a host that does what the test tells it: `app.tell(code)` runs the code there and waits
 * until it has.
 */
async function host(t, session, { env = {} } = {}) {
  const pipe = path.join(session.folder, `told-${Math.random()}`);
  execFileSync('mkfifo', [pipe]);
  const app = runHostScript(t, `
    const pellmar = require(${JSON.stringify(modulePath)});
    const { performance } = require('perf_hooks');
    let longestStall = 0;
    function watchStalls() {
      let last = performance.now();
      setInterval(() => {
        const now = performance.now();
        longestStall = Math.max(longestStall, now - last);
        last = now;
      }, 1);
    }
    const lines = require('readline').createInterface({
      input: require('fs').createReadStream(${JSON.stringify(pipe)}) });
    lines.on('line', (line) => { const value = eval(line); print(['told', value === undefined ? null : value]); });
    print('ready');`, { display, env: { ...session.env, ...env } });
  // For reading too: opening a pipe that nobody reads would wait for good.
  const input = fs.createWriteStream(pipe, { flags: 'r+' });
  t.after(() => input.destroy());
  assert.equal(await app.next(), 'ready');
  app.tell = async (code) => {
    input.write(`${code}\n`);
    const [, value] = await app.next(30_000);
    return value;
  };
  return app;
}

const post = (session, app, ...args) =>
  run(poster, [String(app.process.pid), ...args], { env: { ...process.env, ...session.env } });
const send = (session, app, ...args) =>
  run(agentPath, ['log', '--pid', String(app.process.pid), ...args],
    { env: { ...process.env, ...session.env } });

/** Waits until the host hears messages; the daemon may only just have been started. */
async function hears(session, app) {
  await until(async () => {
    await post(session, app, 'text', 'are you there?');
    await new Promise((done) => setTimeout(done, 100));
    return logged(app).length > 0;
  }, 'the host hears a message', 20_000);
  // Those of the attempts before may still be on their way; this one is the last.
  await post(session, app, 'text', 'go');
  await until(() => logged(app).at(-1) === 'go', 'the last of them has come');
  return logged(app).length;
}

test('a message for this process is logged once, as it was sent', async (t) => {
  const session = makeSession(t);
  const app = await host(t, session);
  await app.tell('pellmar.PLEnableDebugLogging(true)');
  const before = await hears(session, app);
  assert.equal(started(app).length, 1);
  await send(session, app, '--app-name', 'Agent', 'hello, application');
  await until(() => logged(app).length > before, 'the message is logged');
  assert.deepEqual(logged(app).slice(before), ['hello, application']);
});

test('a process with another identifier hears nothing', async (t) => {
  const session = makeSession(t);
  const [one, other] = await Promise.all([host(t, session), host(t, session)]);
  for (const app of [one, other]) await app.tell('pellmar.PLEnableDebugLogging(true)');
  const before = await hears(session, one);
  const otherBefore = await hears(session, other);
  await send(session, one, 'for one only');
  await until(() => logged(one).length > before, 'the message is logged');
  await send(session, other, 'for the other');
  await until(() => logged(other).length > otherBefore, 'the message is logged');
  assert.deepEqual(logged(one).slice(before), ['for one only']);
  assert.deepEqual(logged(other).slice(otherBefore), ['for the other']);
});

test('on twice and off once leaves no observer, and the started line comes once', async (t) => {
  const session = makeSession(t);
  const app = await host(t, session);
  await app.tell('pellmar.PLEnableDebugLogging(true); pellmar.PLEnableDebugLogging(true)');
  const before = await hears(session, app);
  await app.tell('pellmar.PLEnableDebugLogging(false)');
  await send(session, app, 'unheard');
  // Once it is on again a later message shows that the earlier one was not merely slow.
  await app.tell('pellmar.PLEnableDebugLogging(true)');
  await until(async () => {
    await send(session, app, 'heard');
    await new Promise((done) => setTimeout(done, 100));
    return logged(app).length > before;
  }, 'the host hears again');
  assert.deepEqual([...new Set(logged(app).slice(before))], ['heard']);
  assert.equal(started(app).length, 1);
});

test('a notification without a message logs nothing', async (t) => {
  const session = makeSession(t);
  const app = await host(t, session);
  await app.tell('pellmar.PLEnableDebugLogging(true)');
  const before = await hears(session, app);
  await post(session, app, 'without-message');
  await post(session, app, 'without-user-info');
  await post(session, app, 'text', 'last');
  await until(() => logged(app).length > before, 'the message is logged');
  assert.deepEqual(logged(app).slice(before), ['last']);
});

test('text of another process is logged and nothing else', async (t) => {
  const session = makeSession(t);
  const app = await host(t, session);
  await app.tell('pellmar.PLEnableDebugLogging(true)');
  const before = await hears(session, app);
  const text = '%@ %s %n %1$@ %999999d 100 % %%';
  await post(session, app, 'text', text);
  await post(session, app, 'text', 'Grüße\tan 世界 🎉');
  await post(session, app, 'number');
  await post(session, app, 'text', 'last');
  await until(() => logged(app).at(-1) === 'last', 'the last message is logged');
  assert.deepEqual(logged(app).slice(before), [text, 'Grüße\tan 世界 🎉', '42', 'last']);
});

test('no text can end or stall the host', async (t) => {
  const session = makeSession(t);
  const app = await host(t, session);
  await app.tell('pellmar.PLEnableDebugLogging(true)');
  await hears(session, app);
  await post(session, app, 'text', 'one line\nand another\r\n');
  for (const kind of ['nul', 'array']) await post(session, app, kind);
  await post(session, app, 'megabytes', '8');
  await post(session, app, 'text', 'last');
  await until(() => logged(app).at(-1) === 'last', 'the last message is logged', 30_000);
  assert.match(app.stderr, /one line\nand another/);
  assert.equal(await app.tell('1 + 1'), 2);
});

test('a burst of 10,000 messages is logged in order and each once, and the script keeps turning', async (t) => {
  const session = makeSession(t);
  const app = await host(t, session);
  await app.tell('pellmar.PLEnableDebugLogging(true)');
  const before = await hears(session, app);
  await app.tell('watchStalls()');
  const start = performance.now();
  await post(session, app, 'burst', '10000');
  await until(() => logged(app).length >= before + 10_000, 'all messages are logged', 300_000);
  assert.deepEqual(logged(app).slice(before),
    Array.from({ length: 10_000 }, (_, i) => `message ${i} of the burst`));
  const all = performance.now() - start;
  const longest = await app.tell('longestStall');
  t.diagnostic(`the script's longest stall: ${longest.toFixed(1)} of ${all.toFixed(0)} ms`);
  assert.ok(longest < all / 4, `${longest} of ${all} ms`);
});

/** Runs a script in plain node with the center's calls counted; returns the calls as letters. */
function counted(session, text, expectStatus = 0) {
  return countedRun(session, nodePath,
    ['-e', `const pellmar = require(${JSON.stringify(modulePath)}); ${text}`], expectStatus);
}

async function countedRun(session, program, args, expectStatus = 0) {
  const file = path.join(session.folder, `calls-${Math.random()}`);
  fs.writeFileSync(file, '');
  const child = spawn(program, args,
    { env: { ...process.env, ...session.env, LD_PRELOAD: counter, CENTER_COUNTER_FILE: file },
      stdio: 'ignore' });
  const [status, signal] = await once(child, 'exit');
  assert.equal(signal, null);
  assert.equal(status, expectStatus);
  return fs.readFileSync(file, 'utf8');
}

const skip = 'LD_PRELOAD' in sanitizerEnvironment() &&
  'the counter and the sanitizer would both have to be loaded first';

test('each end of a process removes the observer, once', { skip }, async (t) => {
  const session = makeSession(t);
  const on = 'pellmar.PLEnableDebugLogging(true);';
  assert.equal(await counted(session, on), 'ar');
  assert.equal(await counted(session, `${on} process.exit(3)`, 3), 'ar');
  assert.equal(await counted(session, `${on} throw new Error('uncaught')`, 1), 'ar');
});

test('the center is called only where something changes', { skip }, async (t) => {
  const session = makeSession(t);
  const calls = (...values) =>
    counted(session, values.map((value) => `pellmar.PLEnableDebugLogging(${value});`).join(''));
  assert.equal(await calls(), '');
  assert.equal(await calls(false), '');
  assert.equal(await calls(false, false, true), 'ar');
  assert.equal(await calls(true, true, false), 'ar');
  assert.equal(await calls(true, false, false, true, false), 'arar');
});

test('any value but zero turns on, and only the lowest bit tells whether it turns off', { skip }, async (t) => {
  const session = makeSession(t);
  const calls = (...values) =>
    countedRun(session, path.join(buildFolder, 'relay_bits'), values.map(String));
  assert.equal(await calls(2), 'ar');
  assert.equal(await calls(1, 3, 255), 'ar');
  assert.equal(await calls(1, 2), 'ar');
  assert.equal(await calls(1, 2, 2), 'arar');
  assert.equal(await calls(0), '');
});

/** A folder for PATH with what the host's start and the toolkit need, and no daemon to start. */
function folderWithoutDaemon(session) {
  const folder = path.join(session.folder, 'tools');
  fs.mkdirSync(folder);
  // The last two tell base 1.31 the machine's architecture.
  for (const tool of ['dirname', 'readlink', 'grep', 'sh', 'clang-19', 'dpkg', 'dpkg-architecture']) {
    const file = path.join('/usr/bin', tool);
    if (fs.existsSync(file)) fs.symlinkSync(file, path.join(folder, tool));
  }
  return folder;
}

test('turning on does not wait for a daemon that is missing, and says nothing of it', async (t) => {
  const session = makeSession(t);
  const { stdout, stderr } = await run(nodePath, ['-e', `
    const pellmar = require(${JSON.stringify(modulePath)});
    const { performance } = require('perf_hooks');
    const start = performance.now();
    pellmar.PLEnableDebugLogging(true);
    const elapsed = performance.now() - start;
    setTimeout(() => console.log(elapsed), 1000);`],
    { env: { ...process.env, ...sanitizerEnvironment(), ...session.env, PATH: folderWithoutDaemon(session) } });
  assert.ok(Number(stdout) < 1900, `${stdout} ms`); // a wait is of two seconds
  assert.deepEqual(stderr.split('\n').filter((line) => line && !/debug logging is on/.test(line)), []);
});

test('a daemon that comes late is found', async (t) => {
  const session = makeSession(t);
  const app = await host(t, session, { env: { PATH: folderWithoutDaemon(session) } });
  await app.tell('pellmar.PLEnableDebugLogging(true)');
  // The poster, whose path has the daemon, starts it.
  await hears(session, app);
  assert.equal(await app.tell('2 + 2'), 4);
});
