// What the sources themselves must keep to.

import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { mutants } from '../mutants/table.mjs';

const root = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../..');

/** The files that git knows or would take, below the given folders. */
function files(...folders) {
  return execFileSync('git', ['ls-files', '-z', '-co', '--exclude-standard', '--', ...folders],
    { cwd: root, encoding: 'utf8' }).split('\0').filter(Boolean)
    .filter((file) => fs.existsSync(path.join(root, file)));
}

const isSource = (file) => /\.(h|c|m|mm|cpp)$/.test(file);
const read = (file) => fs.readFileSync(path.join(root, file), 'utf8');
const includesOf = (file) =>
  [...read(file).matchAll(/^#\s*(?:import|include)\s*[<"]([^>"]+)[>"]/gm)].map((match) => match[1]);

test('every source is formatted', () => {
  const sources = files('.').filter(isSource);
  assert.ok(sources.length > 40);
  const { status, stderr } = spawnSync('clang-format-19', ['--dry-run', '--Werror', ...sources],
    { cwd: root, encoding: 'utf8' });
  assert.deepEqual(stderr.split('\n').filter((line) => line.includes('error:')), []);
  assert.equal(status, 0);
});

test('a header that is included has a guard of its name, and another is imported', () => {
  const guards = new Map();
  const imported = new Set();
  for (const file of files('.').filter(isSource)) {
    if (file.endsWith('.h')) {
      const [, guard] = /^#ifndef (\w+)\n#define \1$/m.exec(read(file)) ?? [];
      if (guard) {
        const name = path.basename(file).toUpperCase().replace(/[^A-Z0-9]/g, '');
        assert.ok(guard.replaceAll('_', '').endsWith(name), `${file}: ${guard}`);
        assert.ok(!guards.has(guard), `${file} and ${guards.get(guard)}: ${guard}`);
        guards.set(guard, file);
      } else {
        imported.add(path.basename(file));
      }
    }
  }
  assert.ok(guards.size > 50);
  for (const file of files('.').filter(isSource)) {
    for (const [, name] of read(file).matchAll(/^#\s*include\s*"([^"]+)"/gm)) {
      assert.ok(!imported.has(path.basename(name)), `${file} includes ${name}, which has no guard`);
    }
  }
});

test('shellcheck finds nothing in the scripts', () => {
  const scripts = files('.').filter((file) => /^#!.*\b(ba)?sh\b/.test(read(file).slice(0, 80)));
  assert.ok(scripts.length > 20);
  const { status, stdout } = spawnSync('shellcheck', scripts, { cwd: root, encoding: 'utf8' });
  assert.equal(status, 0, stdout);
});

test('what the mutants change is there, once', () => {
  assert.ok(mutants.length > 200);
  for (const { file, from } of mutants) assert.equal(read(file).split(from).length, 2, `${file}: ${from}`);
});

test('the product has no condition on a platform and no name of the Linux toolkit', () => {
  for (const file of files('binding', 'client', 'ui', 'resources').filter(isSource)) {
    const text = read(file);
    assert.doesNotMatch(text, /gnustep/i, file);
    assert.doesNotMatch(text, /^#\s*(if|ifdef|ifndef|elif).*(__APPLE__|__linux__|TARGET_OS)/m, file);
  }
});

test('the library for Linux names nothing of the product', () => {
  const sources = files('linux/cocoa').filter((file) => !/\/fuzz\/\w+\/[^/]+$/.test(file));
  assert.ok(sources.length > 100);
  for (const file of sources) {
    assert.doesNotMatch(read(file), /[Pp]ellmar|PELLMAR|\bAFX|\bPL[A-Z][a-z]/, file);
  }
});

test('the tests of the product use the library for Linux through Apple\'s headers and its kit', () => {
  const own = new Set(files('linux/cocoa').filter((file) => /\.h$/.test(file))
    .filter((file) => !/^linux\/cocoa\/(include|testing)\//.test(file)).map((file) => path.basename(file)));
  assert.ok(own.size > 50);
  // An agent that breaks the rules of a connection has to write what is sent over one.
  const wire = { 'tests/faults/fault_peer.cpp': ['service_directory.h', 'wire.h'] };
  for (const file of files('tests', 'agent', 'bench').filter(isSource)) {
    for (const include of includesOf(file).map((name) => path.basename(name))) {
      assert.ok(!own.has(include) || fs.existsSync(path.join(root, path.dirname(file), include)) ||
        wire[file]?.includes(include), `${file} may not use ${include}`);
    }
  }
});

test('each layer uses only what it may', () => {
  const rules = [
    { folder: 'ui/extensions', may: [/^AppKit\//, /^ui\/extensions\//, /^c\w+$/, /^array$/] },
    { folder: 'ui', may: [/^AppKit\//, /^ui\//, /^resources\//, /^c\w+$/, /^(array|string_view)$/] },
    {
      folder: 'client',
      may: [/^Foundation\//, /^client\//, /^(pthread|unistd)\.h$/, /^c\w+$/, /^atomic$/],
      also: { 'client/AFXConsentFlow.mm': [/^ui\//], 'client/AFXConsentStatus.h': [/^ui\/AFXConsentChoice\.h$/] },
    },
    { folder: 'binding', may: [/^client\/Pellmar\.h$/, /^nan\.h$/, /^node\.h$/] },
    { folder: 'resources', may: [/^resources\//, /^c\w+$/], except: /^resources\/tools\// },
  ];
  for (const { folder, may, also = {}, except } of rules) {
    for (const file of files(folder).filter(isSource)) {
      if (except?.test(file)) continue;
      for (const include of includesOf(file)) {
        assert.ok([...may, ...(also[file] ?? [])].some((pattern) => pattern.test(include)),
          `${file} may not use ${include}`);
      }
    }
  }
});

test('the library for Linux includes without cycles, and from the folders before only', () => {
  const layer = 'linux/cocoa';
  const readMe = read(`${layer}/README.md`);
  // The read-me names the folders of each in their order.
  const orders = [
    ['foundation', /In `foundation\/`, each folder using those before it only: ([^.]+)\./],
    ['foundation/xpc', /In `foundation\/xpc\/`, each using those before it only: ([^.]+)\./],
    ['appkit', /Folders include only from those before them: ([^.]+)\./],
  ].map(([parent, sentence]) => {
    const [, list] = readMe.match(sentence) ?? assert.fail(`the read-me has no order for ${parent}`);
    return { parent: `${layer}/${parent}/`, folders: [...list.matchAll(/`([a-z]+)\/?`/g)].map((name) => name[1]) };
  });
  const sources = files(`${layer}/foundation`, `${layer}/appkit`).filter(isSource);
  const known = new Set(sources);
  const roots = ['foundation/blocks', 'foundation/xpc', 'appkit'].map((folder) => `${layer}/${folder}`);
  const included = new Map(sources.map((file) => {
    const names = [...read(file).matchAll(/^#\s*(?:import|include)\s*"([^"]+)"/gm)].map((match) => match[1]);
    return [file, names.map((name) => [path.dirname(file), ...roots].map((folder) => path.join(folder, name))
      .find((candidate) => known.has(candidate)) ?? assert.fail(`${file}: what is ${name}?`))];
  }));
  assert.ok([...included.values()].flat().length > 100);

  for (const [file, others] of included) {
    for (const other of others) {
      assert.ok(!file.startsWith(`${layer}/foundation/`) || other.startsWith(`${layer}/foundation/`),
        `${file} may not include ${other}`);
      for (const { parent, folders } of orders) {
        const [from, to] = [file, other].map((name) =>
          (name.startsWith(parent) ? folders.indexOf(name.slice(parent.length).split('/')[0]) : undefined));
        assert.notEqual(from, -1, `the read-me does not name the folder of ${file}`);
        assert.ok(from === undefined || to === undefined || to <= from, `${file} may not include ${other}`);
      }
    }
  }

  const finished = new Set();
  const visit = (file, above) => {
    assert.ok(!above.includes(file), `a cycle: ${[...above, file].join(' → ')}`);
    if (finished.has(file)) return;
    for (const other of included.get(file)) visit(other, [...above, file]);
    finished.add(file);
  };
  for (const file of sources) visit(file, []);
});
