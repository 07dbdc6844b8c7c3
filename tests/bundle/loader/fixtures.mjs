// Small bundles for a Mac that are compiled while the tests run, and processes that load them.

import { execFileSync, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';

import { buildFolder, nodePath } from '../../support/agent.mjs';

export const modulePath = path.join(buildFolder, 'pellmar.node');
export const slice = process.env.PELLMAR_MACHO;
const sysroot = process.env.PELLMAR_MACHO_SYSROOT;

/** A folder that is removed when the test context ends. */
export function makeFolder(t) {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'pellmar-macho-'));
  t.after(() => fs.rmSync(folder, { recursive: true }));
  return folder;
}

/**
 * Compiles Objective-C++ for x86_64, without the C++ library's headers, and returns the bundle's path.
 * `ofLibSystem`: a symbol that the linker finds in libSystem, of which the sysroot may have a stub alone.
 */
export function compile(t, source,
  { processor = 'x86_64', kind = '-bundle', flags = [], ofLibSystem } = {}) {
  const folder = makeFolder(t);
  const file = path.join(folder, 'fixture.node');
  const stub = path.join(folder, 'libSystem.tbd');
  fs.writeFileSync(stub, `--- !tapi-tbd
tbd-version: 4
targets: [ x86_64-macos ]
install-name: /usr/lib/libSystem.B.dylib
exports: [ { targets: [ x86_64-macos ], symbols: [ ${ofLibSystem} ] } ]
...
`);
  execFileSync('clang++-19', [
    '-target', `${processor}-apple-macosx${processor === 'arm64' ? '11.0' : '10.10'}`,
    '-isysroot', sysroot, '-nostdinc++', '-std=c++17', '-Os', '-fblocks', '-fvisibility=hidden',
    '-Wall', '-Werror', '-fuse-ld=lld', kind, '-Wl,-undefined,dynamic_lookup', '-framework', 'Foundation', '-lobjc',
    ...flags, ...(ofLibSystem ? [stub] : []), '-x', 'objective-c++', '-', '-o', file,
  ], { input: source, stdio: ['pipe', 'inherit', 'inherit'] });
  return file;
}

/** Runs a script in a node of its own, in which the loader takes `bundle`. */
export function run(bundle, script, env = {}) {
  return spawnSync(nodePath, ['-e', script],
    { env: { ...process.env, PELLMAR_MACHO: bundle, ...env }, encoding: 'utf8' });
}
