// How long a question takes when there is no agent: prints an array of milliseconds.

const [build, rounds] = process.argv.slice(2);
const pellmar = require(`${build}/pellmar.node`);

const times = [];
for (let i = 0; i < Number(rounds); i++) {
  const start = process.hrtime.bigint();
  pellmar.PLGetLastUserEmailSharingResponse();
  times.push(Number(process.hrtime.bigint() - start) / 1e6);
}
console.log(JSON.stringify(times));
