// How the package finds its build, and what it says where it has none for the runtime.

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

const runtime = run(makeSession(), `console.log(JSON.stringify({
  version: process.versions.node, modules: process.versions.modules,
  system: process.platform + '-' + process.arch }))`);

/** The package as it is installed, with the given builds: `{ 'path in the package': 'file' }`. */
function install(t, builds) {
  const session = makeSession(t);
  const folder = path.join(session.folder, 'node_modules/pellmar');
  fs.mkdirSync(folder, { recursive: true });
  for (const file of ['index.js', 'package.json']) {
    fs.copyFileSync(path.join(root, file), path.join(folder, file));
  }
  fs.cpSync(path.join(root, 'node_modules/node-gyp-build'),
    path.join(session.folder, 'node_modules/node-gyp-build'), { recursive: true });
  for (const [name, file] of Object.entries(builds)) {
    fs.mkdirSync(path.dirname(path.join(folder, name)), { recursive: true });
    fs.copyFileSync(file, path.join(folder, name));
  }
  return { session, folder };
}

/** What requiring that package gives: its functions' names, or the messages of its error. */
function load(t, builds) {
  const { session, folder } = install(t, builds);
  const result = run(session, `
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
const prebuild = (modules) => `prebuilds/${runtime.system}/node.abi${modules}.node`;

test('the development tree’s own build is found', (t) => {
  assert.deepEqual(load(t, { 'build/Release/pellmar.node': fits }).names, names);
});

test('a packaged build for the runtime is found, among others', (t) => {
  const builds = {
    [prebuild(runtime.modules)]: fits,
    [prebuild(85)]: misfit,
    'prebuilds/darwin-x64+arm64/electron.abi85.node': misfit,
  };
  assert.deepEqual(load(t, builds).names, names);
});

test('an ES module imports the functions by their names', (t) => {
  const { session, folder } = install(t, { 'build/Release/pellmar.node': fits });
  const code = `import { PLCanShowReleaseNotesWindow as can } from ${JSON.stringify(
    path.join(folder, 'index.js'))}; console.log(can());`;
  assert.equal(run(session, code, '--input-type=module'), true);
});

test('a system without a build gets one clear error', (t) => {
  for (const builds of [{}, { 'prebuilds/darwin-x64+arm64/electron.abi85.node': misfit }]) {
    const { message, cause, isEnumerable, folder } = load(t, builds);
    const [platform, processor] = runtime.system.split('-');
    assert.equal(message, `Pellmar: there is no build of the client for ${platform} on ${processor} ` +
      `with module version ${runtime.modules} in ${folder}.`);
    assert.match(cause, /^No native build was found/);
    assert.equal(isEnumerable, false);
  }
});

test('a packaged build for another version is named, with the version that is wanted', (t) => {
  const { message, cause, folder } = load(t, {
    [`prebuilds/${runtime.system}/electron.abi85.node`]: misfit,
    [prebuild(1)]: misfit,
  });
  assert.equal(message, `Pellmar: the client in ${folder} is built for module version ` +
    `85 (for electron) and 1 (for node), but Node ${runtime.version} takes modules of version ` +
    `${runtime.modules}. Run it in a runtime of its version, or install a release of the client ` +
    `that is built for ${runtime.modules}.`);
  assert.match(cause, /^No native build was found/);
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
  for (const name of ['build/Release/pellmar.node', prebuild(runtime.modules)]) {
    const { message, cause } = load(t, { [name]: misfit });
    assert.match(message, new RegExp(`^Pellmar: the client in \\S+ is built for module version 85, ` +
      `but Node ${runtime.version} takes modules of version ${runtime.modules}\\. Run it`));
    assert.match(cause, /NODE_MODULE_VERSION 85/);
  }
});

test('what else the runtime refuses keeps the runtime’s own error', (t) => {
  const { message, cause } = load(t, { [prebuild(runtime.modules)]: path.join(root, 'package.json') });
  assert.match(message, /invalid ELF header|file too short/);
  assert.equal(cause, undefined);
});
