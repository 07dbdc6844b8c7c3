// What the tests have a script do: runs each line of standard input as code, and prints what came of
// it and how long that took. `node script.js MODULE`
'use strict';

const fs = require('fs');
const { createInterface } = require('readline');
const { Worker } = require('worker_threads');

const modulePath = process.argv[2];
const print = (value) => fs.writeSync(1, `${JSON.stringify(value)}\n`);

// The system calls of one's own that start threads are made before anything is counted.
fs.readFile(__filename, () => {
  globalThis.pellmar = require(modulePath);
  print({ event: 'ready' });
});

let questions = 0;

Object.assign(globalThis, {
  require,
  /** The last response, as text. */
  status: (client = pellmar) => String(client.PLGetLastUserEmailSharingResponse()),

  /**
   * Asks, and returns what that returned with the callback's calls so far. Each call is printed as an
   * event as well; `inside` runs in it.
   */
  ask(inside = () => {}, client = pellmar) {
    const question = ++questions;
    const given = [];
    print({ event: 'asked', question });
    const returned = client.PLAskUserToShareEmail((...answer) => {
      given.push(answer);
      print({ event: 'answer', question, answer });
      inside(...answer);
    });
    return [returned, ...given.map((answer) => `callback(${answer})`)].join(', ');
  },

  thrown(call) {
    try {
      return `returned ${call()}`;
    } catch (error) {
      return `threw ${error.message}`;
    }
  },

  /** What becomes of requiring the module in a worker thread. */
  requireInWorker: () => new Promise((done) => {
    new Worker(`require(${JSON.stringify(modulePath)})`, { eval: true })
      .on('error', ({ code, message }) => done(`${code}: ${message}`))
      .on('exit', () => done('no error'));
  }),

  /** Changes the desktop host's look all the time. */
  switchLooks() {
    let dark = false;
    setInterval(() => app.setAppearance((dark = !dark) ? 'dark' : 'light'), 40).unref();
  },

  /**
   * The longest time for which the main thread is at work between two turns of the event loop, while
   * `milliseconds` pass: in milliseconds of processor time, of which other processes take nothing.
   */
  longestTurn: (milliseconds) => new Promise((done) => {
    const worked = () => Number(fs.readFileSync(`/proc/self/task/${process.pid}/schedstat`, 'utf8').split(' ')[0]);
    const end = performance.now() + milliseconds;
    let before = worked();
    let longest = 0;
    const timer = setInterval(() => {
      const now = worked();
      longest = Math.max(longest, now - before);
      before = now;
      if (performance.now() > end) {
        clearInterval(timer);
        done(longest / 1e6);
      }
    }, 1);
  }),

  /** Reads files in all the ways there are, and returns how many. */
  async readFiles(count) {
    const reads = Array.from({ length: count }, () => fs.promises.readFile(__filename));
    for (let i = 0; i < count; ++i) fs.readFileSync(__filename);
    return (await Promise.all(reads)).length + count;
  },

  /** Opens files until no descriptor is left, and returns them. */
  takeDescriptors() {
    const taken = [];
    try {
      for (;;) taken.push(fs.openSync(__filename));
    } catch {
      return taken;
    }
  },
  print,
});

createInterface({ input: process.stdin }).on('line', async (line) => {
  const start = performance.now();
  let value;
  try {
    value = await (0, eval)(line);
  } catch (error) {
    value = `threw ${error.message}`;
  }
  print({ value: value ?? null, ms: performance.now() - start });
});
