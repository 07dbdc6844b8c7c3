// The workflow that cannot run here: what it calls is there, and the script that fetches for it works.

import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { archive, engineSettings, offerHeaders, writeFiles } from './engine_headers.mjs';

const root = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../..');
const read = (file) => fs.readFileSync(path.join(root, file), 'utf8');

test('the workflow calls scripts that are there, and pins the actions that it uses', () => {
  const text = read('.github/workflows/ci.yml');
  const scripts = new Set(text.match(/(?<=^|\s)(scripts|tests)\/[\w./-]+/gm));
  assert.ok(scripts.size >= 5);
  for (const script of scripts) {
    const mode = fs.statSync(path.join(root, script)).mode;
    assert.ok(script.endsWith('.mjs') || mode & 0o100, `${script} cannot be executed`);
  }
  const presets = JSON.parse(read('CMakePresets.json')).configurePresets.map(({ name }) => name);
  for (const [, preset] of text.matchAll(/--preset (\S+)/g)) {
    assert.ok(presets.includes(preset), preset);
  }
  for (const [, action] of text.matchAll(/uses: (.*)$/gm)) {
    assert.match(action, /^[\w-]+\/[\w-]+@[0-9a-f]{40} # v\d+\.\d+\.\d+$/);
  }
});

test('on a Mac Electron comes first, and no step that fails hides another', () => {
  const [, mac] = /^ {2}macos:\n(.*?)^ {2}\w/ms.exec(read('.github/workflows/ci.yml'));
  const steps = mac.split(/^ {6}- /m).slice(1);
  const index = (pattern) => steps.findIndex((step) => pattern.test(step));
  const order = [/id: agent/, /test-electron --client/, /scripts\/example/, /id: build/, /upload-artifact/, /test-electron\n/, /ctest/, /id: costs/]
    .map(index);
  assert.ok(!order.includes(-1));
  assert.deepEqual(order, [...order].sort((a, b) => a - b));
  for (const step of steps.slice(index(/id: agent/) + 1)) {
    assert.match(step, /^ {8}if: \$\{\{ !cancelled\(\)/m);
  }
  const [, check] = /^ {2}native-check:\n(.*)/ms.exec(read('.github/workflows/ci.yml'));
  assert.match(check, /^ {4}if: \$\{\{ !cancelled\(\) \}\}$/m);
});

test('a tag is released after every other job, and what is attested is what is kept', () => {
  const text = read('.github/workflows/ci.yml');
  const [, list] = /^jobs:\n(.*)/ms.exec(text);
  const jobs = [...list.matchAll(/^ {2}([\w-]+):$/gm)].map(([, name]) => name);
  const [, release] = /^ {2}release:\n(.*)/ms.exec(text);
  assert.match(release, /^ {4}if: \$\{\{ startsWith\(github\.ref, 'refs\/tags\/v'\) \}\}$/m);
  const [, needs] = /^ {4}needs: \[(.*)\]$/m.exec(release);
  assert.deepEqual([...needs.split(', '), 'release'], jobs);
  // Nothing else may sign in the repository's name.
  assert.deepEqual(text.match(/^ *[\w-]+: write$/gm), ['      id-token: write', '      attestations: write']);
  const [, folder] = /scripts\/release .*--out (\S+)/.exec(release);
  const steps = [/scripts\/release /, /attest-build-provenance@/, /upload-artifact@/]
    .map((pattern) => release.search(pattern));
  assert.ok(!steps.includes(-1));
  assert.deepEqual(steps, [...steps].sort((a, b) => a - b));
  assert.match(release, new RegExp(`^ {10}subject-checksums: ${folder}/SHA256SUMS$`, 'm'));
  assert.match(release, new RegExp(`^ {10}path: ${folder}$`, 'm'));
});

test('the runtime\'s headers are taken only whole and of the right version', (t) => {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'pellmar-headers-'));
  t.after(() => fs.rmSync(folder, { recursive: true }));
  const offer = (...headers) => offerHeaders(folder, ...headers);
  const fetched = (name) =>
    spawnSync(path.join(root, 'scripts/electron-headers'), [path.join(folder, name), `file://${folder}`],
      { encoding: 'utf8' });

  offer(85);
  assert.equal(fetched('right').status, 0);
  assert.ok(fs.existsSync(path.join(folder, 'right/include/node/node_version.h')));

  fs.appendFileSync(path.join(folder, archive), 'x');
  assert.match(fetched('changed').stderr, /not what its maker's list of digests says/);
  assert.ok(!fs.existsSync(path.join(folder, 'changed')));

  offer(88);
  assert.match(fetched('other').stderr, /not of module version 85/);

  offer(85, {});
  assert.match(fetched('bare').stderr, /do not set V8_COMPRESS_POINTERS/);
  offer(85, { ...engineSettings,
    'config.gypi': engineSettings['config.gypi'].replace("jsargs': 1", "jsargs': 0") });
  assert.match(fetched('other settings').stderr, /do not set V8_REVERSE_JSARGS/);
});

test('an engine\'s settings are read from its headers as node-gyp reads them', (t) => {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'pellmar-headers-'));
  t.after(() => fs.rmSync(folder, { recursive: true }));
  const defines = (files) => {
    fs.rmSync(folder, { recursive: true });
    fs.mkdirSync(folder);
    writeFiles(folder, files);
    return execFileSync(process.execPath, [path.join(root, 'cmake/engine-defines.mjs'), folder],
      { encoding: 'utf8' }).split('\n').filter(Boolean);
  };
  const three = ['V8_COMPRESS_POINTERS', 'V8_31BIT_SMIS_ON_64BIT_ARCH', 'V8_REVERSE_JSARGS'];
  assert.deepEqual(defines(engineSettings), three);
  assert.deepEqual(defines({ ...engineSettings, 'config.gypi': "{ 'variables': {} }" }), []);
  assert.deepEqual(defines({}), []);
  // What the headers do not ask about is of no use to them.
  assert.deepEqual(defines({ ...engineSettings, 'v8.h': '#ifdef V8_REVERSE_JSARGS\n#endif\n' }), three.slice(2));
  // Set by default in the other file, but for processors of 32 bits.
  assert.deepEqual(defines({
    ...engineSettings,
    'config.gypi': '# nothing\n{}',
    'common.gypi': engineSettings['common.gypi']
      .replace("compression%': 0", "compression%': 1").replace("jsargs%': 0", "jsargs%': 1"),
  }), three);
});
