// Virtual displays, and the desktop host on them.

import { execFile, spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { createInterface } from 'node:readline';
import { setTimeout as delay } from 'node:timers/promises';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';

import { buildFolder } from './agent.mjs';

const run = promisify(execFile);
const hostCommand = fileURLToPath(new URL('../../scripts/host', import.meta.url));

/** Waits until `condition()` gives something true, and returns that. */
export async function until(condition, what, milliseconds = 60_000) {
  const end = performance.now() + milliseconds;
  for (;;) {
    const result = await condition();
    if (result) return result;
    if (performance.now() > end) throw new Error(`timed out waiting until ${what}`);
    await delay(10);
  }
}

async function stopProcess(child) {
  if (child.exitCode !== null || child.signalCode !== null) return;
  const end = once(child, 'exit');
  child.kill();
  await end;
}

class Display {
  #processes = [];

  /** The environment of a program that is to use this display. */
  env;

  static async start(windowManager, size) {
    const display = new Display();
    try {
      await display.#startServer(size);
      if (windowManager) await display.#startWindowManager();
    } catch (error) {
      await display.stop();
      throw error;
    }
    return display;
  }

  async #startServer(size) {
    const server = spawn(
      'Xvfb',
      ['-displayfd', '3', '-screen', '0', `${size}x24`, '-nolisten', 'tcp', '-noreset'],
      { stdio: ['ignore', 'ignore', 'ignore', 'pipe'] }
    );
    this.#processes.push(server);
    const [number] = await Promise.race([
      once(createInterface({ input: server.stdio[3] }), 'line'),
      once(server, 'exit').then(([code]) => {
        throw new Error(`Xvfb ended with ${code}`);
      }),
    ]);
    this.env = { DISPLAY: `:${number}` };
  }

  async #startWindowManager() {
    this.#processes.push(
      spawn('openbox', ['--sm-disable'], {
        stdio: 'ignore',
        env: { ...process.env, ...this.env },
      })
    );
    await until(
      async () => (await this.#x('xprop', '-root', '_NET_SUPPORTING_WM_CHECK')).includes('#'),
      'the window manager has started'
    );
  }

  async #x(command, ...args) {
    const { stdout } = await run(command, args, { env: { ...process.env, ...this.env } });
    return stdout.trim();
  }

  /** Runs xdotool: `await display.xdotool('key', 'Return')`. Returns what it prints. */
  async xdotool(...args) {
    return this.#x('xdotool', ...args.map(String));
  }

  /** Moves the pointer there and clicks. Coordinates are the screen's, from its top left. */
  async click(x, y) {
    await this.xdotool('mousemove', x, y, 'click', 1);
  }

  /** Writes what the screen shows to a PNG file. */
  async screenshot(file) {
    fs.mkdirSync(path.dirname(file), { recursive: true });
    await this.#x('import', '-silent', '-window', 'root', file);
  }

  /** The windows of the application that are on the screen, or all of them, as X numbers. */
  async windows(application, { visible = true } = {}) {
    // xdotool's exit code tells that there is none.
    const found = await this.xdotool(
      'search', ...(visible ? ['--onlyvisible'] : []), '--classname', `^${application}$`
    ).catch(() => '');
    return found.split('\n').filter(Boolean);
  }

  /** Waits until a window of the application has the keyboard. */
  async focused(application) {
    await until(async () => {
      const window = await this.xdotool('getwindowfocus').catch(() => '');
      return window && (await this.windows(application)).includes(window);
    }, `a window of ${application} has the keyboard`);
  }

  async stop() {
    for (const child of this.#processes.reverse()) await stopProcess(child);
  }
}

/**
 * Starts a virtual display of its own, with or without a window manager and so many pixels wide and
 * high. To be stopped with its `stop()`.
 */
export function startDisplay({ windowManager = true, size = '1280x800' } = {}) {
  return Display.start(windowManager, size);
}

class Host {
  #lines = [];
  #waiters = new Set();
  stdout = '';
  stderr = '';

  constructor(child) {
    this.process = child;
    child.stderr.on('data', (data) => (this.stderr += data));
    child.stdout.on('data', (data) => (this.stdout += data));
    createInterface({ input: child.stdout }).on('line', (line) => {
      this.#lines.push(line);
      for (const check of [...this.#waiters]) check();
    });
    /** Resolves with what the process left: `{ status, signal, stdout, stderr }`. */
    this.ended = once(child, 'close').then(([status, signal]) => {
      for (const check of [...this.#waiters]) check(true);
      return { status, signal, stdout: this.stdout, stderr: this.stderr };
    });
  }

  /**
   * Waits for the next line on standard output that was not waited for yet, and returns it: as the
   * value that it is as JSON, or else as a string.
   */
  next(milliseconds = 60_000) {
    return new Promise((resolve, reject) => {
      const finish = (settle, value) => {
        clearTimeout(timer);
        this.#waiters.delete(check);
        settle(value);
      };
      const fail = (why) => finish(reject, new Error(`${why}; standard error: ${this.stderr}`));
      const timer = setTimeout(() => fail('the host said nothing more in time'), milliseconds);
      const check = (ended) => {
        if (this.#lines.length > 0) finish(resolve, parsed(this.#lines.shift()));
        else if (ended) fail('the host ended');
      };
      this.#waiters.add(check);
      check();
    });
  }

  async stop() {
    await stopProcess(this.process);
    return this.ended;
  }
}

function parsed(line) {
  try {
    return JSON.parse(line);
  } catch {
    return line;
  }
}

/**
 * Runs a script file in the desktop host. It starts at once; `ended` of the result tells how it
 * went, and `next()` gives the lines that the script prints.
 *
 * `display`: one of `startDisplay`; without it the host has none. `env`: what to set besides.
 * `stdin`: what standard input is, as for `spawn`.
 */
export function runHost(file, { display, env = {}, args = [], stdin = 'ignore' } = {}) {
  const environment = {
    ...process.env, PELLMAR_BUILD_DIR: buildFolder, LC_ALL: 'C.UTF-8', ...display?.env, ...env,
  };
  // Whose desktop the tests run on must not show.
  if (!display && !('DISPLAY' in env)) delete environment.DISPLAY;
  if (!('DBUS_SESSION_BUS_ADDRESS' in env)) delete environment.DBUS_SESSION_BUS_ADDRESS;
  if (!('PELLMAR_APPEARANCE' in env)) delete environment.PELLMAR_APPEARANCE;
  return new Host(
    spawn(hostCommand, [file, ...args], { env: environment, stdio: [stdin, 'pipe', 'pipe'] })
  );
}

/**
 * The same with the text of a script. It finds `print(value)`, which writes one line of JSON. The
 * host is stopped and the file removed when the test context `t` ends.
 */
export function runHostScript(t, text, options) {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'pellmar-script-'));
  const file = path.join(folder, 'script.js');
  fs.writeFileSync(
    file,
    `const print = (value) => require('fs').writeSync(1, JSON.stringify(value) + '\\n');\n${text}`
  );
  const host = runHost(file, options);
  t.after(async () => {
    await host.stop();
    fs.rmSync(folder, { recursive: true, force: true });
  });
  return host;
}
