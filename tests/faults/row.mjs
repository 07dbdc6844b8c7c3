// One row of the table while it runs: its processes, and what holds for each row besides what the
// caller gets.

import fs from 'node:fs';
import path from 'node:path';
import { setTimeout as delay } from 'node:timers/promises';

import { Agent, agentPath, buildFolder, makeSession } from '../support/agent.mjs';
import { until } from '../support/display.mjs';
import { Caller, complaintsIn } from './callers.mjs';

export const application = 'Pellmar Demo';
export const decline = 'No, Thanks';
/** In points from the window's top left. */
const declinePlace = [217, 290];
const service = 'com.pellmar.ProvisioningService';
const update = 'updateAllowedCustomerEmail:callback:';

/** Threads of the workers that may rest for a while after their work. */
const restingThreads = 4;

export class Row {
  #cleanups = [];
  #agents = [];
  #session;
  #baseline;

  constructor(definition, display) {
    Object.assign(this, definition);
    this.display = display;
  }

  get session() {
    return (this.#session ??= makeSession(this));
  }

  after(cleanup) {
    this.#cleanups.push(cleanup);
  }

  async cleanUp() {
    for (const cleanup of this.#cleanups.reverse()) await cleanup();
  }

  /** Starts a development agent; an object among the options is environment. */
  async startAgent(...options) {
    const words = options.filter((option) => typeof option === 'string');
    const env = Object.assign({}, ...options.filter((option) => typeof option !== 'string'));
    return this.#start(agentPath, ['serve', ...words], env);
  }

  async startPeer(fault, ...selector) {
    return this.#start(path.join(buildFolder, 'fault_peer'), [fault, ...selector]);
  }

  async #start(program, args, env) {
    const session = { env: { ...this.session.env, ...env } };
    const agent = await Agent.startProgram(this, session, program, args, 'pipe');
    agent.stderr = '';
    agent.process.stderr.on('data', (data) => (agent.stderr += data));
    this.#agents.push(agent);
    return agent;
  }

  /** Starts what the definition names, if anything. */
  async startServer() {
    if (this.agent) return this.startAgent(...this.agent);
    if (this.peer) return this.startPeer(...this.peer);
    return null;
  }

  /** Starts plain node, or the native caller, and has it find out that nobody is there. */
  async startCaller() {
    const isNative = this.caller === 'native';
    const caller = await (isNative ? Caller.native(this) : Caller.inNode(this));
    this.running = caller;
    await caller.tell(isNative ? 'status' : 'readFiles(8).then(() => status())');
    this.countAgain();
    return caller;
  }

  /** Waits until the caller opens and closes nothing any more. */
  async settled() {
    let before;
    let since = performance.now();
    await until(() => {
      const now = `${this.running.descriptors} ${this.running.threads}`;
      if (now !== before) [before, since] = [now, performance.now()];
      return performance.now() - since > 500;
    }, 'the caller rests');
  }

  /** What the caller has open from here on must be given back. */
  countAgain() {
    const { descriptors, threads } = this.running;
    this.#baseline = { descriptors, threads };
  }

  /** Starts the host with the window up and its look changing all the time; returns both ends. */
  async startWindow({ agent = [], peer, ask = 'ask()' } = {}) {
    const served = await (peer ? this.startPeer(...peer) : this.startAgent(...agent));
    const caller = await Caller.inHost(this, this.display);
    this.running = caller;
    await caller.tell('switchLooks()');
    await this.shownBy(caller, ask);
    return { agent: served, caller };
  }

  /** Has the host ask and waits until the window has the keyboard. */
  async shownBy(caller, ask = 'ask()') {
    const { value, ms } = await caller.tell(ask);
    if (ms > 1900) throw new Error('asking timed out waiting for the reply');
    if (value !== 'true') throw new Error(`asking returned ${value}`);
    await this.display.focused(application);
  }

  /** Presses a key, or the button that has none. */
  async press(key) {
    await (key === decline ? this.click(declinePlace) : this.display.xdotool('key', key));
  }

  /** Clicks into the window, in points from its top left. */
  async click([right, down]) {
    const [window] = await until(async () => {
      const windows = await this.display.windows(application);
      return windows.length > 0 && windows;
    }, 'the window is on the screen');
    const text = await this.display.xdotool('getwindowgeometry', '--shell', window);
    const [x, y] = ['X', 'Y'].map((name) => Number(new RegExp(`^${name}=(.*)$`, 'm').exec(text)[1]));
    await this.display.click(x + right, y + down);
  }

  async windowIsGone() {
    await until(async () => (await this.display.windows(application)).length === 0,
      'the window is gone');
  }

  /**
   * Starts another agent where nobody finds it, and returns what lets it take the service's place: from
   * one moment to the next, whether anybody serves there or not.
   */
  async prepareSuccessor(...options) {
    const folder = fs.mkdtempSync(path.join(this.session.folder, 'successor-'));
    const successor = await this.startAgent(...options, { COCOA_SERVICE_DIR: folder });
    return () => {
      fs.renameSync(path.join(folder, service),
        path.join(this.session.env.COCOA_SERVICE_DIR, service));
      return successor;
    };
  }

  /** What all agents of this row were told of the customer's answer. */
  get told() {
    return this.#agents.flatMap((agent) => agent.requestsOf(update))
      .map((request) => request.arguments[0]);
  }

  /** What must hold for every caller that has not been ended by the row itself. */
  async leftNothing() {
    const problems = [];
    const caller = this.running;
    for (const agent of this.#agents) await agent.stop('SIGKILL');
    if (this.#baseline) problems.push(...(await this.#givesBack(caller)));
    const ended = await (this.caller === 'window' ? this.#endHost(caller) : caller.finish());
    if (ended.status !== 0) problems.push(`the process ended with ${ended.signal ?? ended.status}`);
    for (const [question, answers] of caller.answersOf) {
      if (answers !== 1) problems.push(`question ${question} was answered ${answers} times`);
    }
    return [...problems, ...this.neverWrong(caller)];
  }

  /** With nobody there, what belongs to connections is given back, and the module works on. */
  async #givesBack(caller) {
    const problems = [];
    const { descriptors, threads } = this.#baseline;
    await until(() => caller.descriptors <= descriptors, '', 20_000).catch(() =>
      problems.push(`${caller.descriptors - descriptors} descriptors left`));
    await until(() => caller.threads <= threads + restingThreads, '', 20_000).catch(() =>
      problems.push(`${caller.threads - threads} threads left`));
    const { value } = await caller.tell(this.caller === 'native' ? 'status' : 'status()');
    if (value !== '0') problems.push(`the call after it gave ${value}`);
    return problems;
  }

  async #endHost(caller) {
    caller.input.write('app.quit()\n');
    return caller.end();
  }

  /** What must hold of a caller that has ended, in whatever way. */
  neverWrong(caller) {
    const complaints = [
      ...complaintsIn(caller.stderr, caller.alsoExpected),
      ...this.#agents.flatMap((agent) => complaintsIn(agent.stderr)),
    ];
    if (this.never?.test(caller.stderr)) complaints.unshift(this.never.exec(caller.stderr)[0]);
    const reports = /^.*(Sanitizer|runtime error):.*$/m.exec(caller.stderr);
    if (reports) complaints.unshift(reports[0]);
    const problems = complaints.length ? [`on standard error: ${complaints[0]}`] : [];
    for (const [question, answers] of caller.answersOf) {
      if (answers > 1) problems.push(`question ${question} was answered ${answers} times`);
    }
    return problems;
  }

  /**
   * Has the host be a copy of the application: with `name` as the value of CFBundleName in its property list
   * or null for none, with `table` as its texts, without an icon.
   */
  changeApplication({ name, table, hasIcon = true }) {
    const build = path.join(this.session.folder, 'build');
    const bundle = `${application}.app`;
    // A link where the slices run: what is changed must not be what all others use.
    fs.cpSync(fs.realpathSync(path.join(buildFolder, bundle)), path.join(build, bundle), { recursive: true });
    fs.copyFileSync(path.join(buildFolder, 'CMakeCache.txt'), path.join(build, 'CMakeCache.txt'));
    const resources = path.join(build, bundle, 'Resources');
    const file = path.join(resources, 'Info-gnustep.plist');
    let text = fs.readFileSync(file, 'utf8');
    if (name !== undefined) {
      text = text.replace(/CFBundleName = .*;/, () => (name === null ? '' : `CFBundleName = ${name};`));
    }
    if (!hasIcon) {
      text = text.replace(/NSIcon = .*;/, '');
      fs.rmSync(path.join(resources, 'Icon.png'));
    }
    fs.writeFileSync(file, text);
    if (table !== undefined) fs.writeFileSync(path.join(resources, 'Pellmar.strings'), table);
    this.environment = { PELLMAR_BUILD_DIR: build };
  }

  makeUnwritableDefaults() {
    const folder = path.join(this.session.env.HOME, 'GNUstep');
    fs.writeFileSync(folder, 'not a folder');
  }
}
