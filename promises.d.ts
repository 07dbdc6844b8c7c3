/**
 * The Pellmar client once more, under plain names, with promises for what there is to wait for and with names for the
 * answers. The same rules hold: only in the main process, and on its main thread.
 */

/**
 * What is known of the customer's answer to the question whether the e-mail address may be shared.
 *
 * - `'unknown'`: the customer has not been asked, or the agent could not be reached.
 * - `'given'`: the customer has answered. Whether with yes or with no is between the customer and the agent.
 * - `'postponed'`: the customer wants to be asked later.
 */
export type EmailSharingAnswer = 'unknown' | 'given' | 'postponed';

/** `PLReportUsageEvent` of `pellmar`, which waits for nothing. */
export function reportUsageEvent(name: string): void;

/** `PLShowReleaseNotesWindow` of `pellmar`, which waits for nothing. */
export function showReleaseNotes(): void;

/** `PLShowReleaseNotesWindowIfNeeded` of `pellmar`, which waits for nothing. */
export function showReleaseNotesIfNeeded(): void;

/** `PLCanShowReleaseNotesWindow` of `pellmar`. */
export function canShowReleaseNotes(): boolean;

/**
 * `PLEnableDebugLogging` of `pellmar`.
 *
 * @throws TypeError unless `enable` is a boolean.
 */
export function enableDebugLogging(enable: boolean): void;

/**
 * What is known of the customer's answer. The promise does not make the call shorter: like
 * `PLGetLastUserEmailSharingResponse` it **blocks** until the agent replies, two seconds at the most.
 */
export function emailSharingAnswer(): Promise<EmailSharingAnswer>;

/**
 * Asks the customer in a window, if the agent wants the customer to be asked, and brings that window to the front if it
 * is up already. **Blocks** until the agent replies, two seconds at the most, and not until the customer answers.
 *
 * The promise is never rejected and always settled: with the customer's answer, which everybody gets who has asked while
 * the window was up, or else with what is known. Do not ask by `PLAskUserToShareEmail` or from native code besides: a
 * window that these have brought up gives its answer to them alone.
 */
export function askToShareEmail(): Promise<EmailSharingAnswer>;
