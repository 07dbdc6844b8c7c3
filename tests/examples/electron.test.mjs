// The example application: its own tests with the package that is shipped, and what its packers' settings
// make of it, as far as a packer's own archive shows it here.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';

import { createPackageWithOptions } from '@electron/asar';
import { build } from 'plist';

import { makeUniversal } from '../doctor/macho_files.mjs';
import { makeTarball, root, run, skip } from '../package/tarball.mjs';
import { makeSession } from '../support/agent.mjs';

const require = createRequire(import.meta.url);
const source = path.join(root, 'examples/electron');
const builder = fs.readFileSync(path.join(source, 'electron-builder.yml'), 'utf8');

describe('the example application', { skip }, () => {
  let session;
  let folder;
  let removeSession;
  after(() => removeSession());
  before(() => {
    session = makeSession({ after: (remove) => (removeSession = remove) });
    folder = path.join(session.folder, 'example');
    fs.cpSync(source, folder, { recursive: true });
    const modules = path.join(folder, 'node_modules');
    fs.mkdirSync(modules);
    run('tar', ['-xzf', makeTarball(session), '-C', modules]);
    fs.renameSync(path.join(modules, 'package'), path.join(modules, 'pellmar'));
  });

  test('passes its own tests', () => {
    // The runner tells a runner inside of it to report to it.
    const { NODE_TEST_CONTEXT, ...env } = process.env;
    const { status, stdout } = spawnSync(process.execPath, ['--test'], { cwd: folder, encoding: 'utf8', env });
    assert.equal(status, 0, stdout);
    assert.match(stdout, /(#|ℹ) pass 5\n/);
  });

  test('is well in the eyes of the doctor, in an archive packed with its settings', async () => {
    const { packagerConfig } = require(path.join(folder, 'forge.config.js'));
    const contents = path.join(session.folder, 'Example.app/Contents');
    const resources = path.join(contents, 'Resources');
    const framework = path.join(contents, 'Frameworks/Electron Framework.framework/Versions/A/Resources');
    for (const made of [resources, framework, path.join(contents, 'MacOS')]) fs.mkdirSync(made, { recursive: true });
    await createPackageWithOptions(folder, path.join(resources, 'app.asar'), packagerConfig.asar);
    for (const resource of packagerConfig.extraResource) {
      fs.cpSync(resource, path.join(resources, path.basename(resource)), { recursive: true });
    }
    fs.copyFileSync(`${packagerConfig.icon}.icns`, path.join(resources, 'electron.icns'));
    fs.writeFileSync(path.join(framework, 'Info.plist'), build({ CFBundleVersion: '11.5.0' }));
    fs.writeFileSync(path.join(contents, 'Info.plist'), build({
      CFBundleExecutable: 'Example', CFBundleName: 'Example', CFBundleIconFile: 'electron.icns' }));
    fs.writeFileSync(path.join(contents, 'MacOS/Example'),
      makeUniversal(['x86_64', 'arm64'].map((architecture) => ({ architecture, signature: {} }))));

    const { status, stdout } = spawnSync(path.join(folder, 'node_modules/pellmar/doctor/main.mjs'),
      ['doctor', path.dirname(contents)], { encoding: 'utf8' });
    assert.deepEqual(stdout.split('\n').filter((line) => line && !line.startsWith('ok')),
      ['note  the application is not signed by a team, nor is the client: sign both with your identity for a release']);
    assert.match(stdout, /^ok .*once, outside the archive: Resources\/app\.asar\.unpacked\/node_modules\/pellmar\/pellmar\.node$/m);
    assert.match(stdout, /^ok .*translated: ar, de, .*, zh_TW$/m);
    assert.equal(status, 0);
  });

  test('has the same settings for both packers', () => {
    const { packagerConfig } = require(path.join(folder, 'forge.config.js'));
    assert.equal(packagerConfig.osxUniversal.x64ArchFiles, packagerConfig.asar.unpack);
    for (const setting of ['asarUnpack', 'x64ArchFiles']) {
      assert.ok(builder.includes(`${setting}: '${packagerConfig.asar.unpack}'\n`), setting);
    }
    assert.equal(packagerConfig.osxSign, undefined);
    for (const [, file] of builder.matchAll(/^ {2}entitlements\w*: (.*)$/gm)) {
      assert.ok(fs.existsSync(path.join(source, file)), file);
    }
  });
});
