// What scripts/setup does on a Linux system, tried with stand-ins (setup/) for the programs that know its
// packages: in a folder of its own, and with nothing on PATH but these and some plain tools.

import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

const here = path.dirname(fileURLToPath(import.meta.url));
const root = path.resolve(here, '../..');
const standIns = path.join(here, 'setup');
const tools = ['bash', 'cmp', 'cp', 'dirname', 'env', 'grep', 'mkdir', 'mktemp', 'readlink', 'rm', 'sed', 'tail', 'uname'];

/** The packages that the script names itself; the display backend is none of them. */
const named = /^packages=\((.*?)^\)/ms.exec(fs.readFileSync(path.join(root, 'scripts/setup'), 'utf8'))[1]
  .replace(/#.*/g, '').split(/\s+/).filter(Boolean).concat('nodejs', 'libnode-dev');

/** A system whose sources offer the named packages, of `version`, and a backend for that version. */
class System {
  constructor(t, { version, backend, without = [] }) {
    this.folder = fs.mkdtempSync(path.join(os.tmpdir(), 'pellmar-setup-'));
    t.after(() => fs.rmSync(this.folder, { recursive: true }));
    const [tree, state, bin] = ['tree', 'state', 'bin'].map((name) => path.join(this.folder, name));
    for (const folder of [path.join(tree, 'scripts'), state, bin]) fs.mkdirSync(folder, { recursive: true });
    for (const file of ['scripts/setup', 'package.json', 'package-lock.json']) {
      fs.cpSync(path.join(root, file), path.join(tree, file));
    }
    const offered = [...named, 'npm', backend].filter((name) => !without.includes(name));
    fs.writeFileSync(path.join(state, 'offered'), offered.map((name) => `${name} ${version}\n`).join(''));
    fs.writeFileSync(path.join(state, 'installed'), '');
    for (const name of fs.readdirSync(standIns)) fs.symlinkSync(path.join(standIns, name), path.join(bin, name));
    for (const tool of tools) {
      fs.symlinkSync(execFileSync('which', [tool], { encoding: 'utf8' }).trim(), path.join(bin, tool));
    }
    this.bin = bin;
    this.state = state;
    this.script = path.join(tree, 'scripts/setup');
    this.calls = path.join(state, 'calls');
  }

  /** Runs the script; the commands that it gave are in the order given, and where all is well. */
  run(env = {}) {
    const { status, stdout, stderr } = spawnSync(this.script, {
      encoding: 'utf8',
      env: { PATH: this.bin, TMPDIR: this.folder, SETUP_STATE: this.state, SETUP_CALLS: this.calls, ...env },
    });
    const commands = fs.existsSync(this.calls)
      ? fs.readFileSync(this.calls, 'utf8').split('\n').filter((call) => call && !call.startsWith('apt-cache')) : [];
    fs.rmSync(this.calls, { force: true });
    return { status, stdout, stderr, commands };
  }

  installed() {
    return fs.readFileSync(path.join(this.state, 'installed'), 'utf8').split('\n').filter(Boolean)
      .map((line) => line.split(' ')[0]);
  }

  remove(name) {
    fs.rmSync(path.join(this.bin, name));
  }
}

const npm = 'npm ci --loglevel=error --ignore-scripts';
const systems = [
  { version: '0.29.0-2+b3', backend: 'gnustep-back0.29-cairo' },
  { version: '0.32.0-1', backend: 'gnustep-back0.32-cairo' },
  { version: '1:0.30.0-4ubuntu2', backend: 'gnustep-back0.30-cairo' },
];

for (const system of systems) {
  test(`${system.backend} is installed with the library of version ${system.version}`, (t) => {
    const machine = new System(t, system);
    const { status, stderr, commands } = machine.run();
    assert.equal(stderr, `setup: installing ${machine.installed().length} packages …\n`);
    assert.equal(status, 0);
    assert.ok(machine.installed().includes(system.backend));
    assert.deepEqual(commands.map((command) => command.replace(/(recommends).*/, '$1')),
      ['apt-get update', 'apt-get install -y --no-install-recommends', npm]);

    // With all of it there nothing is asked.
    assert.deepEqual(machine.run(), { status: 0, stdout: '', stderr: '', commands: [] });
  });
}

test('a backend that stayed behind from before an upgrade of the system does not count', (t) => {
  const machine = new System(t, systems[1]);
  machine.run();
  const file = path.join(machine.state, 'installed');
  fs.writeFileSync(file, fs.readFileSync(file, 'utf8').replace('back0.32', 'back0.29'));
  assert.deepEqual(machine.run().commands,
    ['apt-get update', 'apt-get install -y --no-install-recommends gnustep-back0.32-cairo']);
});

test('what the sources do not offer is named, and nothing is installed', (t) => {
  for (const without of [['clang-19', 'libgtest-dev'], ['gnustep-back0.29-cairo'], ['libgnustep-gui-dev']]) {
    const machine = new System(t, { ...systems[0], without });
    const { status, stderr, commands } = machine.run();
    assert.equal(status, 1);
    const [first, second, ...rest] = stderr.trim().split('\n');
    assert.match(first, /^setup: \S.* offers no package /);
    assert.deepEqual(first.replace(/.* offers no package /, '').split(' '), without);
    assert.match(second, /^setup: the tree is built on Debian 12 and 13, .* in a container \(CONTRIBUTING\.md\)$/);
    assert.deepEqual(rest, []);
    assert.deepEqual([commands, machine.installed()], [['apt-get update'], []]);
    assert.deepEqual(fs.readdirSync(machine.folder).sort(), ['bin', 'state', 'tree']);
  }
});

test('a system with other package tools is told so', (t) => {
  const machine = new System(t, systems[0]);
  machine.remove('apt-get');
  machine.remove('dpkg-query');
  const { status, stderr, commands } = machine.run();
  assert.equal(status, 1);
  assert.match(stderr, /^setup: \S.* has no apt-get dpkg-query\nsetup: the tree is built on /);
  assert.deepEqual(commands, []);
});

test('another user than root needs sudo for what is missing, and for nothing else', (t) => {
  const machine = new System(t, systems[0]);
  const user = { SETUP_USER: '1000' };
  assert.deepEqual(machine.run(user).commands.map((command) => command.split(' ', 2).join(' ')),
    ['sudo', 'apt-get update', 'sudo', 'apt-get install', 'npm ci']);
  machine.remove('sudo');
  assert.equal(machine.run(user).status, 0);

  const bare = new System(t, systems[0]);
  bare.remove('sudo');
  const { status, stderr, commands } = bare.run(user);
  assert.equal(status, 1);
  assert.match(stderr, /^setup: run it as root, or install sudo; missing: clang-19 /);
  assert.deepEqual(commands, []);
});

test('a failure of apt-get is shown', (t) => {
  const machine = new System(t, systems[0]);
  const { status, stderr, commands } = machine.run({ SETUP_IS_OFFLINE: 'yes' });
  assert.equal(status, 1);
  assert.match(stderr, /^E: Failed to fetch the lists\nsetup: apt-get failed \(all of its output: \S+\)\n$/);
  assert.deepEqual(commands, ['apt-get update']);
});
