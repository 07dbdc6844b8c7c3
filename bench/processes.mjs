// The processes of one measurement.

import { spawn } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

import { Caller } from '../tests/faults/callers.mjs';
import { Agent, agentPath, buildFolder, makeSession } from '../tests/support/agent.mjs';
import { until } from '../tests/support/display.mjs';

const calls = fileURLToPath(new URL('calls.js', import.meta.url));

/** One measurement, and what is to be undone at its end. */
export class Scope {
  #ends = [];
  session = makeSession(this);

  after(end) {
    this.#ends.unshift(end);
  }

  static async run(work) {
    const scope = new Scope();
    try {
      return await work(scope);
    } finally {
      for (const end of scope.#ends) await end();
    }
  }

  agent(...args) {
    return Agent.start(this, this.session, ...args);
  }

  /** One whose lines nobody reads, so that it has nothing else to do than to answer. */
  async quietAgent(...args) {
    const child = spawn(agentPath, ['serve', ...args], { env: this.env, stdio: 'ignore' });
    this.after(() => child.kill());
    const service = path.join(this.session.env.COCOA_SERVICE_DIR, 'com.pellmar.ProvisioningService');
    await until(() => fs.existsSync(service), 'the agent listens');
  }

  /** A process that has the module loaded: `await process('question()')` gives what calls.js has of it. */
  async process() {
    return this.#calls(await Caller.inNode(this));
  }

  /** The same in the desktop host; `log()` gives its standard error. */
  async host(display) {
    const caller = await Caller.inHost(this, display);
    return Object.assign(await this.#calls(caller), { pid: caller.process.pid, log: () => caller.stderr });
  }

  async #calls(caller) {
    const call = async (code) => {
      const { value } = await caller.tell(code);
      if (/^threw/.test(value)) throw new Error(`${code} ${value}`);
      return value;
    };
    await call(`Object.assign(globalThis, require(${JSON.stringify(calls)})(${JSON.stringify(buildFolder)})); 0`);
    return call;
  }

  get env() {
    return { ...process.env, ...this.session.env };
  }
}

/** Calls `work` so many times, and makes lists by name of the results. */
export async function repeat(times, work) {
  const lists = {};
  for (let i = 0; i < times; i++) {
    for (const [key, value] of Object.entries(await work(i))) (lists[key] ??= []).push(value);
  }
  return lists;
}
