// How the package loads its file, and what it says where that cannot be.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { buildFolder, makeSession, nodePath } from '../support/agent.mjs';
import { sanitizerEnvironment } from '../support/sanitizer.mjs';

const root = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../..');
const fits = path.join(buildFolder, 'pellmar.node');
/** The same, but recorded as of module version 85. */
const misfit = path.join(buildFolder, 'misfit/pellmar.node');

/** Runs code in the runtime; returns what it printed as JSON. */
function run(session, code, ...options) {
  const { status, stdout, stderr } = spawnSync(nodePath, [...options, '-e', code],
    { env: { ...process.env, ...sanitizerEnvironment(), ...session.env }, encoding: 'utf8' });
  assert.equal(status, 0, stderr);
  return JSON.parse(stdout);
}

const runtime = run({}, 'console.log(JSON.stringify(process.versions))');

/** The package as it is installed, with `file` in the place of its bundle if one is given. */
function install(t, file) {
  const session = makeSession(t);
  const folder = path.join(session.folder, 'node_modules/pellmar');
  fs.mkdirSync(folder, { recursive: true });
  for (const name of fs.readdirSync(root).filter((file) => /\.js$|^package\.json$/.test(file))) {
    fs.copyFileSync(path.join(root, name), path.join(folder, name));
  }
  if (file) fs.copyFileSync(file, path.join(folder, 'pellmar.node'));
  return { session, folder };
}

/** What requiring that package gives: its functions' names, or the messages of its error. */
function load(t, file, { before = '', environment = {} } = {}) {
  const { session, folder } = install(t, file);
  const result = run({ env: { ...session.env, ...environment } }, `
    ${before}
    try {
      console.log(JSON.stringify({ names: Object.keys(require(${JSON.stringify(folder)})) }));
    } catch (error) {
      console.log(JSON.stringify({
        message: error.message, cause: error.cause && error.cause.message,
        isEnumerable: Object.keys(error).includes('cause') }));
    }`);
  return { ...result, folder };
}

const names = [
  'PLShowReleaseNotesWindowIfNeeded', 'PLShowReleaseNotesWindow', 'PLCanShowReleaseNotesWindow',
  'PLReportUsageEvent', 'PLGetLastUserEmailSharingResponse', 'PLAskUserToShareEmail',
  'PLEnableDebugLogging',
];
const pretendToBeAMac = `Object.defineProperty(process, 'platform', { value: 'darwin' });`;

test('the package exports the seven functions of its file', (t) => {
  assert.deepEqual(load(t, fits).names, names);
});

test('the development tree loads the build that it has made', {
  skip: buildFolder !== path.join(root, 'build/Release') && 'another build than the tree’s own is tested',
}, (t) => {
  const { real, names: found } = run(makeSession(t), `console.log(JSON.stringify({
    names: Object.keys(require(${JSON.stringify(root)})),
    real: require('fs').realpathSync(${JSON.stringify(path.join(root, 'pellmar.node'))}) }))`);
  assert.deepEqual(found, names);
  assert.equal(real, path.join(root, 'build/Release/pellmar.node'));
});

test('nothing in the environment decides which file is loaded', (t) => {
  const session = makeSession(t);
  const elsewhere = path.join(session.folder, 'elsewhere');
  fs.mkdirSync(path.join(elsewhere, 'build/Release'), { recursive: true });
  fs.copyFileSync(misfit, path.join(elsewhere, 'build/Release/pellmar.node'));
  assert.deepEqual(load(t, fits, { environment: {
    PELLMAR_PREBUILD: elsewhere, PREBUILDS_ONLY: '1', npm_config_platform: 'win32', npm_config_arch: 'ia32',
  } }).names, names);
  // It has no way to know more of the environment than these.
  const text = fs.readFileSync(path.join(root, 'index.js'), 'utf8');
  assert.deepEqual(text.match(/(?<=\brequire\()[^)]*/g), [`'./pellmar.node'`]);
  assert.deepEqual([...new Set(text.match(/(?<=\bprocess\.)\w+/g))].sort(), ['arch', 'platform', 'versions']);
});

test('an ES module imports the functions by their names', (t) => {
  const { session, folder } = install(t, fits);
  const code = `import { PLCanShowReleaseNotesWindow as can } from ${JSON.stringify(
    path.join(folder, 'index.js'))}; console.log(can());`;
  assert.equal(run(session, code, '--input-type=module'), true);
});

test('so does the module with promises, and the stand-in needs no file', (t) => {
  const { session, folder } = install(t, fits);
  const file = (name) => JSON.stringify(path.join(folder, name));
  assert.deepEqual(run(session, `
    import { canShowReleaseNotes } from ${file('promises.js')};
    import { answer, promises, setAgent } from ${file('fake.js')};
    setAgent('asks');
    const asked = promises.askToShareEmail();
    answer(2);
    asked.then((value) => console.log(JSON.stringify([canShowReleaseNotes(), value])));`, '--input-type=module'),
  [true, 'postponed']);
});

test('a system that the file is not for gets one clear error', (t) => {
  const notForLinux = path.join(root, 'package.json');
  const { message, cause, isEnumerable, folder } = load(t, notForLinux);
  assert.equal(message, `Pellmar: there is no build of the client for ${process.platform} on ${process.arch} ` +
    `with module version ${runtime.modules} in ${folder}.`);
  assert.match(cause, /invalid ELF header|file too short/);
  assert.equal(isEnumerable, false);
});

test('a package that has lost its file says so, and what may be the reason', (t) => {
  for (const before of ['', pretendToBeAMac]) {
    const { message, cause, folder } = load(t, undefined, { before });
    assert.equal(message, `Pellmar: there is no pellmar.node in ${folder}. If a bundler has put this code ` +
      `there, make 'pellmar' external and ship node_modules/pellmar with the application. In a clone of ` +
      'the repository scripts/build makes the file.');
    assert.match(cause, /^Cannot find module '.\/pellmar.node'/);
  }
});

test('a module built for another version is refused by the runtime’s own message', (t) => {
  const message = run(makeSession(t), `
    try { require(${JSON.stringify(misfit)}); } catch (error) {
      console.log(JSON.stringify(error.message)); }`);
  assert.match(message, new RegExp('was compiled against a different Node.js version using\\s+' +
    `NODE_MODULE_VERSION 85\\. This version of Node.js requires\\s+NODE_MODULE_VERSION ${
      runtime.modules}\\.`));
});

test('that message is said again in plain words, and kept as the cause', (t) => {
  const { message, cause, folder } = load(t, misfit);
  assert.equal(message, `Pellmar: the client in ${folder} is built for module version 85, but Node ${
    runtime.node} takes modules of version ${runtime.modules}. Run it in a runtime of its version, or ` +
    `install a release of the client that is built for ${runtime.modules}.`);
  assert.match(cause, /NODE_MODULE_VERSION 85/);
});

test('what else a Mac refuses keeps the runtime’s own error', (t) => {
  const { message, cause } = load(t, path.join(root, 'package.json'), { before: pretendToBeAMac });
  assert.match(message, /invalid ELF header|file too short/);
  assert.equal(cause, undefined);
});
