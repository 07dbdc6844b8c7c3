// Reports an event every 20 milliseconds, or only has the timer, and prints how often the process was woken up
// for it: steady.js BUILD (event | timer) COUNT. Does COUNT rounds and then twice as many. A system call before and
// after each shows up in a trace.
'use strict';

const fs = require('fs');

const [build, what, count] = process.argv.slice(2);
const pellmar = require(`${build}/pellmar.node`);
const work = what === 'event' ? () => pellmar.PLReportUsageEvent('20 characters, or so') : () => {};

/** Runs `work` so many times, and returns the voluntary context switches of all threads meanwhile. */
const rounds = (times) => new Promise((done) => {
  fs.existsSync(`/rounds-${times}`);
  const before = process.resourceUsage().voluntaryContextSwitches;
  let left = times;
  const timer = setInterval(() => {
    work();
    if (--left > 0) return;
    clearInterval(timer);
    fs.existsSync('/rounds-end');
    done(process.resourceUsage().voluntaryContextSwitches - before);
  }, 20);
});

(async () => {
  await rounds(10);
  // Threads that have heard of the connection end when they have had nothing to do for five seconds.
  await new Promise((done) => setTimeout(done, 7000));
  const start = performance.now();
  const [once, twice] = [await rounds(Number(count)), await rounds(2 * count)];
  console.log(JSON.stringify({ wakeUps: (twice - once) / count, seconds: (performance.now() - start) / 1000 }));
  process.exit();
})();
