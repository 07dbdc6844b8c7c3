// The table as a page for applications' developers: docs/faults.md.

import { table } from './table.mjs';

const called = (text) => (text.includes('(') ? `\`${text}\`` : text);
const cell = (text) => text.replaceAll('|', '\\|').replaceAll('<', '&lt;');
const seconds = (milliseconds) => `${milliseconds / 1000}`;

function time([least, most]) {
  return least ? `${seconds(least)} to ${seconds(most)} s` : `at most ${seconds(most)} s`;
}

export function faultsPage() {
  const rows = table.map(({ fault, call, expected, within }) =>
    `| ${cell(fault)} | ${called(call)} | ${cell(expected)} | ${time(within)} |`);
  return `# What happens when something is wrong

What an application can rely on while the agent is missing, hangs, dies or sends nonsense, and while the
process or the system lacks something. Each line is tried by \`scripts/test --faults\`, which writes this page,
with a real agent or one that breaks the rules, in a process of its own. Besides what the line says, every
callback is called at most once, and once where an answer is promised; nothing is written to standard
error but a line about the connection; and when the agent is gone, the process has as many descriptors and
threads as before, and the next call works.

Times are limits on a busy machine. A call that waits for an agent waits for two seconds (1.9 to 3.8 s here), and
an agent that hangs costs them once.

\`status()\` is \`PLGetLastUserEmailSharingResponse\`, \`ask()\` is \`PLAskUserToShareEmail\` with a callback, and
a code is one of \`PLRequestAuthorizationCode\`, which native callers have. Error 4097 is an interrupted connection,
4099 one that could not be made or has ended, and 4101 a reply that does not fit.

| What is wrong | Call | What the caller gets | Time |
|---|---|---|---|
${rows.join('\n')}
`;
}
