// Calls that must compile.

import pellmar = require('pellmar');
import fake = require('pellmar/fake');
import promises = require('pellmar/promises');
import {
  EmailSharingAnswer,
  PLAskUserToShareEmail,
  PLEnableDebugLogging,
  PLGetLastUserEmailSharingResponse,
  PLReportUsageEvent,
} from 'pellmar';

PLReportUsageEvent('Document exported');
pellmar.PLShowReleaseNotesWindowIfNeeded();
pellmar.PLShowReleaseNotesWindow();
const canShow: boolean = pellmar.PLCanShowReleaseNotesWindow();
PLEnableDebugLogging(canShow);

const isAsking: boolean = PLAskUserToShareEmail((answer) => {
  const known: EmailSharingAnswer = answer;
  const given: boolean = known === 1;
  PLEnableDebugLogging(given);
});
PLAskUserToShareEmail();
PLAskUserToShareEmail(undefined);
PLAskUserToShareEmail(() => isAsking);

/** Each answer has its branch, and there is no other. */
export function describe(answer: EmailSharingAnswer): string {
  switch (answer) {
    case 0: return 'not known';
    case 1: return 'answered';
    case 2: return 'later';
  }
}
describe(PLGetLastUserEmailSharingResponse());
const asNumber: number = PLGetLastUserEmailSharingResponse();
PLReportUsageEvent(String(asNumber));

const standIn: typeof pellmar = fake;
const agent: fake.Agent = 'asks';
fake.reset();
fake.setAgent(agent);
standIn.PLAskUserToShareEmail();
if (fake.isAsking()) fake.answer(2);
const names: string[] = fake.calls.map(([name]) => name);
names.push(...fake.calls.map(([, first]) => String(first)));

/** Each name has its branch, and there is no other. */
export async function describePromised(): Promise<string> {
  switch (await promises.askToShareEmail()) {
    case 'unknown': return 'not known';
    case 'given': return 'answered';
    case 'postponed': return 'later';
  }
}
const promised: typeof promises = fake.promises;
promised.emailSharingAnswer().then((answer: promises.EmailSharingAnswer) => promised.reportUsageEvent(answer));
promises.showReleaseNotes();
promises.showReleaseNotesIfNeeded();
promises.enableDebugLogging(promises.canShowReleaseNotes());
