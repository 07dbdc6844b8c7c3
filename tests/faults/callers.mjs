// Processes that call the module, and what can be seen of them from outside.

import { spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import path from 'node:path';
import { createInterface } from 'node:readline';
import { fileURLToPath } from 'node:url';

import { buildFolder } from '../support/agent.mjs';
import { runHost, until } from '../support/display.mjs';
import { sanitizerEnvironment } from '../support/sanitizer.mjs';

export const modulePath = path.join(buildFolder, 'pellmar.node');
const script = fileURLToPath(new URL('script.js', import.meta.url));

/** What the platform and the module may write to standard error while something is wrong. */
const expectedLines = [
  /\bXPC: /,
  /Pellmar client [\d.]+: debug logging is on for this process\.$/,
];

/** The lines of standard error that should not be there. */
export function complaintsIn(stderr, alsoExpected = []) {
  return stderr.split('\n').filter((line) => line &&
    ![...expectedLines, ...alsoExpected].some((pattern) => pattern.test(line)));
}

export class Caller {
  #waiting = [];
  #events = [];
  #ended = false;
  #check = () => {};
  stderr = '';
  /** How many answers each question had. */
  answersOf = new Map();
  /** Lines of standard error that are expected besides. */
  alsoExpected = [];
  /** Is given each event as it comes. */
  onEvent = () => {};

  constructor(child) {
    this.process = child;
    this.input = child.stdin;
    child.stderr.on('data', (data) => (this.stderr += data));
    createInterface({ input: child.stdout }).on('line', (line) => this.#hear(JSON.parse(line)));
    this.ended = once(child, 'close').then(([status, signal]) => {
      this.#ended = true;
      for (const { reject } of this.#waiting) reject(new Error(`the caller ended: ${this.stderr}`));
      this.#check();
      return { status, signal };
    });
    // It may end while it is told something.
    child.stdin.on('error', () => {});
  }

  #hear(line) {
    if (line.event === 'asked') {
      this.answersOf.set(line.question, 0);
    } else if ('event' in line) {
      if (line.event === 'answer') {
        this.answersOf.set(line.question, this.answersOf.get(line.question) + 1);
      }
      this.#events.push(line);
      this.onEvent(line);
      this.#check();
    } else {
      this.#waiting.shift()?.resolve(line);
    }
  }

  /** Starts plain node with the module loaded. */
  static async inNode(row) {
    const env = { ...process.env, ...sanitizerEnvironment(), ...row.session.env, ...row.environment };
    delete env.DISPLAY;
    if (row.preload) {
      env.LD_PRELOAD = [env.LD_PRELOAD, path.join(buildFolder, row.preload)].filter(Boolean).join(':');
    }
    const caller = Caller.#start(row, process.execPath, [script, modulePath], env);
    await caller.event('ready');
    return caller;
  }

  /** Starts the native caller. */
  static async native(row) {
    const env = { ...process.env, ...row.session.env };
    return Caller.#start(row, path.join(buildFolder, 'fault_caller'), [], env);
  }

  static #start(row, program, args, env) {
    const child = spawn(program, args, { env, stdio: ['pipe', 'pipe', 'pipe'] });
    const caller = new Caller(child);
    row.after(() => caller.kill());
    return caller;
  }

  /** Starts the desktop host with the module loaded. */
  static async inHost(row, display) {
    const { process: child } = runHost(script, {
      display, env: { ...row.session.env, ...row.environment }, args: [modulePath], stdin: 'pipe',
    });
    const caller = new Caller(child);
    row.after(() => caller.kill());
    // Where leaks are looked for, an engine takes its time to start.
    await caller.event('ready', 120_000);
    return caller;
  }

  /** Has the code run, or the native command, and returns `{ value, ms }`. */
  tell(line) {
    return new Promise((resolve, reject) => {
      if (this.#ended) reject(new Error(`the caller has ended: ${this.stderr}`));
      this.#waiting.push({ resolve, reject });
      this.input.write(`${line}\n`);
    });
  }

  /** Waits for the next event of that name and returns it. */
  async event(name, milliseconds = 40_000) {
    let found;
    await new Promise((resolve, reject) => {
      const timer = setTimeout(
        () => reject(new Error(`timed out waiting for ${name}: ${this.stderr}`)), milliseconds);
      this.#check = () => {
        const at = this.#events.findIndex((event) => event.event === name);
        if (at < 0 && !this.#ended) return;
        clearTimeout(timer);
        [found] = at < 0 ? [] : this.#events.splice(at, 1);
        if (found) resolve();
        else reject(new Error(`the caller ended before ${name}: ${this.stderr}`));
      };
      this.#check();
    }).finally(() => (this.#check = () => {}));
    return found;
  }

  count(what) {
    return fs.readdirSync(`/proc/${this.process.pid}/${what}`).length;
  }

  get descriptors() {
    return this.count('fd');
  }

  get sockets() {
    const folder = `/proc/${this.process.pid}/fd`;
    return fs.readdirSync(folder).filter((name) => {
      try {
        return fs.readlinkSync(path.join(folder, name)).startsWith('socket:');
      } catch {
        return false;  // Closed meanwhile.
      }
    }).length;
  }

  get threads() {
    return this.count('task');
  }

  /** Closes the input and waits for the process to end by itself. */
  async finish() {
    this.input.end();
    return this.end();
  }

  /** Waits for the process's end: `{ status, signal }`. */
  async end(milliseconds = 10_000) {
    let result;
    this.ended.then((value) => (result = value));
    await until(() => result, 'the caller has ended', milliseconds);
    return result;
  }

  async kill() {
    this.process.kill('SIGKILL');
    await this.ended;
  }
}
