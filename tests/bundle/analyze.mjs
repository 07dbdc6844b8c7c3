// Has clang's static analyzer look at the product's sources as they are compiled for a Mac: at who owns an
// object, at null where none may be, at locks, and at what it looks at by itself.
//
//   PELLMAR_COMPILE_COMMANDS=build/macos/x86_64/compile_commands.json node --test tests/bundle/analyze.mjs

import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { dirname, join, relative } from 'node:path';
import { after, describe, test } from 'node:test';
import { fileURLToPath } from 'node:url';

const root = fileURLToPath(new URL('../../', import.meta.url));
const database = process.env.PELLMAR_COMPILE_COMMANDS;
const checkers = ['osx.cocoa', 'nullability', 'alpha.unix.PthreadLock'];

/** The product's sources, those of the pictures among them, which the build makes; each with its command. */
const sources = JSON.parse(readFileSync(database, 'utf8')).map(({ file, command }) => {
  const name = [dirname(database), root].map((folder) => relative(folder, file))
    .find((path) => !path.startsWith('..'));
  return { name, file, command };
}).filter(({ name }) => /^(binding|client|resources|ui)\//.test(name));

/** What the analyzer finds in `file`, compiled as `command` does it; empty when all is well. */
function findings(command, file) {
  // CMake quotes what a shell would take apart.
  const [compiler, ...words] = command.match(/(?:[^\s"\\]|\\.|"(?:[^"\\]|\\.)*")+/g)
    .map((word) => word.replace(/\\(.)|"/g, '$1'));
  const flags = words.slice(0, words.indexOf('-o'));
  const options = [`-analyzer-checker=${checkers.join()}`, '-analyzer-output=text', '-analyzer-werror'];
  return new Promise((resolve) => {
    execFile(compiler, [...flags, ...options.flatMap((option) => ['-Xclang', option]), '--analyze', file],
      { cwd: dirname(database) }, (error, stdout, stderr) => resolve(error ? stderr || error.message : ''));
  });
}

test('there is something to analyze', () => {
  assert.ok(sources.length > 10, sources.map(({ name }) => name).join(', '));
});

describe('the analyzer finds nothing in', { concurrency: 2 }, () => {
  for (const { name, file, command } of sources) {
    test(name, async () => {
      const found = await findings(command, file);
      assert.ok(found === '', found);
    });
  }
});

describe('the analyzer finds', () => {
  const folder = mkdtempSync(join(tmpdir(), 'pellmar-analyze-'));
  after(() => rmSync(folder, { recursive: true }));
  const faults = {
    'an object that nobody releases': [
      'unsigned long Length() { return [[NSMutableString alloc] init].length; }', 'osx.cocoa.RetainCount'],
    'an object that is released twice': [
      'void Release(NSObject *o) { NSObject *c = [o copy]; [c release]; [c release]; }',
      'osx.cocoa.RetainCount'],
    'null where none may be': [
      'void Take(NSObject *_Nonnull o); void Give(NSObject *_Nullable o) { Take(o); }', 'nullability'],
    'a mutex that is locked twice': [
      '#include <pthread.h>\nstatic pthread_mutex_t m;\n' +
        'void Lock() { pthread_mutex_lock(&m); pthread_mutex_lock(&m); }', 'alpha.unix.PthreadLock'],
  };
  const { command } = sources.find(({ name }) => name === 'client/PLFunctions.mm');
  for (const [fault, [code, checker]] of Object.entries(faults)) {
    test(fault, async () => {
      const file = join(folder, `${checker}.mm`);
      writeFileSync(file, `#import <Foundation/Foundation.h>\n${code}\n`);
      assert.ok((await findings(command, file)).includes(`[${checker}`));
    });
  }
});
