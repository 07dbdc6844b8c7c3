// Makes the file that applications install, around a bundle that holds the module's record alone.

import { execFileSync, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const folder = path.dirname(fileURLToPath(import.meta.url));
export const root = path.resolve(folder, '../..');
const { version } = JSON.parse(fs.readFileSync(path.join(root, 'package.json'), 'utf8'));

export const run = (command, args, options) =>
  execFileSync(command, args, { encoding: 'utf8', stdio: 'pipe', ...options });

/** Makes a universal bundle for macOS that holds the module's record alone. */
export function makeBundle(session, { versions = [85, 85], mark } = {}) {
  const slices = ['x86_64', 'arm64'].map((processor, index) => {
    const file = path.join(session.folder, processor);
    run('clang-19', [`--target=${processor}-apple-macosx11.0`, '-fuse-ld=lld', '-bundle', '-nostdlib',
      '-Wl,-undefined,dynamic_lookup', '-Wl,-adhoc_codesign', `-DVERSION=${versions[index]}`,
      ...(mark ? [`-DMARK="${mark}"`] : []), '-o', file, path.join(folder, 'record.c')]);
    return file;
  });
  const file = path.join(session.folder, 'pellmar.node');
  run('llvm-lipo-19', ['-create', ...slices, '-output', file]);
  // Symbols are told from others by the identifiers of the file, which it has itself.
  fs.mkdirSync(path.dirname(symbolsOf(file)), { recursive: true });
  fs.copyFileSync(file, symbolsOf(file));
  return file;
}

export const symbolsOf = (bundle) => `${bundle}.dSYM/Contents/Resources/DWARF/pellmar.node`;

/** Runs scripts/package with the session's folder for what it makes. */
export function pack(session, ...args) {
  const { status, stdout, stderr } = spawnSync(path.join(root, 'scripts/package'),
    ['--out', session.folder, ...args], { encoding: 'utf8' });
  return { status, stdout, stderr };
}

const missing = ['llvm-lipo-19', 'llvm-objdump-19', 'llvm-nm-19', 'llvm-dwarfdump-19', 'ld64.lld-19'].filter(
  (tool) => spawnSync(tool, ['--version']).error);
/** Why none of this can be done here, or false. */
export const skip = missing.length > 0 && `not installed: ${missing.join(', ')}`;

/** Packs the package into the session's folder; returns the file. */
export function makeTarball(session) {
  const { status, stderr } = pack(session, '--bundle', makeBundle(session));
  if (status !== 0) throw new Error(stderr);
  return path.join(session.folder, `pellmar-${version}.tgz`);
}
