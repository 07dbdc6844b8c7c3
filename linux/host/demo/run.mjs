// Runs the demo's application, whose command is this one's arguments, beside a development agent and tells
// what each side saw. Ends 0 only if both agree.

import { execFileSync, spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { createInterface } from 'node:readline';
import { setTimeout as wait } from 'node:timers/promises';
import { fileURLToPath } from 'node:url';

const root = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../../..');
const build = path.join(root, 'build/Release');
const pictures = path.join(root, 'build/demo');
const isHeadless = process.env.PELLMAR_DEMO_HEADLESS === '1';
const [program, ...programArguments] = process.argv.slice(2);
// Electron 11 can crash by itself while it quits on this processor.
const mayCrashAtEnd = process.platform === 'darwin' && process.arch === 'arm64';

const temporary = fs.mkdtempSync(path.join(os.tmpdir(), 'pellmar-demo-'));
const env = {
  ...process.env, PELLMAR_BUILD_DIR: build, COCOA_SERVICE_DIR: path.join(temporary, 'services'),
};
fs.mkdirSync(env.COCOA_SERVICE_DIR, { mode: 0o700 });
if (isHeadless) env.HOME = env.TEMP = temporary;

function tell(who, text) {
  console.log(`${who.padEnd(7)}| ${text}`);
}

/** Collects a program's lines, parsed, and shows each. */
function listen(who, stream, show) {
  const seen = [];
  const waiters = [];
  createInterface({ input: stream }).on('line', (line) => {
    const value = JSON.parse(line);
    seen.push(value);
    tell(who, show(value));
    for (const waiter of waiters) waiter();
  });
  return {
    seen,
    until: (matches) => new Promise((resolve) => {
      const check = () => seen.some(matches) && resolve();
      waiters.push(check);
      check();
    }),
  };
}

function screenshot(name) {
  const file = path.join(pictures, name);
  execFileSync('import', ['-window', 'root', file]);
  tell('window', `picture: ${path.relative(root, file)}`);
}

const debugMessage = 'a debug message of the agent';

/** Sends one to the application's log. The notification daemon may only just have been started. */
async function sendDebugMessage() {
  for (let i = 0; i < 50 && !log.some((line) => line.endsWith(debugMessage)); ++i) {
    if (i % 10 === 0) {
      execFileSync(path.join(build, 'pellmar-dev-agent'),
        ['log', '--pid', String(app.pid), '--app-name', 'pellmar-dev-agent', debugMessage], { env });
    }
    await wait(100);
  }
}

async function answerByItself() {
  execFileSync('xdotool', ['search', '--sync', '--onlyvisible', '--classname', 'Pellmar Demo'], { timeout: 60_000 });
  // Drawn and settled: the last thing before a person would look.
  await wait(1000);
  screenshot('question.png');
  tell('window', 'Return is pressed');
  execFileSync('xdotool', ['key', 'Return']);
}

fs.mkdirSync(pictures, { recursive: true });

const agent = spawn(path.join(root, 'scripts/agent'), [], { env, stdio: ['ignore', 'pipe', 'inherit'] });
const agentEnd = once(agent, 'close');
let app;

// Also where the demo itself fails.
process.on('exit', () => {
  app?.kill();
  agent.kill();
});

// Whoever ends the demo ends both, and they put away what they have put somewhere.
let interruption;
for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP']) {
  process.on(signal, () => {
    interruption ??= signal;
    (app ?? agent).kill();
  });
}

const agentLines = listen('agent', agent.stdout, ({ event, method, arguments: args }) =>
  event === 'listening' ? 'listens' : `${method} ${JSON.stringify(args)}`);
await Promise.race([agentEnd, agentLines.until(({ event }) => event === 'listening')]);
if (agent.exitCode !== null || interruption) {
  await agentEnd;
  fs.rmSync(temporary, { recursive: true, force: true });
  process.exit(1);
}

app = spawn(program, programArguments, { env, stdio: ['ignore', 'pipe', 'pipe'] });
const log = [];
createInterface({ input: app.stderr }).on('line', (line) => {
  log.push(line);
  tell('log', line);
});
const appLines = listen('app', app.stdout, ({ event, detail }) =>
  detail === undefined ? event : `${event}: ${JSON.stringify(detail)}`);
const appEnd = once(app, 'close');
appLines.until(({ event, detail }) => event === 'asking' && detail).then(async () => {
  tell('window', isHeadless ? 'is up' : 'is up and waits for you');
  await sendDebugMessage();
  if (isHeadless) await answerByItself();
});

const [status, signal] = await appEnd;
agent.kill();
await agentEnd;
fs.rmSync(temporary, { recursive: true, force: true });
if (interruption) process.exit(1);

const answer = appLines.seen.find(({ event }) => event === 'answered')?.detail;
const known = appLines.seen.find(({ event }) => event === 'known now')?.detail;
const requests = agentLines.seen.filter(({ event }) => event === 'request');
const requestsOf = (method) => requests.filter((request) => request.method === method);
const problems = [
  [status !== 0 && !(signal && mayCrashAtEnd), `the application ended with ${signal ?? status}`],
  [requestsOf('reportUsageEvent:eventInfo:').length !== 1, 'the agent did not get the event'],
  [requestsOf('showReleaseNotesForAppWithCallback:').length !== 1,
    'the agent was not asked for the release notes'],
  [!log.some((line) => line.endsWith(debugMessage)), 'the debug message is not in the log'],
  [answer !== 1 && answer !== 2, 'the application got no answer'],
  [(answer === 1) !== (requestsOf('updateAllowedCustomerEmail:callback:').length === 1),
    'the agent and the application do not agree on the answer'],
  [known !== answer, 'the answer is not what is known afterwards'],
].filter(([isProblem]) => isProblem).map(([, text]) => text);

for (const problem of problems) tell('demo', problem);
tell('demo', problems.length === 0 ? 'both sides agree' : 'failed');
process.exitCode = problems.length === 0 ? 0 : 1;
