// Runs in the desktop host: node bench/run.mjs starts it. Prints one JSON object.

const [build, rounds] = process.argv.slice(2);
const pellmar = require(`${build}/pellmar.node`);
const bench = require(`${build}/bench/bench_desktop.node`);

const times = bench.run(Number(rounds), () => {
  if (!pellmar.PLAskUserToShareEmail(bench.delivered)) {
    throw new Error('the agent does not want the customer asked');
  }
});
console.log(JSON.stringify(times));
process.exit();
