// What run.mjs has a process do that has the module loaded. Times are in milliseconds.
'use strict';

require('v8').setFlagsFromString('--expose-gc');
const collectGarbage = require('vm').runInNewContext('gc');

const { pellmar } = globalThis;
const event = '20 characters, or so';

function timed(work) {
  const start = process.hrtime.bigint();
  work();
  return Number(process.hrtime.bigint() - start) / 1e6;
}

const pause = (milliseconds) => new Promise((done) => setTimeout(done, milliseconds));

function expect(answer, question = () => pellmar.PLGetLastUserEmailSharingResponse()) {
  const given = question();
  if (given !== answer) throw new Error(`the answer is ${given}, not ${answer}`);
}

let last, longestGap = 0;

function turn() {
  const now = performance.now();
  [last, longestGap] = [now, Math.max(longestGap, now - last)];
}

module.exports = (build) => {
  const floors = require(`${build}/bench/bench_floors.node`);
  return {
    /** Calls that ask nobody, in turns with a native function that does nothing. */
    calls() {
      const many = (work) => timed(() => { for (let i = 0; i < 20_000; i++) work(); }) / 20_000;
      return { ours: many(() => pellmar.PLCanShowReleaseNotesWindow()), floor: many(() => floors.empty()) };
    },

    /** The first calls of a process whose toolkit has talked to the agent over another connection. */
    first() {
      floors.connect();
      floors.ask(true);
      return {
        floorQuestion: timed(() => { floors.connect(); floors.ask(true); floors.ask(false); }),
        question: timed(() => expect(1)),
        floorEvent: timed(() => { floors.connect(); floors.send(event); }),
        event: timed(() => pellmar.PLReportUsageEvent(event)),
      };
    },

    /** A question, and one over a bare connection. */
    async question() {
      await pause(5);
      const ours = timed(() => expect(1));
      await pause(5);
      return { ours, floor: timed(() => floors.ask(false)) };
    },

    /** A question behind so many events, and one after as long a time of other work. */
    async behind(events) {
      const busy = timed(() => { for (let i = 0; i < events; i++) pellmar.PLReportUsageEvent(event); });
      const ours = timed(() => expect(1));
      // Until the agent has taken them all.
      await pause(300);
      timed(() => { for (const end = performance.now() + busy; performance.now() < end;); });
      return { ours, floor: timed(() => expect(1)) };
    },

    /** Events of so many characters: the longest of five that the script's thread passes on. */
    async size(length) {
      const text = 'x'.repeat(length);
      const longest = { convert: 0, floor: 0, ours: 0 };
      const call = { convert: floors.convert, floor: floors.send, ours: pellmar.PLReportUsageEvent };
      // What comes first after a pause takes longer.
      for (const kind in call) call[kind](text);
      for (let i = 0; i < 5; i++) {
        for (const kind in call) longest[kind] = Math.max(longest[kind], timed(() => call[kind](text)));
      }
      floors.ask(true);
      await pause(10);
      return longest;
    },

    /** Events 20 ms apart, each followed by one over a bare connection, if there is an agent. */
    async spaced(count, hasAgent) {
      const times = { ours: 0, floor: 0 };
      for (let i = 0; i < count; i++) {
        await pause(20);
        times.ours += timed(() => pellmar.PLReportUsageEvent(event)) / count;
        if (!hasAgent) continue;
        await pause(20);
        times.floor += timed(() => floors.send(event)) / count;
      }
      return times;
    },

    /** All the time that calls take in ten seconds. */
    async hung() {
      let total = 0;
      for (const end = performance.now() + 10_000; performance.now() < end; await pause(20)) {
        total += timed(() => {
          pellmar.PLReportUsageEvent(event);
          pellmar.PLShowReleaseNotesWindow();
          expect(0);
          expect(false, () => pellmar.PLAskUserToShareEmail(() => {}));
        });
      }
      return total;
    },

    absent: () => timed(() => expect(0)),

    report(events) {
      for (let i = 0; i < events; i++) pellmar.PLReportUsageEvent(event);
    },

    sendBare(events) {
      for (let i = 0; i < events; i++) floors.send(event);
    },

    /** What the process has in memory, in MiB. */
    memory() {
      collectGarbage();
      return process.memoryUsage.rss() / 2 ** 20;
    },

    /** The longest of the questions asked every 100 ms for so long. */
    async worst(milliseconds) {
      let longest = 0;
      expect(1);
      await pause(100 * Math.random());
      for (const end = performance.now() + milliseconds; performance.now() < end; await pause(100)) {
        longest = Math.max(longest, timed(() => expect(1)));
      }
      return longest;
    },

    /** The longest time without a turn of the script's event loop since the last call. */
    gap() {
      if (!last) setInterval(turn, 1);
      const gap = longestGap;
      [last, longestGap] = [performance.now(), 0];
      return gap;
    },

    connect: () => floors.connect(),
  };
};
