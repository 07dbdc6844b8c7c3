// Runs the table of faults and prints it: run.mjs [--scripts | --page FILE] [PATTERN], where PATTERN picks rows
// by their first two columns, and --scripts those whose caller is a script. Ends with 1 if a row is not held;
// otherwise --page writes the table, for applications' developers.

import fs from 'node:fs';

import { startDisplay } from '../support/display.mjs';
import { isSanitized } from '../support/sanitizer.mjs';
import { faultsPage } from './page.mjs';
import { Row } from './row.mjs';
import { table } from './table.mjs';

/** Rows with windows have a display each; the others mostly wait. */
const displayCount = 2;
const plainCount = 6;
const rowLimit = 120_000;
/** From here on the module's own wait for a reply may have run out. */
const oneWait = 1900;
/** What the sanitizers cost at the most. */
const slowness = isSanitized() ? 3 : 1;

const words = process.argv.slice(2);
const scriptsOnly = words[0] === '--scripts' && Boolean(words.shift());
const page = words[0] === '--page' ? words.splice(0, 2)[1] : undefined;
const pattern = new RegExp(words[0] ?? '', 'i');
const rows = table.filter(({ fault, call, caller }) =>
  pattern.test(`${fault} ${call}`) && !(scriptsOnly && caller === 'native'));
if (rows.length === 0) {
  console.error(`faults: no row has ${pattern}`);
  process.exit(2);
}

/** What came of a row: what it gave, in which time, what is wrong with that, and what may be the machine's doing. */
async function run(definition, display) {
  const row = new Row(definition, display);
  const result = { seen: '', ms: NaN, problems: [], late: [] };
  try {
    await Promise.race([
      (async () => {
        const { value, ms } = await row.run(row);
        Object.assign(result, { seen: value, ms });
        result.problems = row.ends
          ? row.neverWrong(row.running)
          : await row.leftNothing();
      })(),
      new Promise((_, reject) => {
        const timer = setTimeout(() => reject(new Error('the row hangs')), rowLimit);
        timer.unref();
      }),
    ]);
  } catch (error) {
    const [text] = error.message.split('\n');
    (/timed out|hangs/.test(text) ? result.late : result.problems).push(text);
  }
  await row.cleanUp().catch((error) => result.problems.push(error.message));
  const [earliest, latest] = row.within;
  if (result.seen && result.seen !== row.expected) {
    (result.ms > oneWait ? result.late : result.problems).push(`not ${row.expected}`);
  } else if (result.ms < earliest) {
    result.problems.push('too early');
  } else if (result.ms > latest * slowness) {
    result.late.push('too late');
  }
  return result;
}

/** Whether nothing is wrong but what a machine that stood still for a moment makes of it. */
const isOfTime = ({ problems, late }) => problems.length === 0 && late.length > 0;
const isHeld = ({ problems, late }) => problems.length === 0 && late.length === 0;

const results = new Map();

async function work(waiting, display) {
  for (let row; (row = waiting.shift()); ) results.set(row, await run(row, display));
}

const start = performance.now();
const withWindow = rows.filter((row) => row.caller === 'window');
const alone = rows.filter((row) => row.alone);
const plain = rows.filter((row) => !row.alone && row.caller !== 'window');
// The longest first, so that the last ones end together.
plain.sort((a, b) => b.within[1] - a.within[1]);

async function workOnDisplay(waiting) {
  const display = await startDisplay();
  await work(waiting, display).finally(() => display.stop());
}

await Promise.all([
  ...Array.from({ length: plainCount }, () => work(plain)),
  ...Array.from({ length: Math.min(displayCount, withWindow.length) }, () => workOnDisplay(withWindow)),
]);
await work(alone);

const linesOf = (some) => some.map((row) => {
  const { seen, ms, problems, late } = results.get(row);
  const [earliest, latest] = row.within;
  const time = earliest ? `${earliest}–${latest} ms` : `≤ ${latest} ms`;
  const wrong = [...late, ...problems].join('; ');
  return [row.fault, row.call, `${row.expected} (${time})`, seen || '–',
    Number.isNaN(ms) ? '–' : ms.toFixed(0), wrong && `NOT HELD: ${wrong}`];
});

// What is of time has to be seen again, with nothing beside it.
const again = rows.filter((row) => isOfTime(results.get(row)));
const before = linesOf(again);
for (const row of again) await (row.caller === 'window' ? workOnDisplay([row]) : work([row]));

const lines = [['fault', 'call', 'expected', 'seen', 'ms', ''], ...linesOf(rows)];
const widths = lines[0].map((_, column) => Math.max(...lines.map((line) => line[column].length)));
const print = (line) => console.log(line.map((cell, column) =>
  column === 4 ? cell.padStart(widths[column]) : cell.padEnd(widths[column])).join('  ').trimEnd());
lines.forEach(print);
console.log('\nstatus(): PLGetLastUserEmailSharingResponse; ask(): PLAskUserToShareEmail; ' +
  'a code: PLRequestAuthorizationCode');
if (again.length) {
  console.log('\nTried again, since the machine may have been busy; at first:');
  before.forEach(print);
}
const held = rows.filter((row) => isHeld(results.get(row))).length;
if (held < rows.length) {
  // Once more at the end: whoever keeps only the last lines of a long log should see what failed.
  console.log('\nNot held:');
  lines.filter((line) => line[5].startsWith('NOT')).forEach(print);
}
console.log(`${held} of ${rows.length} rows held, ` +
  `${((performance.now() - start) / 1000).toFixed(1)} s`);
process.exitCode = held === rows.length ? 0 : 1;
if (page && held === rows.length) fs.writeFileSync(page, faultsPage());
