// What the process holds: memory, descriptors, threads.
'use strict';

const fs = require('node:fs');
const { setImmediate: turn } = require('node:timers/promises');
const v8 = require('node:v8');
const vm = require('node:vm');

// The desktop host passes the engine no options.
v8.setFlagsFromString('--expose-gc');
const collectGarbage = vm.runInNewContext('gc');

const entries = (folder) => fs.readdirSync(folder).length;
const start = performance.now();

module.exports = (probe) => {
  const { usage } = require(probe);

  async function measure() {
    // Finalizers run in turns of their own.
    for (let i = 0; i < 4; ++i) {
      collectGarbage();
      await turn();
    }
    return {
      ...usage(),
      heap: process.memoryUsage().heapTotal,
      descriptors: entries('/proc/self/fd'),
      threads: entries('/proc/self/task'),
      seconds: Math.round(performance.now() - start) / 1000,
    };
  }

  // The first measurement compiles what the others use.
  const ready = measure();
  return {
    async print(more) {
      await ready;
      fs.writeSync(1, `${JSON.stringify({ ...(await measure()), ...more })}\n`);
    },
  };
};
