import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { test } from 'node:test';

import { Agent, agentPath, makeSession } from '../support/agent.mjs';

function run(...args) {
  return spawnSync(agentPath, args, { encoding: 'utf8', timeout: 10_000 });
}

test('explains itself', () => {
  const { status, stdout } = run('--help');
  assert.equal(status, 0);
  for (const option of ['--should-ask', '--email', '--no-email', '--reply-delay', '--hang',
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
