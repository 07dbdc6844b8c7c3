// What the scripts do on a Mac, tried without one: in a copy of the tree, with stand-ins (mac/) for the
// programs of that system, and with nothing else on PATH but what every Mac has. Each command that a script
// gives is recorded. launchd's stand-in starts the real agent, and Electron's the desktop host.

import assert from 'node:assert/strict';
import { execFileSync, spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import path from 'node:path';
import { createInterface } from 'node:readline';
import { after, before, describe, test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { buildFolder, makeSession } from '../support/agent.mjs';
import { startDisplay, until } from '../support/display.mjs';
import { offerHeaders } from './engine_headers.mjs';

const root = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../..');
const standIns = path.join(root, 'tests/repository/mac');
const unrecorded = ['uname', 'Electron', 'electron.js'];

/** Programs of a Mac that are the same here. */
const tools = ['bash', 'basename', 'cat', 'chmod', 'cmp', 'cp', 'dirname', 'env', 'grep', 'id', 'ln', 'mkdir',
  'mktemp', 'perl', 'rm', 'sed', 'shasum', 'sh', 'sleep', 'sort', 'tar', 'gzip'];

/** What GNUstep of Debian 13 calls to find its own programs; without that it aborts. Debian 12 has not all of it. */
const toolsOfGNUstep = ['dpkg', 'dpkg-architecture'].filter((tool) => fs.existsSync(`/usr/bin/${tool}`));

/** A copy of the tree on a machine that passes for a Mac. */
class Mac {
  constructor(t, display) {
    this.session = makeSession(t);
    this.folder = path.join(this.session.folder, 'mac');
    this.tree = path.join(this.folder, 'tree');
    this.state = path.join(this.folder, 'state');
    this.temporary = path.join(this.folder, 'tmp');
    const [bin, headers] = ['bin', 'headers'].map((name) => path.join(this.folder, name));
    for (const folder of [this.tree, this.state, this.temporary, bin, headers]) {
      fs.mkdirSync(folder, { recursive: true });
    }
    const files = execFileSync('git', ['ls-files', '-z', '-co', '--exclude-standard'],
      { cwd: root, encoding: 'utf8' }).split('\0').filter((file) => fs.existsSync(path.join(root, file || '?')));
    for (const file of files) fs.cpSync(path.join(root, file), path.join(this.tree, file));
    offerHeaders(headers);

    this.calls = path.join(this.state, 'calls');
    const record = (name, program) => {
      const file = path.join(bin, name);
      fs.writeFileSync(file, `#!/bin/bash\nprintf '%s\\n' "${name} $*" >>"$MAC_CALLS"\nexec ${program} "$@"\n`);
      fs.chmodSync(file, 0o755);
    };
    for (const name of fs.readdirSync(standIns).filter((name) => !unrecorded.includes(name))) {
      record(name, path.join(standIns, name));
    }
    fs.symlinkSync(path.join(standIns, 'uname'), path.join(bin, 'uname'));
    record('node', process.execPath);
    for (const tool of [...tools, ...toolsOfGNUstep]) {
      fs.symlinkSync(execFileSync('which', [tool], { encoding: 'utf8' }).trim(), path.join(bin, tool));
    }
    const { DISPLAY, CI, NODE_TEST_CONTEXT, ...environment } = process.env;
    this.bin = bin;
    this.env = {
      ...environment, ...this.session.env, ...display?.env, PATH: bin, TMPDIR: this.temporary,
      MAC_CALLS: this.calls, MAC_STATE: this.state, MAC_ROOT: root, MAC_BUILD: buildFolder,
      MAC_STAND_INS: standIns, MAC_HEADERS: headers, MAC_PATH: process.env.PATH,
    };
    delete this.env.PELLMAR_BUILD_DIR;
    // What is not the scripts' own affair.
    this.ignore = [/^node -(p|e) /, /^node \S*engine-defines/];
    t.after(() => spawnSync(path.join(standIns, 'launchctl'), ['bootout', this.job], { env: this.env }));
  }

  get job() {
    return `gui/${process.getuid()}/com.pellmar.ProvisioningService`;
  }

  /** Runs a script to its end; the limit is for one that hangs. */
  run(script, args = [], env = {}) {
    return spawnSync(path.join(this.tree, 'scripts', script), args,
      { env: { ...this.env, ...env }, encoding: 'utf8', timeout: 600_000 });
  }

  /** Starts a script; `line` of what it returns waits for a line that begins so. */
  start(t, script, args = [], env = {}) {
    const child = spawn(path.join(this.tree, 'scripts', script), args,
      { env: { ...this.env, ...env }, stdio: ['ignore', 'pipe', 'pipe'] });
    t.after(() => child.kill('SIGKILL'));
    const lines = [];
    createInterface({ input: child.stdout }).on('line', (line) => lines.push(line));
    let stderr = '';
    child.stderr.on('data', (data) => (stderr += data));
    return {
      lines,
      line: (start) => until(() => {
        assert.equal(child.exitCode, null, [...lines, stderr].join('\n'));
        return lines.find((line) => line.startsWith(start));
      }, `it says ${start}`, 60_000),
      kill: (signal) => child.kill(signal),
      ended: once(child, 'close').then(([status]) => ({ status, lines, stderr })),
    };
  }

  /** The commands since the last time, with the machine's own paths named. */
  commands() {
    const text = fs.existsSync(this.calls) ? fs.readFileSync(this.calls, 'utf8') : '';
    fs.rmSync(this.calls, { force: true });
    return text.split('\n').filter((call) => call && !this.ignore.some((pattern) => pattern.test(call)))
      .map((call) => call.replaceAll(this.tree, 'TREE')
        .replaceAll(new RegExp(`${this.temporary}/[\\w.-]+`, 'g'), 'TMP').replaceAll(this.job, 'JOB')
        .replace(`gui/${process.getuid()} `, 'SESSION '));
  }

  /** Without one of the stand-ins. */
  remove(name) {
    fs.rmSync(path.join(this.bin, name));
  }

  /** That no job and no file is left behind. */
  assertClean() {
    assert.deepEqual(fs.readdirSync(this.state).filter((name) => name === 'job'), []);
    assert.deepEqual(fs.readdirSync(this.temporary), []);
  }
}

const checks = ['cmake --version', 'xcode-select -p', 'xcrun --find clang'];
const setUp = [...checks, 'npm ci --loglevel=error --ignore-scripts'];
const configure = 'cmake --preset macos-universal -D PELLMAR_NODE_HEADERS=TREE/build/electron-headers/include/node';
const fetchHeaders = ['SHASUMS256.txt', 'node-v11.5.0-headers.tar.gz'].map((file) =>
  'curl --fail --silent --show-error --location --retry 3 ' +
  `--output TMP/${file} https://artifacts.electronjs.org/headers/dist/v11.5.0/${file}`);
const fetchElectron =
  'npm install --prefix TREE/build/electron --loglevel=error --no-audit --no-fund electron@11.5.0';
const bootstrap = 'launchctl bootstrap SESSION TMP/com.pellmar.ProvisioningService.plist';
const bootout = 'launchctl bootout JOB';
const testElectron = 'node --test --test-reporter=spec TREE/tests/electron/electron.test.mjs';
const build = 'cmake --build build/Release';

test('the scripts keep to the bash of a Mac, which is 3.2', () => {
  const later = new RegExp([
    /\b(mapfile|readarray|coproc)\b/, /\b(declare|local|typeset) -\w*[Angu]/, /\bwait -n\b/, /\[\[ -v /,
    /\$\{\w+(\[[@*]\])?(\^|,|@)/, /&>>|\|&|;&|;;&/, /\$\{?(EPOCH|BASHPID)/, /%\([^)]*\)T/,
  ].map(({ source }) => source).join('|'));
  for (const name of ['agent', 'build', 'demo', 'electron', 'electron-headers', 'example', 'setup', 'test', 'test-electron']) {
    const script = fs.readFileSync(path.join(root, 'scripts', name), 'utf8');
    assert.doesNotMatch(script, later, name);
  }
});

describe('scripts/setup on a Mac', () => {
  test('installs the packages of npm, once', (t) => {
    const mac = new Mac(t);
    assert.deepEqual(mac.run('setup').stderr, '');
    assert.deepEqual(mac.commands(), setUp);
    assert.equal(mac.run('setup').status, 0);
    assert.deepEqual(mac.commands(), checks);
  });

  test('says in a line each what is missing, and installs nothing', (t) => {
    const mac = new Mac(t);
    mac.remove('ninja');
    mac.remove('xcode-select');
    mac.remove('npm');
    const { status, stderr } = mac.run('setup', [], { MAC_CMAKE_VERSION: '3.24.9' });
    assert.equal(status, 1);
    assert.deepEqual(stderr.trim().split('\n'), [
      "setup: missing: Xcode's command line tools: xcode-select --install",
      'setup: missing: CMake 3.25 or later (this is 3.24.9): brew install cmake, or cmake.org',
      'setup: missing: Ninja: brew install ninja, or ninja-build.org',
      `setup: missing: Node 18.15 or later with npm (this is ${process.versions.node}): ` +
        'brew install node, or nodejs.org',
    ]);
    assert.deepEqual(mac.commands(), ['cmake --version']);
    mac.remove('cmake');
    mac.remove('node');
    assert.deepEqual(mac.run('setup').stderr.match(/(CMake|Node) .*:/g),
      ['CMake 3.25 or later:', 'Node 18.15 or later with npm:']);
  });
});

test('scripts/build on a Mac fetches headers once and builds with the preset', (t) => {
  const mac = new Mac(t);
  assert.equal(mac.run('build').status, 0);
  assert.deepEqual(mac.commands(), [...fetchHeaders, configure, build]);
  assert.equal(mac.run('build', ['default', 'pellmar']).status, 0);
  assert.deepEqual(mac.commands(), [`${build} --target pellmar`]);
  const { status, stderr } = mac.run('build', ['sanitize']);
  assert.deepEqual([status, stderr], [2, 'build: the preset sanitize is for Linux\n']);
});

describe('scripts/agent on a Mac', () => {
  test('has launchd start the agent, shows its lines and takes it out', async (t) => {
    const mac = new Mac(t);
    mac.run('build');
    mac.commands();
    fs.writeFileSync(path.join(mac.state, 'leaving'), '');
    const agent = mac.start(t, 'agent', ['--email', '<"Jane" & Joe>', '--should-ask', 'no']);
    await agent.line('{"event":"listening"');
    const plist = fs.readFileSync(path.join(mac.state, 'job.plist'), 'utf8');
    assert.deepEqual([...plist.matchAll(/^ {4}<string>(.*)<\/string>$/gm)].map(([, word]) => word), [
      path.join(mac.tree, 'build/Release/pellmar-dev-agent'), 'serve', '--email',
      '&lt;"Jane" &amp; Joe&gt;', '--should-ask', 'no']);
    assert.match(plist, /<key>MachServices<\/key><dict><key>com\.pellmar\.ProvisioningService<\/key><true\/>/);
    // A --state FILE is looked for where the script was called.
    assert.ok(plist.includes(`<key>WorkingDirectory</key><string>${process.cwd()}</string>`));
    // It runs with these options: a client is answered, and the lines come through.
    const client = spawnSync(process.execPath,
      ['-p', `require(${JSON.stringify(root)}).PLGetLastUserEmailSharingResponse()`],
      { env: { ...process.env, ...mac.session.env }, encoding: 'utf8' });
    assert.equal(client.stdout, '1\n');
    await agent.line('{"event":"request","method":"fetchAskingPermissionStatus:"');

    agent.kill('SIGTERM');
    assert.equal((await agent.ended).status, 0);
    assert.deepEqual(mac.commands(), [`${build} --target pellmar-dev-agent`, bootstrap, bootstrap, bootout]);
    mac.assertClean();
  });

  test('ends with what is wrong with an option', (t) => {
    const mac = new Mac(t);
    const { status, stderr } = mac.run('agent', ['--colour'], { PELLMAR_BUILD_DIR: buildFolder });
    assert.equal(status, 2);
    assert.equal(stderr, 'pellmar-dev-agent: unknown option: --colour (see --help)\n');
    assert.deepEqual(mac.commands(), [bootstrap, bootout]);
    mac.assertClean();
  });

  test('says when the service is taken, and leaves that job alone', (t) => {
    const mac = new Mac(t);
    fs.writeFileSync(path.join(mac.state, 'taken'), '');
    const { status, stderr } = mac.run('agent', [], { PELLMAR_BUILD_DIR: buildFolder });
    assert.equal(status, 1);
    assert.match(stderr, /^agent: Bootstrap failed: 5: .*\nagent: launchctl print gui\/\d+\/com\.pellmar\./);
    const commands = mac.commands();
    assert.ok(commands.length > 10);
    assert.deepEqual(new Set(commands), new Set([bootstrap]));
    mac.assertClean();
  });
});

describe('with a display', () => {
  let display;
  before(async () => (display = await startDisplay()));
  after(() => display.stop());

  const demo = [...setUp, ...fetchHeaders, configure, build,
    'node linux/host/demo/run.mjs scripts/electron linux/host/demo/electron.js', bootstrap, fetchElectron];

  test('scripts/demo on a Mac runs the application in Electron beside the agent', async (t) => {
    const mac = new Mac(t, display);
    const running = mac.start(t, 'demo');
    await running.line('log    | ' + new Date().getFullYear());
    await running.line('window | is up and waits for you');
    await display.focused('Pellmar Demo');
    await display.xdotool('key', 'Return');
    const { status, lines, stderr } = await running.ended;
    assert.equal(status, 0, [...lines, stderr].join('\n'));
    assert.equal(lines.at(-1), 'demo   | both sides agree');
    assert.ok(lines.includes('agent  | updateAllowedCustomerEmail:callback: ["customer@example.com"]'));
    assert.deepEqual(mac.commands(), [...demo, bootout]);
    mac.assertClean();
    assert.deepEqual([mac.run('demo', ['--headless']).status, mac.commands()], [2, []]);
  });

  for (const signal of ['SIGINT', 'SIGTERM']) {
    test(`scripts/demo on a Mac leaves nothing behind when it ends by ${signal}`, async (t) => {
      const mac = new Mac(t, display);
      const running = mac.start(t, 'demo');
      await running.line('window | is up and waits for you');
      running.kill(signal);
      assert.equal((await running.ended).status, 1);
      assert.deepEqual(mac.commands(), [...demo, bootout]);
      mac.assertClean();
      assert.deepEqual(await display.windows('Pellmar Demo'), []);
    });
  }

  const tests = [...setUp, ...fetchHeaders, configure, build, testElectron, fetchElectron,
    bootstrap, bootout, 'osascript -e tell application "System Events" to get UI elements enabled', bootstrap];
  const unitTests = 'ctest --test-dir build/Release --output-on-failure -R .';

  test('scripts/test on a Mac tests in Electron, with a real key, and runs the unit tests', (t) => {
    const mac = new Mac(t, display);
    const { status, stdout } = mac.run('test', [], { CI: 'true' });
    assert.equal(status, 0, stdout);
    assert.match(stdout, /✔ the customer answers the question in the window with Return/);
    const commands = mac.commands();
    const presses = commands.filter((command) => /^osascript TREE.*press-return.applescript \d+$/.test(command));
    assert.ok(presses.length > 0);
    assert.deepEqual(commands.filter((command) => !presses.includes(command)), [...tests, bootout, unitTests]);
    mac.assertClean();

    // One of them, and what is red.
    assert.equal(mac.run('test', ['fonts'], { MAC_CTEST_STATUS: '8' }).status, 1);
    assert.deepEqual(mac.commands(), [...checks, build, 'ctest --test-dir build/Release --output-on-failure -R fonts']);
  });

  test('the tests in Electron say when no key can be pressed, and fail where that is not expected', (t) => {
    const mac = new Mac(t, display);
    mac.run('setup');
    mac.run('build');
    mac.commands();
    const refused = { MAC_KEYS: 'false' };
    const local = mac.run('test-electron', [], refused);
    assert.equal(local.status, 0, local.stdout);
    assert.match(local.stdout, /﹣ the customer answers .* # System Events presses no keys for this program: false/);
    const ci = mac.run('test', [], { ...refused, CI: 'true' });
    assert.equal(ci.status, 1);
    assert.match(ci.stdout, /✖ the customer answers/);
    assert.match(ci.stdout, /System Events presses no keys for this program: false/);
    // The unit tests run all the same.
    assert.equal(mac.commands().at(-1), unitTests);
    mac.assertClean();
  });

  test('the tests in Electron take its own crash while it quits, and no other', (t) => {
    const mac = new Mac(t, display);
    mac.run('setup');
    mac.run('build');
    // Without a key one of them still quits.
    const failing = (env) => {
      const { stdout } = mac.run('test-electron', [], { ...env, MAC_KEYS: 'false' });
      mac.assertClean();
      return new Set(stdout.match(/(?<=^✖ )\S.*(?= \(\d)/gm));
    };
    const quitting = new Set(['an application reports, is told what is known, and logs']);
    assert.deepEqual(failing({ MAC_PROCESSOR: 'arm64', MAC_CRASH: 'with the client' }), quitting);
    assert.deepEqual(failing({ MAC_PROCESSOR: 'arm64', MAC_CRASH: 'always' }), new Set());
    assert.deepEqual(failing({ MAC_PROCESSOR: 'x64', MAC_CRASH: 'always' }), quitting);
  });
});
