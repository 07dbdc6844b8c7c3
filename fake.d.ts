/**
 * Stands in for `pellmar` in an application's own tests, on any system and without a display: the same functions, an
 * agent that the test sets up, and a list of what was called. Nothing blocks here, whatever the agent does.
 *
 * Have your test runner put it in the place of `pellmar`, as with
 * `jest.mock('pellmar', () => require('pellmar/fake'))` or `vi.mock('pellmar', () => import('pellmar/fake'))`, and call
 * `reset` before each test.
 */

import promises = require('./promises.js');

export * from './index.js';

/** What stands in for `pellmar/promises`, with the same agent and the same list of calls. */
export { promises };

/**
 * What the agent does when it is asked about the customer.
 *
 * - `'absent'`: there is none. So it is at first, and after `reset`.
 * - `'asks'`: it wants the customer to be asked.
 * - `'answered'`: it knows the customer's answer. So it is by itself after `answer(1)`.
 * - `'hangs'`: it never replies.
 * - `'late'`: it replies to the first call when that has given up, and from then on in time, as with `'asks'`.
 */
export type Agent = 'absent' | 'asks' | 'answered' | 'hangs' | 'late';

/** Has the agent do that from now on. A question that is on the screen stays there. */
export function setAgent(agent: Agent): void;

/** Whether the question is on the screen. */
export function isAsking(): boolean;

/**
 * Has the customer answer the question that is on the screen: with yes or no (`1`), or to be asked later (`2`). The
 * callback of the call that brought up the question runs before this returns.
 *
 * @throws Error when no question is on the screen.
 */
export function answer(value: 1 | 2): void;

/**
 * Each call so far, the function's name first: `['PLReportUsageEvent', 'Document exported']`. The arguments are as the
 * agent gets them, without callbacks; a call that was refused for its arguments is not in it.
 */
export const calls: ReadonlyArray<readonly [name: string, ...args: Array<string | boolean>]>;

/** As it was at first: no agent, no postponement, no question, no calls. */
export function reset(): void;
