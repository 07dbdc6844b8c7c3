// The package of the development agent: what is in it, what is refused, and that its command runs the program.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { makeUniversal } from '../doctor/macho_files.mjs';
import { Agent, agentPath, makeSession } from '../support/agent.mjs';
import { root, run } from './tarball.mjs';

const { version } = JSON.parse(fs.readFileSync(path.join(root, 'package.json'), 'utf8'));
const slices = ['x86_64', 'arm64'].map((architecture) => ({ architecture }));

/** Packs a program of these slices. */
function pack(session, program) {
  const file = path.join(session.folder, 'program');
  fs.writeFileSync(file, program);
  return spawnSync(path.join(root, 'scripts/package-agent'), ['--program', file, '--out', session.folder],
    { encoding: 'utf8' });
}

test('the package holds the program, its launchd script and its command', (t) => {
  const session = makeSession(t);
  const { status, stdout, stderr } = pack(session, makeUniversal(slices));
  assert.equal(status, 0, stderr);
  const file = path.join(session.folder, `pellmar-dev-agent-${version}.tgz`);
  assert.equal(stdout, `${file}\n`);
  assert.deepEqual(run('tar', ['-tzf', file]).trim().split('\n').sort(),
    ['README.md', 'agent', 'bin/pellmar-dev-agent', 'package.json', 'pellmar-dev-agent'].map((name) => `package/${name}`));
  assert.equal(JSON.parse(run('tar', ['-xzOf', file, 'package/package.json'])).version, version);
  assert.ok(fs.readFileSync(path.join(root, 'agent/package/README.md'), 'utf8').includes(path.basename(file)));
});

test('a program for one processor, or another system, is refused', (t) => {
  const session = makeSession(t);
  for (const program of [makeUniversal(slices.slice(0, 1)), fs.readFileSync(agentPath)]) {
    const { status, stdout, stderr } = pack(session, program);
    assert.deepEqual([status, stdout], [1, '']);
    assert.match(stderr, /^package-agent: .* is no universal program for macOS\n$/);
  }
});

test('the command serves, logs and explains itself by way of the link that npm makes', async (t) => {
  const session = makeSession(t);
  pack(session, makeUniversal(slices));
  run('tar', ['-xzf', path.join(session.folder, `pellmar-dev-agent-${version}.tgz`), '-C', session.folder]);
  // This system's program in the place of the Mac's.
  fs.copyFileSync(agentPath, path.join(session.folder, 'package/pellmar-dev-agent'));
  const command = path.join(session.folder, 'pellmar-dev-agent');
  fs.symlinkSync('package/bin/pellmar-dev-agent', command);
  const env = { ...process.env, ...session.env };

  const help = spawnSync(command, ['serve', '--help'], { encoding: 'utf8', env });
  assert.match(help.stdout, /^usage: pellmar-dev-agent serve/);
  const refused = spawnSync(command, ['log'], { encoding: 'utf8', env });
  assert.deepEqual([refused.status, refused.stderr],
    [2, 'pellmar-dev-agent: log needs --pid PID: a message is addressed to one process (see --help)\n']);
  const agent = await Agent.startProgram(t, session, command, ['serve', '--should-ask', 'no']);
  const client = spawnSync(process.execPath, ['-p', `require(${JSON.stringify(root)}).PLGetLastUserEmailSharingResponse()`],
    { encoding: 'utf8', env });
  assert.equal(client.stdout, '1\n');
  assert.equal(await agent.stop('SIGTERM'), 0);
});
