// The package: what scripts/package takes and refuses, what is in its file, and that an application
// which installs the file can load it or is told why not.

import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { before, describe, test } from 'node:test';

import { buildFolder, makeSession } from '../support/agent.mjs';
import { sanitizerEnvironment } from '../support/sanitizer.mjs';
import { makeBundle, makeTarball, pack, root, run, skip, symbolsOf } from './tarball.mjs';

const { version } = JSON.parse(fs.readFileSync(path.join(root, 'package.json'), 'utf8'));
const content = [
  'CHANGELOG.md', 'README.md', 'client/Pellmar.h', 'docs/images/consent-window-dark.png',
  'docs/images/consent-window.png', 'docs/integrating.md', 'docs/security.md', 'doctor/main.mjs', 'fake.d.ts', 'fake.js',
  'index.d.ts', 'index.js',
  ...fs.readdirSync(path.join(root, 'languages')).map((language) => `languages/${language}/Pellmar.strings`),
  'package.json', 'pellmar.node', 'promises.d.ts', 'promises.js', 'with-promises.js',
];

describe('scripts/package', { skip }, () => {
  test('makes a file with exactly what an application needs', (t) => {
    const session = makeSession(t);
    const bundle = makeBundle(session);
    const { status, stdout, stderr } = pack(session, '--bundle', bundle);
    assert.equal(status, 0, stderr);
    const [file, symbols] = ['tgz', 'dSYM.tar.gz'].map((end) =>
      path.join(session.folder, `pellmar-${version}.${end}`));
    assert.equal(stdout, `${file}\n${symbols}\n`);
    assert.deepEqual(run('tar', ['-tzf', file]).trim().split('\n').sort(),
      content.map((name) => `package/${name}`).sort());
    assert.deepEqual(execFileSync('tar', ['-xzOf', file, 'package/pellmar.node']), fs.readFileSync(bundle));
    assert.deepEqual(
      execFileSync('tar', ['-xzOf', symbols, 'pellmar.node.dSYM/Contents/Resources/DWARF/pellmar.node']),
      fs.readFileSync(symbolsOf(bundle)));
    const packed = JSON.parse(run('tar', ['-xzOf', file, 'package/package.json']));
    assert.deepEqual([Object.keys(packed.scripts), packed.dependencies, packed.devDependencies, packed.overrides],
      [['prepack'], undefined, undefined, undefined]);
    const archive = fs.readFileSync(symbols);
    fs.utimesSync(symbolsOf(bundle), 1, 1);
    pack(session, '--bundle', bundle);
    assert.deepEqual(fs.readFileSync(symbols), archive);
  });

  test('refuses a bundle without its symbols, and one with those of another', (t) => {
    const session = makeSession(t);
    const other = fs.readFileSync(makeBundle(session, { mark: 'other' }));
    const bundle = makeBundle(session);
    fs.writeFileSync(symbolsOf(bundle), other);
    const refused = pack(session, '--bundle', bundle);
    assert.deepEqual([refused.status, refused.stdout], [1, '']);
    assert.match(refused.stderr, /has the symbols of another bundle/);
    fs.rmSync(`${bundle}.dSYM`, { recursive: true });
    assert.match(pack(session, '--bundle', bundle).stderr, /there is no \S+\.dSYM with the bundle's symbols/);
    assert.deepEqual(fs.readdirSync(session.folder).filter((name) => /gz$/.test(name)), []);
  });

  for (const [name, versions] of [['either slice', [83, 83]], ['one slice', [85, 87]]]) {
    test(`refuses a bundle of another module version in ${name}`, (t) => {
      const session = makeSession(t);
      const { status, stdout, stderr } = pack(session, '--bundle', makeBundle(session, { versions }));
      assert.equal(status, 1);
      assert.equal(stdout, '');
      assert.match(stderr, /not a bundle of both slices for module version 85/);
      assert.match(stderr, new RegExp(`arm64 ${versions[1]}\nx86_64 ${versions[0]}`));
    });
  }

  test('refuses a bundle of one slice', (t) => {
    const session = makeSession(t);
    makeBundle(session);
    const { status, stderr } = pack(session, '--bundle', path.join(session.folder, 'arm64'));
    assert.equal(status, 1);
    assert.match(stderr, /not a bundle of both slices for module version 85, but:\narm64 85/);
  });

  test('brings a program that needs no other package', (t) => {
    const session = makeSession(t);
    run('tar', ['-xzf', makeTarball(session), '-C', session.folder]);
    const packed = path.join(session.folder, 'package');
    const { bin } = JSON.parse(fs.readFileSync(path.join(packed, 'package.json'), 'utf8'));
    const application = path.join(session.folder, 'Editor.app/Contents');
    fs.mkdirSync(application, { recursive: true });
    fs.writeFileSync(path.join(application, 'Info.plist'), '<plist><dict></dict></plist>');
    const { status, stdout, stderr } = spawnSync(path.join(packed, bin.pellmar),
      ['doctor', path.dirname(application)], { encoding: 'utf8' });
    assert.deepEqual([status, stderr], [1, '']);
    assert.match(stdout, /^wrong the client is not in the application/);
  });

  test('refuses what is no bundle for macOS, and what is not there', (t) => {
    const session = makeSession(t);
    for (const file of [path.join(buildFolder, 'pellmar.node'), path.join(session.folder, 'none')]) {
      const { status, stdout, stderr } = pack(session, '--bundle', file);
      assert.equal(status, 1);
      assert.equal(stdout, '');
      assert.match(stderr, /cannot be read as a universal bundle|there is no /);
    }
  });

  test('packs a build for checking only when told to, and under a version that says so', (t) => {
    const session = makeSession(t);
    // The text that the module's build puts there when its record is not of its headers' version.
    const [mark] = /pellmar: built for checking[^\0]*/.exec(
      fs.readFileSync(path.join(buildFolder, 'misfit/pellmar.node'), 'latin1'));
    assert.equal(fs.readFileSync(path.join(buildFolder, 'pellmar.node'), 'latin1').includes(mark), false);
    const bundle = makeBundle(session, { mark });
    const refused = pack(session, '--bundle', bundle);
    assert.equal(refused.status, 1);
    assert.match(refused.stderr, /was built for checking, not for shipping/);
    assert.deepEqual(fs.readdirSync(session.folder).filter((name) => name.endsWith('.tgz')), []);
    const { status, stdout } = pack(session, '--bundle', bundle, '--for-checking');
    assert.equal(status, 0);
    assert.deepEqual(stdout.trim().split('\n').map((file) => path.basename(file)),
      [`pellmar-${version}-checking.tgz`, `pellmar-${version}-checking.dSYM.tar.gz`]);
  });
});

test('npm pack in the tree, which has no bundle, packs nothing', (t) => {
  const session = makeSession(t);
  const { status, stderr } = spawnSync('npm', ['pack', '--pack-destination', session.folder],
    { cwd: root, encoding: 'utf8' });
  assert.notEqual(status, 0);
  assert.match(stderr, /The bundle is missing: use scripts\/package\./);
  assert.deepEqual(fs.readdirSync(session.folder).filter((name) => name.endsWith('.tgz')), []);
});

describe('an application that installs the package', { skip }, () => {
  let application;
  let installed;

  before(() => {
    const session = makeSession();
    application = path.join(session.folder, 'application');
    installed = path.join(application, 'node_modules/pellmar');
    fs.mkdirSync(application);
    fs.writeFileSync(path.join(application, 'package.json'), '{ "private": true }');
    pack(session, '--bundle', makeBundle(session));
    const files = fs.readdirSync(session.folder).filter((name) => name.endsWith('.tgz'));
    run('npm', ['install', '--offline', '--no-audit', '--no-fund',
      ...files.map((name) => path.join(session.folder, name))], { cwd: application });
    process.on('exit', () => fs.rmSync(session.folder, { recursive: true }));
  });

  /** Runs code in the application's folder; returns what it printed. */
  function script(t, code) {
    const { status, stdout, stderr } = spawnSync(process.execPath, ['-e', code], {
      cwd: application, encoding: 'utf8',
      env: { ...process.env, ...sanitizerEnvironment(), ...makeSession(t).env },
    });
    assert.equal(status, 0, stderr);
    return stdout.trim();
  }
  const attempt = `try { require('pellmar'); console.log('loaded'); } catch (error) {
    console.log(error.message); }`;

  /** Puts a build for this system in the place of the Mac's for the length of a test. */
  function replaceBuild(t, file) {
    const bundle = path.join(installed, 'pellmar.node');
    const shipped = fs.readFileSync(bundle);
    t.after(() => fs.writeFileSync(bundle, shipped));
    fs.copyFileSync(path.join(buildFolder, file), bundle);
  }

  test('is told that there is no build for its system', (t) => {
    assert.match(script(t, attempt), /^Pellmar: there is no build of the client for linux on /);
  });

  test('calls it where there is one for its runtime', (t) => {
    replaceBuild(t, 'pellmar.node');
    assert.equal(script(t, `
      const pellmar = require('pellmar');
      pellmar.PLReportUsageEvent('installed');
      console.log(pellmar.PLCanShowReleaseNotesWindow(), pellmar.PLGetLastUserEmailSharingResponse());`),
      'true 0');
  });

  test('is told where the build is for another runtime', (t) => {
    replaceBuild(t, 'misfit/pellmar.node');
    assert.match(script(t, attempt), /^Pellmar: the client in \S+ is built for module version 85, but /);
  });
});
