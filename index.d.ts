/**
 * The Pellmar client, for the main process of a desktop application on macOS.
 *
 * Requiring the module starts nothing. Every function can be called whether the Pellmar agent runs or
 * not, and only from the application's main thread. The first thread that requires the module has it, and
 * no other gets it: require it on the main thread, before a worker thread can. A worker that asks the
 * customer and ends before the answer takes the process with it. Renderer processes cannot load it. Where
 * there is no build for the system or for the runtime's module version, requiring it throws an `Error`
 * that names both; its `cause` is the loader's own error.
 */

/**
 * What is known of the customer's answer to the question whether the e-mail address may be shared.
 *
 * - `0`: not known. The customer has not been asked, or the agent could not be reached.
 * - `1`: the customer has answered. Whether with yes or with no is between the customer and the agent.
 * - `2`: the customer wants to be asked later.
 */
export type EmailSharingAnswer = 0 | 1 | 2;

/**
 * Reports that something of interest happened in the application. Never waits for the agent. Events
 * reach it in the order of the calls; without an agent they are dropped, and so are the newest of those
 * that it does not take, beyond 4,096.
 *
 * @param name the event's name.
 * @throws TypeError without an argument, and also with a second one, then after the event has been
 *   reported.
 */
export function PLReportUsageEvent(name: string): void;

/**
 * Has the agent present the application's release notes, unless a request of this process succeeded
 * already. Returns at once. Without an agent nothing happens, and the next call asks again.
 */
export function PLShowReleaseNotesWindowIfNeeded(): void;

/**
 * Has the agent present the application's release notes, each time it is called. Returns at once.
 * Without an agent nothing happens.
 */
export function PLShowReleaseNotesWindow(): void;

/** Whether `PLShowReleaseNotesWindow` is of use: always `true`. Asks nobody. */
export function PLCanShowReleaseNotesWindow(): boolean;

/**
 * What is known of the customer's answer. **Blocks** the caller until the agent replies, two seconds at
 * the most.
 *
 * @returns `0` at once when the agent does not run, and after two seconds when it does not reply; then
 *   at once as well, until it does.
 */
export function PLGetLastUserEmailSharingResponse(): EmailSharingAnswer;

/**
 * Asks the customer in a window whether the e-mail address may be shared, if the agent wants the
 * customer to be asked. **Blocks** the caller until the agent replies, two seconds at the most, and not
 * until the customer answers. Without an agent nobody is asked, and the answer is `0`.
 *
 * @param callback is called once with the answer: before this function returns if it returns `false`,
 *   else when the customer answers. While a window is up, a further call only brings it to the front,
 *   and its callback is never called. An exception of the callback is the script's own: it comes out
 *   of this function or is uncaught.
 * @returns whether the window is going to be shown.
 */
export function PLAskUserToShareEmail(callback?: (answer: EmailSharingAnswer) => void): boolean;

/**
 * Starts or stops copying the agent's debug messages for this process to the process's log. Without an
 * agent there are none. A message comes from another process: its text is not to be trusted.
 *
 * @throws TypeError unless `enable` is a boolean.
 */
export function PLEnableDebugLogging(enable: boolean): void;
