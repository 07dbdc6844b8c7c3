// A process that goes through a sequence: the desktop host with the module and native threads, agents that come and
// go, and a customer. What happened is its trace, for `judge`.

import { once } from 'node:events';
import path from 'node:path';
import { setTimeout as delay } from 'node:timers/promises';
import { fileURLToPath } from 'node:url';

import { buildFolder } from '../support/agent.mjs';
import { until } from '../support/display.mjs';
import { Caller, modulePath } from './callers.mjs';
import { Row, application, decline } from './row.mjs';
import { agents, parse } from './sequence_steps.mjs';

const calls = fileURLToPath(new URL('sequence_calls.js', import.meta.url));
const nativePath = path.join(buildFolder, 'tests/faults/native_calls.node');
const update = 'updateAllowedCustomerEmail:callback:';
const keys = { 'command-w': 'alt+w', decline };
/** In points from the window's top left. */
const closeMark = [16, 14];
const daemonSockets = 2;
const restingThreads = 4;
/** For what takes its time on a busy machine, and must come at last. */
const generous = 60_000;
/** For what is given back once nobody needs it: threads that rest go last. */
const patient = 15_000;
/** For a window that may come. */
const soon = 400;
const lifeLimit = 300_000;

/** Objects that must be gone with their calls. */
const classes = {
  controllers: 'AFXPermissionWindowController', windows: 'AFXPermissionWindow', groups: 'OS_dispatch_group',
  connections: 'PlatformXPCConnection', queues: 'OS_dispatch_queue',
};

const now = () => Number(process.hrtime.bigint()) / 1e6;

/** Something that does not come: a fault by itself. */
class Missing extends Error {
  constructor(rule, text) {
    super(text);
    this.rule = rule;
  }
}

class Life {
  #row;
  #display;
  #caller;
  #serving;
  #served = [];
  #expected = new Set();
  #pending = [];
  #baseline;
  #count = 0;
  trace = [];

  constructor(display) {
    this.#display = display;
    this.#row = new Row({ caller: 'window' }, display);
  }

