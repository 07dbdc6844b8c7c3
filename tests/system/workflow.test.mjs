// The workflow that cannot run here: what it calls is there, and the script that fetches for it works.

import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import { createHash } from 'node:crypto';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

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

test('the runtime\'s headers are taken only whole and of the right version', (t) => {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'pellmar-headers-'));
  t.after(() => fs.rmSync(folder, { recursive: true }));
  const archive = 'node-v11.5.0-headers.tar.gz';
  const offer = (version) => {
    const headers = path.join(folder, 'node_headers/include/node');
    fs.mkdirSync(headers, { recursive: true });
    fs.writeFileSync(path.join(headers, 'node_version.h'), `#define NODE_MODULE_VERSION ${version}\n`);
    execFileSync('tar', ['-czf', archive, 'node_headers'], { cwd: folder });
    const digest = createHash('sha256').update(fs.readFileSync(path.join(folder, archive))).digest('hex');
    fs.writeFileSync(path.join(folder, 'SHASUMS256.txt'), `${digest}  ${archive}\n`);
  };
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
});
