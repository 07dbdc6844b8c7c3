// Calls that must not compile. Where one does, the compiler complains of the line above it.

import * as pellmar from 'pellmar';
import * as fake from 'pellmar/fake';
import * as promises from 'pellmar/promises';

// @ts-expect-error: the name is missing
pellmar.PLReportUsageEvent();
// @ts-expect-error: the name is text
pellmar.PLReportUsageEvent(42);
// @ts-expect-error: the name is text
pellmar.PLReportUsageEvent(undefined);
// @ts-expect-error: there is no second argument
pellmar.PLReportUsageEvent('event', {});

// @ts-expect-error: there are no arguments
pellmar.PLShowReleaseNotesWindowIfNeeded(true);
// @ts-expect-error: there are no arguments
pellmar.PLShowReleaseNotesWindow('1.6.2');
// @ts-expect-error: there are no arguments
pellmar.PLCanShowReleaseNotesWindow(() => {});
// @ts-expect-error: nothing is returned
export const nothing: boolean = pellmar.PLShowReleaseNotesWindow();

// @ts-expect-error: the answer is returned, not called back
pellmar.PLGetLastUserEmailSharingResponse(() => {});
// @ts-expect-error: no answer is 3
export const isThree = pellmar.PLGetLastUserEmailSharingResponse() === 3;
// @ts-expect-error: an answer is a number
export const text: string = pellmar.PLGetLastUserEmailSharingResponse();

// @ts-expect-error: the callback is a function
pellmar.PLAskUserToShareEmail('callback');
// @ts-expect-error: the callback is a function or missing
pellmar.PLAskUserToShareEmail(null);
// @ts-expect-error: the callback gets a number
pellmar.PLAskUserToShareEmail((answer: string) => {});
// @ts-expect-error: the callback gets one argument
pellmar.PLAskUserToShareEmail((answer: number, more: number) => {});
// @ts-expect-error: the result is a boolean and no promise
pellmar.PLAskUserToShareEmail(() => {}).then();

// @ts-expect-error: the flag is missing
pellmar.PLEnableDebugLogging();
// @ts-expect-error: the flag is a boolean
pellmar.PLEnableDebugLogging(1);

// @ts-expect-error: scripts cannot ask for authorization codes
pellmar.PLRequestAuthorizationCode('client', [], () => {});
// @ts-expect-error: the functions cannot be replaced
pellmar.PLCanShowReleaseNotesWindow = () => false;

// @ts-expect-error: there is no such agent
fake.setAgent('dead');
// @ts-expect-error: the customer has no such answer
fake.answer(0);
// @ts-expect-error: the list is the fake's own
fake.calls.push(['PLReportUsageEvent', 'event']);

// @ts-expect-error: an answer has a name, and is no number
export const isPromised = async () => (await promises.emailSharingAnswer()) === 1;
// @ts-expect-error: the answer is promised, not called back
promises.askToShareEmail(() => {});
// @ts-expect-error: the name is text
promises.reportUsageEvent(42);