  async begin() {
    this.#caller = await Caller.inHost(this.#row, this.#display);
    this.#caller.onEvent = (event) => {
      this.trace.push(event);
      if (event.event === 'returned') this.#expected.delete(event.call);
    };
    await this.#tell(`require(${JSON.stringify(calls)})(${[modulePath, nativePath].map((file) => JSON.stringify(file))})`);
    await this.#warmUp();
  }

  /** What the process makes once and keeps is there before anything is counted. */
  async #warmUp() {
    const { sockets } = this.#caller;
    await this.#run(parse('serve:asks log-on native-code:8 native-status:8 native-ask:1 ask settle'));
    await until(() => this.#caller.sockets >= sockets + daemonSockets, 'the daemon is connected', generous);
    await this.#answerAll();
    await this.#run(parse('log-off event notes look:dark look:light settle'));
    await this.#tell('readFiles(8)');
    await this.#rest();
    // The workers' threads that rest are among those that are there.
    this.#baseline = await this.#holdings();
    this.trace.length = 0;
    this.#served = [];
  }

  async #tell(code) {
    const { value } = await this.#caller.tell(code);
    if (/^threw /.test(value)) throw new Error(`${code}: ${value}`);
    return value;
  }

  /** The same without waiting for it before the next `settle`. */
  #tellLater(code) {
    const told = this.#tell(code);
    // A process that has ended shows when something is waited for.
    told.catch(() => {});
    this.#pending.push(told);
  }

  #note(event, more) {
    this.trace.push({ event, at: now(), ...more });
  }

  /** Does something to the agent, between two times. */
  async #change(does, action) {
    const begun = now();
    const more = await action();
    this.#note('agent', { does, begun, ...more });
  }

  async #run(steps) {
    for (const { step, argument } of steps) {
      if (step in this.#steps) await this.#steps[step](argument);
      else if (step.startsWith('native-')) this.#callNatively(step.slice('native-'.length), argument);
      else this.#call(step);
    }
  }

  #steps = {
    serve: (name) => this.#serve(name),
    replace: (name) => this.#replace(name),
    kill: () => this.#kill(),
    stop: () => this.#stop(),
    continue: () => this.#continue(),
    flap: (count) => this.#flap(Number(count)),
    wait: (milliseconds) => delay(Number(milliseconds)),
    settle: () => this.#settle(),
    quiet: () => this.#quiet(),
    look: (name) => this.#look(name),
    ...Object.fromEntries(['Return', 'Escape', 'command-w', 'decline', 'close-mark'].map((answer) =>
      [answer, () => this.#answer(answer)])),
  };

  // Agents

  /** Options with an address of its own, by which it can be told what was told to whom. */
  #optionsOf(name) {
    const id = this.#served.length;
    const options = [...agents[name].agent, '--email', `customer-${id}@example.com`];
    const isWrong = agents[name].agent.includes('--wrong-type');
    return { id, options, email: isWrong ? null : options.at(-1) };
  }

  #serves(serving) {
    this.#serving = serving;
    this.#served.push(serving);
    const { id, name, email } = serving;
    return { id, name, email };
  }

  async #serve(name) {
    await this.#kill();
    await this.#change('serve', async () => {
      if (agents[name].peer) {
        const agent = await this.#row.startPeer(...agents[name].peer);
        return this.#serves({ id: this.#served.length, name, email: 'customer@example.com', agent });
      }
      const { options, ...serving } = this.#optionsOf(name);
      return this.#serves({ ...serving, name, agent: await this.#row.startAgent(...options) });
    });
  }

  async #replace(name) {
    const { options, ...serving } = this.#optionsOf(name);
    const succeed = await this.#row.prepareSuccessor(...options);
    await this.#change('serve', async () => {
      const agent = succeed();
      await this.#serving?.agent.stop('SIGKILL');
      return this.#serves({ ...serving, name, agent });
    });
  }

  async #kill() {
    const serving = this.#serving;
    this.#serving = undefined;
    if (serving) await this.#change('kill', async () => void await serving.agent.stop('SIGKILL'));
  }

  async #stop() {
    if (!this.#serving || this.#serving.stands) return;
    this.#serving.stands = true;
    // It may have ended by itself.
    await this.#change('stop', () => this.#serving.agent.suspend().catch(() => {}));
  }

  async #continue() {
    if (!this.#serving?.stands) return;
    this.#serving.stands = false;
    await this.#change('continue', () => void this.#serving.agent.process.kill('SIGCONT'));
  }

  async #flap(count) {
    for (let i = 0; i < count; ++i) {
      await this.#serve('asks');
      await delay(50);
      await this.#kill();
      await delay(50);
    }
  }

  // Calls

  #call(kind) {
    const call = `${++this.#count}`;
    this.#expected.add(call);
    this.#tellLater(`make('${kind}', '${call}')`);
  }

  #callNatively(kind, argument) {
    const call = `${++this.#count}`;
    const [threads, wait = 0] = argument.split('+').map(Number);
    for (let i = 0; i < threads; ++i) this.#expected.add(`${call}.${i}`);
    this.#tellLater(`native.call('${kind}', '${call}', '${threads}', '${wait}')`);
  }

  /** Waits until all calls have returned. */
  async #settle() {
    await Promise.all(this.#pending.splice(0));
    await until(() => this.#expected.size === 0, '', generous).catch(() => {
      throw new Missing('hangs', `calls ${[...this.#expected]} do not return`);
    });
  }

  // The customer and the desktop

  #look(name) {
    const switches = name === 'flicker'
      ? 'for (let i = 0; i < 10; ++i) setTimeout(switchLook, 40 * i); 0' : `switchLook('${name}')`;
    this.#tellLater(switches);
  }

  /** Answers the window that is up, or comes soon, if there is one. */
  async #answer(answer) {
    let window;
    await until(async () => ([window] = await this.#display.windows(application)).length > 0, '', soon).catch(() => {});
    if (!window) return;
    await this.#display.focused(application);
    if (answer === 'close-mark') await this.#row.click(closeMark);
    else await this.#row.press(keys[answer] ?? answer);
    await until(async () => !(await this.#display.windows(application)).includes(window), '', generous).catch(() => {
      throw new Missing('window stays', `the window stays after ${answer}`);
    });
    this.#note('answered', { answer });
  }

  // Quiet

  /** Has everything come to its end, and notes what is left. */
  async #quiet() {
    await this.#continue();
    await this.#settle();
    await this.#answerAll();
    if (agents[this.#serving?.name]?.serves) await this.#findAgain();
    await this.#rest();
    this.#call('status');
    await this.#settle();
    for (const { id, agent } of this.#served.splice(0, this.#served.length)) {
      for (const { arguments: given } of agent.requestsOf(update)) this.#note('told', { id, email: given?.[0] });
    }
    let left;
    await until(async () => {
      left = await this.#left();
      return Object.values(left).every((count) => count <= 0);
    }, '', patient).catch(() => {});
    this.#note('quiet', { left });
  }

  /** Without an agent, all completions come. */
  async #rest() {
    await this.#kill();
    await Promise.all(this.#served.map(({ agent: { process: { stdout } } }) => stdout.closed || once(stdout, 'close')));
    await until(async () => (await this.#holdings()).completions <= (this.#baseline?.completions ?? 0), '', patient)
      .catch(() => {});
  }

  /** Answers the windows that there are, and those that come of their answers. */
  async #answerAll() {
    for (;;) {
      const mark = `drain ${++this.#count}`;
      await this.#tell(`native.drain('${mark}')`);
      await this.#caller.event('drained');
      const { controllers } = await this.#holdings();
      if (controllers <= (this.#baseline?.controllers ?? 0)) return;
      await until(async () => (await this.#display.windows(application)).length > 0, '', generous).catch(() => {
        throw new Missing('no window', 'a window was asked for and is not on the screen');
      });
      await this.#answer('Return');
    }
  }

  /** An agent that serves is found, whatever was before. */
  async #findAgain() {
    await until(async () => {
      this.#callNatively('code', '1');
      await this.#settle();
      const call = `${this.#count}.0`;
      let callback;
      await until(() => (callback = this.trace.find((entry) => entry.event === 'callback' && entry.call === call)),
        '', generous);
      return callback.value === 'code';
    }, '', generous).catch(() => {
      throw new Missing('not found', 'an agent that serves is not found');
    });
  }

  async #holdings() {
    const counts = await this.#tell(`native.holdings(${JSON.stringify(Object.values(classes))})`);
    return {
      ...Object.fromEntries(Object.entries(classes).map(([name, counted]) => [name, counts[counted]])),
      completions: counts.completions, descriptors: this.#caller.descriptors, threads: this.#caller.threads,
    };
  }

  async #left() {
    const holdings = await this.#holdings();
    const left = Object.fromEntries(Object.entries(holdings).map(([name, count]) =>
      [name, count - this.#baseline[name]]));
    left.threads -= restingThreads;
    return left;
  }

  async end() {
    this.#caller.input.write('app.quit()\n');
    const { status, signal } = await this.#caller.end(generous);
    if (status !== 0) throw new Missing('end', `the process ended with ${signal ?? status}`);
  }

  /** What the process wrote that it should not have written, and all of it. */
  get complaints() {
    const texts = this.#caller ? this.#row.neverWrong(this.#caller) : [];
    return texts.map((text) => ({ rule: 'standard error', text, detail: this.#caller.stderr }));
  }

  async go(line) {
    await this.begin();
    await this.#run(parse(line));
    await this.end();
  }

  async cleanUp() {
    await this.#row.cleanUp();
  }
}

/** Goes through the steps of `line`. Returns the trace, and the faults that are not to be told from it. */
export async function live(line, display) {
  const life = new Life(display);
  const faults = [];
  let timer;
  try {
    await Promise.race([life.go(line), new Promise((_, reject) => {
      timer = setTimeout(() => reject(new Missing('hangs', 'the sequence does not end')), lifeLimit);
    })]);
  } catch (error) {
    faults.push({ rule: error.rule ?? 'broken', text: error.rule ? error.message : error.stack });
  }
  clearTimeout(timer);
  faults.push(...life.complaints);
  await life.cleanUp();
  return { trace: life.trace, faults };
}
