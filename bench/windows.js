// Shows windows in the desktop host and prints one JSON object with their times: windows.js BUILD WHAT ROUNDS, where
// WHAT is what this process is to show first ("empty", "plain", which has controls, or "consent") before it shows
// all of them so many ROUNDS; or "count" under callgrind.
'use strict';

const [build, what, argument] = process.argv.slice(2);
const pellmar = require(`${build}/pellmar.node`);
const windows = require(`${build}/bench/bench_windows.node`);

const show = {
  empty: () => windows.showFloor(false),
  plain: () => windows.showFloor(true),
  consent: () => windows.showConsent(() => {
    if (!pellmar.PLAskUserToShareEmail(windows.delivered)) throw new Error('the customer is not to be asked');
  }),
};

/** Shows a window and clicks it away; `settle` follows each. */
function round(kind, settle = () => {}) {
  const shown = show[kind]();
  settle();
  windows.rest();
  const clicked = kind === 'consent' ? windows.clickConsent() : windows.clickFloor();
  settle();
  windows.rest();
  return { shown, clicked };
}

if (what === 'count') {
  const floors = require(`${build}/bench/bench_floors.node`);
  floors.watchReplies();
  // Besides the check that follows each request, there is one before the first. After eight seconds the client
  // looks whether that was answered.
  pellmar.PLGetLastUserEmailSharingResponse();
  floors.awaitReply();
  floors.awaitReply();
  floors.rest(9000);
  round('consent', floors.awaitReply);
  floors.start();
  for (const count of [2, 4]) {
    floors.dump('');
    for (let i = 0; i < count; i++) round('consent', floors.awaitReply);
    floors.dump(`window ${count}`);
  }
  floors.methods(argument);
} else {
  const times = { first: round(what), empty: [], plain: [], consent: [] };
  for (let i = 0; i < Number(argument); i++) for (const kind in show) times[kind].push(round(kind));
  console.log(JSON.stringify(times));
}
process.exit();
