// Starts the development agent as a process of its own and hears what it prints.

import { spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { createInterface } from 'node:readline';
import { setTimeout as delay } from 'node:timers/promises';
import { fileURLToPath } from 'node:url';

const root = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../..');

export const buildFolder = path.resolve(
  process.env.PELLMAR_BUILD_DIR ?? path.join(root, 'build/Release')
);
/** The runtime that scripts are tried in; the tests themselves run in the one that is installed. */
export const nodePath = process.env.PELLMAR_NODE ?? process.execPath;
/** Beginning of a script that uses `WeakRef`, which Node 12's engine has behind a flag. */
export const weakReferences = `
  if (typeof WeakRef === 'undefined') {
    require('v8').setFlagsFromString('--harmony-weak-refs');
    globalThis.WeakRef = require('vm').runInNewContext('WeakRef');
  }`;
export const agentPath = path.join(buildFolder, 'pellmar-dev-agent');

/**
 * Makes folders of a test's own for the service's socket and for the user's defaults, and the
 * environment that points there. They are removed when the test context `t` ends.
 */
export function makeSession(t) {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'pellmar-'));
  const home = path.join(folder, 'home');
  const defaultsFolder = path.join(home, 'GNUstep/Defaults');
  const serviceFolder = path.join(folder, 'services');
  fs.mkdirSync(home);
  fs.mkdirSync(serviceFolder, { mode: 0o700 });
  t?.after(() => removeSession(folder));
  return {
    folder,
    defaultsFolder,
    env: {
      HOME: home,
      GNUSTEP_CONFIG_FILE: toolkitConfiguration(folder, defaultsFolder),
      COCOA_SERVICE_DIR: serviceFolder,
      // The notification daemon is found by a file in the temporary folder: this gives the session
      // one of its own.
      TEMP: folder,
    },
  };
}

/**
 * Removes a session's folder, although a daemon may still be putting its own file away, or an
 * application that ends may start another one. (The retries of `rmSync` are for the folder alone, not
 * for what has come into it meanwhile.)
 */
async function removeSession(folder) {
  for (let triesLeft = 30; ; triesLeft--) {
    endNotificationDaemons(folder);
    try {
      fs.rmSync(folder, { recursive: true, force: true });
      return;
    } catch (error) {
      if (error.code !== 'ENOTEMPTY' || triesLeft === 0) throw error;
      await delay(100);
    }
  }
}

/** Ends the session's notification daemons, which would outlive their clients by far. */
function endNotificationDaemons(folder) {
  for (const process of fs.readdirSync('/proc').filter((name) => /^\d+$/.test(name))) {
    try {
      if (fs.readFileSync(`/proc/${process}/comm`, 'utf8') === 'gdnc\n' &&
          fs.readFileSync(`/proc/${process}/environ`, 'utf8').split('\0').includes(`TEMP=${folder}`)) {
        globalThis.process.kill(Number(process));
      }
    } catch {
      // It has ended meanwhile, or is another user's.
    }
  }
}

/** GNUstep finds the user's home by the user's name, so another place for defaults takes a file. */
function toolkitConfiguration(folder, defaultsFolder) {
  const file = path.join(folder, 'GNUstep.conf');
  const system = fs.readFileSync('/etc/GNUstep/GNUstep.conf', 'utf8');
  fs.writeFileSync(file, `${system}\nGNUSTEP_USER_DEFAULTS_DIR=${defaultsFolder}\n`);
  return file;
}

export class Agent {
  #lines = [];
  #waiters = [];

  constructor(process) {
    this.process = process;
    createInterface({ input: process.stdout }).on('line', (line) => {
      this.#lines.push(JSON.parse(line));
      for (const waiter of [...this.#waiters]) waiter();
    });
  }

  /** Starts `pellmar-dev-agent serve` and waits until it listens. */
  static start(t, session, ...options) {
    return Agent.startProgram(t, session, agentPath, ['serve', ...options]);
  }

  /** The same with another program that says what the agent says. */
  static async startProgram(t, session, program, args, stderr = 'inherit') {
    const child = spawn(program, args, {
      env: { ...process.env, ...session.env },
      stdio: ['ignore', 'pipe', stderr],
    });
    const agent = new Agent(child);
    t?.after(() => agent.stop());
    await agent.#until((lines) => lines.some((line) => line.event === 'listening'), 30_000);
    return agent;
  }

  get requests() {
    return this.#lines.filter((line) => line.event === 'request');
  }

  /** The requests of one method so far. */
  requestsOf(method) {
    return this.requests.filter((request) => request.method === method);
  }

  /** Waits until the method was requested `count` times. */
  async waitFor(method, count = 1, milliseconds = 60_000) {
    await this.#until(() => this.requestsOf(method).length >= count, milliseconds);
    return this.requestsOf(method);
  }

  #until(condition, milliseconds) {
    return new Promise((resolve, reject) => {
      const finish = (settle, value) => {
        clearTimeout(timer);
        this.#waiters = this.#waiters.filter((waiter) => waiter !== check);
        settle(value);
      };
      const timer = setTimeout(
        () => finish(reject, new Error(`agent: timed out; heard ${JSON.stringify(this.#lines)}`)),
        milliseconds
      );
      const check = () => condition(this.#lines) && finish(resolve);
      this.#waiters.push(check);
      check();
    });
  }

  /** Stops it until SIGCONT, and waits until it stands: a thread of it may still answer meanwhile. */
  async suspend() {
    this.process.kill('SIGSTOP');
    const threads = `/proc/${this.process.pid}/task`;
    const stands = (thread) => {
      try {
        return / T \d+ /.test(fs.readFileSync(`${threads}/${thread}/stat`, 'utf8'));
      } catch {
        return true; // it has just ended
      }
    };
    while (!fs.readdirSync(threads).every(stands)) await delay(1);
  }

  /** Ends the agent, stopped or not, and waits for its end. */
  async stop(signal = 'SIGTERM') {
    if (this.process.exitCode === null && this.process.signalCode === null) {
      const end = once(this.process, 'exit');
      this.process.kill('SIGCONT');
      this.process.kill(signal);
      await end;
    }
    return this.process.exitCode;
  }
}
