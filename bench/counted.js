// Runs under callgrind and has it count calls: for each, what N of them cost and then what 2 N cost.
'use strict';

const [build, methods] = process.argv.slice(2);
const modulePath = `${build}/pellmar.node`;
const pellmar = require(modulePath);
const floors = require(`${build}/bench/bench_floors.node`);

/** The client has the first of so many events checked. */
const eventsPerCheck = 256;
/** So many are made ready, counted, and counted twice as many, before the next check. */
const eventsBetweenChecks = 60;

const calls = {
  event: [eventsBetweenChecks, () => floors.event(modulePath)],
  events: [1, () => {
    for (let i = 0; i < eventsPerCheck; i++) floors.event(modulePath);
    floors.awaitReply();
  }],
  scriptEvent: [eventsBetweenChecks, () => pellmar.PLReportUsageEvent('20 characters, or so')],
  question: [50, () => {
    if (pellmar.PLGetLastUserEmailSharingResponse() !== 1) throw new Error('a wrong answer');
    floors.awaitReply();
  }],
  code: [50, () => {
    floors.code(modulePath);
    floors.awaitReply();
  }],
  notes: [50, () => {
    pellmar.PLShowReleaseNotesWindow();
    floors.awaitReply();
  }],
  relay: [50, () => {
    pellmar.PLEnableDebugLogging(true);
    pellmar.PLEnableDebugLogging(false);
  }],
};

floors.watchReplies();
// The first question has the connection checked before and behind it.
pellmar.PLGetLastUserEmailSharingResponse();
floors.awaitReply();
floors.awaitReply();
// After eight seconds the client looks whether there was an answer to the first.
floors.rest(9000);
floors.event(modulePath);
floors.awaitReply();
floors.start();
for (const [name, [count, call]] of Object.entries(calls)) {
  const repeat = (times) => {
    for (let i = 0; i < times; i++) call(i);
    // The threads of the connection come to rest.
    floors.rest(200);
  };
  repeat(count);
  for (const times of [1, 2]) {
    floors.dump('');
    repeat(times * count);
    floors.dump(`${name} ${times * count}`);
  }
}
floors.methods(methods);
