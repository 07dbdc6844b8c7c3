// The declarations against calls that must compile and calls that must not, and against the functions that
// there are.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { createRequire } from 'node:module';
import path from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { buildFolder, makeSession } from '../../support/agent.mjs';
import { sanitizerEnvironment } from '../../support/sanitizer.mjs';

const require = createRequire(import.meta.url);
const folder = path.dirname(fileURLToPath(import.meta.url));

test('right calls compile and wrong ones do not', () => {
  const { status, stdout } = spawnSync(process.execPath,
    [require.resolve('typescript/bin/tsc'), '--project', folder], { encoding: 'utf8' });
  assert.equal(stdout, '');
  assert.equal(status, 0);
});

/** The names that a file declares for scripts, types left out. */
function declaredIn(name) {
  const typescript = require('typescript');
  const file = path.join(folder, '../../..', name);
  const declared = [];
  typescript.createSourceFile(file, typescript.sys.readFile(file), typescript.ScriptTarget.Latest)
    .forEachChild((node) => {
      if (typescript.isFunctionDeclaration(node)) declared.push(node.name.text);
      if (typescript.isVariableStatement(node)) {
        declared.push(...node.declarationList.declarations.map((declaration) => declaration.name.text));
      }
    });
  return declared;
}

test('the functions that are declared are those that there are', (t) => {
  const { stdout, stderr } = spawnSync(process.execPath, ['-e', `console.log(JSON.stringify(
    Object.keys(require(${JSON.stringify(path.join(buildFolder, 'pellmar.node'))}))))`],
    { env: { ...process.env, ...sanitizerEnvironment(), ...makeSession(t).env }, encoding: 'utf8' });
  assert.equal(stderr, '');
  assert.deepEqual(declaredIn('index.d.ts').sort(), JSON.parse(stdout).sort());
});

test('and so it is with the fake, which has the same besides its own, and with the promises', () => {
  const fake = require('../../../fake.js');
  assert.deepEqual([...declaredIn('index.d.ts'), ...declaredIn('fake.d.ts'), 'promises'].sort(),
    Object.keys(fake).sort());
  assert.deepEqual(declaredIn('promises.d.ts').sort(), Object.keys(fake.promises).sort());
});
