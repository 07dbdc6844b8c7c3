import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';

import { Agent, agentPath, buildFolder, makeSession } from '../support/agent.mjs';
import { runHostScript, startDisplay } from '../support/display.mjs';

function run(...args) {
  return spawnSync(agentPath, args, { encoding: 'utf8', timeout: 120_000 });
}

test('explains itself', () => {
  const { status, stdout } = run('--help');
  assert.equal(status, 0);
  for (const option of ['--should-ask', '--always-ask', '--state', '--email', '--no-email', '--reply-delay', '--hang',
    '--die-on', '--drop', '--twice', '--wrong-type', '--error', '--auth-code', '--api-version',
    '--pid', '--app-name']) {
    assert.ok(stdout.includes(option), option);
  }
});

test('refuses a wrong option with one clear line and exit code 2', () => {
  for (const args of [[], ['dance'], ['serve', '--colour'], ['serve', '--hang', 'nothing:'],
    ['log', 'message']]) {
    const { status, stdout, stderr } = run(...args);
    assert.equal(status, 2, args.join(' '));
    assert.equal(stdout, '');
    assert.match(stderr, /^pellmar-dev-agent: .+\(see --help\)\n$/);
  }
});

test('says first that it listens, and ends cleanly on SIGTERM', async (t) => {
  const agent = await Agent.start(t, makeSession(t));
  assert.equal(await agent.stop('SIGTERM'), 0);
});

test('ends on SIGTERM while one of its methods hangs', async (t) => {
  const session = makeSession(t);
  const agent = await Agent.start(t, session, '--hang', 'checkConnectionWithCallback:');
  const client = spawnSync(process.execPath, ['-e', `require('.').PLGetLastUserEmailSharingResponse()`], {
    cwd: new URL('../..', import.meta.url), env: { ...process.env, ...session.env },
  });
  assert.equal(client.status, 0);
  await agent.waitFor('checkConnectionWithCallback:');
  assert.equal(await agent.stop('SIGTERM'), 0);
});

describe('with a display', () => {
  const client = `const pellmar = require(${JSON.stringify(path.join(buildFolder, 'pellmar.node'))});`;
  let display;
  before(async () => (display = await startDisplay()));
  after(() => display.stop());

  /** Has the customer answer with a key; returns what is known then, in the same application. */
  async function answerWith(t, session, key) {
    const app = runHostScript(t, `${client}
      print(pellmar.PLAskUserToShareEmail(() => print(pellmar.PLGetLastUserEmailSharingResponse())));`,
    { display, env: session.env });
    assert.equal(await app.next(), true);
    await display.focused('Pellmar Demo');
    await display.xdotool('key', key);
    return app.next();
  }

  /** What another application hears of it. */
  function knownToAnother(t, env) {
    return runHostScript(t, `${client} print(pellmar.PLGetLastUserEmailSharingResponse());`, { display, env })
      .next();
  }

  test('wants no more questions after an answer, not even when it was started again', async (t) => {
    const session = makeSession(t);
    const file = path.join(session.folder, 'state');
    const agent = await Agent.start(t, session, '--state', file);
    assert.equal(fs.readFileSync(file, 'utf8'), 'not answered\n');
    assert.equal(await knownToAnother(t, session.env), 0);
    assert.equal(await answerWith(t, session, 'Return'), 1);
    assert.equal(await knownToAnother(t, session.env), 1);
    await agent.stop();

    const second = await Agent.start(t, session, '--state', file);
    assert.equal(await knownToAnother(t, session.env), 1);
    await second.stop();
    await Agent.start(t, session);
    assert.equal(await knownToAnother(t, session.env), 0);
  });

  test('wants the question asked again after a postponement', async (t) => {
    const session = makeSession(t);
    await Agent.start(t, session);
    assert.equal(await answerWith(t, session, 'Escape'), 2);
    assert.equal(await answerWith(t, session, 'Return'), 1);
  });

  test('always wants the question asked when told to', async (t) => {
    const session = makeSession(t);
    await Agent.start(t, session, '--always-ask');
    assert.equal(await answerWith(t, session, 'Return'), 0);
  });
});

test('refuses a state that is none of its own', (t) => {
  const session = makeSession(t);
  const { status, stdout, stderr } = spawnSync(agentPath, ['serve', '--state', '/etc/passwd'],
    { encoding: 'utf8', env: { ...process.env, ...session.env }, timeout: 120_000 });
  assert.deepEqual([status, stdout, stderr],
    [2, '', 'pellmar-dev-agent: not a file that --state has written: /etc/passwd (see --help)\n']);
});
