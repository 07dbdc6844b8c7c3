// Asks the customer again and again, in the desktop host: `questions.js MODULE PROBE COUNT`. Prints
// 'asking' before each round and what the process holds after each tenth, each as a line of JSON.
'use strict';

const [module_, probe, count] = process.argv.slice(2);
const pellmar = require(module_);
const holdings = require('./holdings.js')(probe);
const print = (value) => require('node:fs').writeSync(1, `${JSON.stringify(value)}\n`);

const ask = () => new Promise((resolve, reject) => {
  if (!pellmar.PLAskUserToShareEmail(resolve)) reject(new Error('the customer is not asked'));
  print('asking');
});

async function main() {
  const tenth = Math.ceil(Number(count) / 10);
  for (let i = 0; i < Math.min(tenth, 20); ++i) await ask();
  for (let i = 0; i < 10; ++i) {
    const answers = { 0: 0, 1: 0, 2: 0 };
    for (let round = 0; round < tenth; ++round) ++answers[await ask()];
    await holdings.print({ answers });
  }
  process.exit();
}

main();
