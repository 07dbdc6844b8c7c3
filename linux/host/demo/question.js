// What an application does with the client: reports an event, has the release notes shown, asks the
// customer. Prints one JSON object a line for the demo that runs it.
'use strict';

const pellmar = require('../../..');
// The desktop host's, or on a Mac Electron's.
const application = global.app || require('electron').app;

function say(event, detail) {
  process.stdout.write(JSON.stringify({ event, detail }) + '\n');
}

pellmar.PLEnableDebugLogging(true);

pellmar.PLReportUsageEvent('Demo started');
say('reported', 'Demo started');

if (pellmar.PLCanShowReleaseNotesWindow()) {
  pellmar.PLShowReleaseNotesWindowIfNeeded();
  say('asked for release notes');
}

say('known so far', pellmar.PLGetLastUserEmailSharingResponse());

const isAsking = pellmar.PLAskUserToShareEmail((answer) => {
  say('answered', answer);
  // The report of the answer is on its way to the agent; the next reply comes after it.
  say('known now', pellmar.PLGetLastUserEmailSharingResponse());
  application.quit();
});
say('asking', isAsking);
