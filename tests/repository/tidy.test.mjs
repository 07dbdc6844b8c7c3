// The names in the sources, by clang-tidy. Takes minutes, so only `scripts/test --all` runs it.

import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';

const root = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../..');
const build = process.env.PELLMAR_BUILD_DIR;

test('every name is in the style of its kind', async (t) => {
  const compiled = JSON.parse(fs.readFileSync(path.join(build, 'compile_commands.json'), 'utf8'))
    .map(({ file }) => file)
    .filter((file) => /\.(c|m|mm|cpp)$/.test(file) && !path.relative(root, file).startsWith('build'));
  const left = [...new Set(compiled)];
  assert.ok(left.length > 200);
  t.diagnostic(`${left.length} files`);
  const found = new Set();
  const worker = async () => {
    for (let file = left.pop(); file; file = left.pop()) {
      const { stdout } = await promisify(execFile)('clang-tidy-19', ['-p', build, '--quiet', file],
        { cwd: root, maxBuffer: 1 << 28 }).catch((error) => error);
      // A header's finding comes once for each file that includes it.
      for (const line of (stdout ?? '').match(/^.*(?:error|warning): .*$/gm) ?? []) found.add(line);
    }
  };
  await Promise.all(os.cpus().map(worker));
  assert.deepEqual([...found], []);
});
