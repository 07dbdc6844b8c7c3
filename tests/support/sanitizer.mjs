// The environment for programs that load sanitized code without being sanitized themselves.

import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';

import { buildFolder } from './agent.mjs';

let found;

/** Empty unless the build is one with AddressSanitizer: its runtime must come first then. */
export function sanitizerEnvironment() {
  if (found === undefined) {
    const cache = fs.readFileSync(path.join(buildFolder, 'CMakeCache.txt'), 'utf8');
    found = /^PELLMAR_SANITIZE:\w+=.*address/m.test(cache)
      ? {
          LD_PRELOAD: execFileSync('clang-19', ['-print-file-name=libclang_rt.asan-x86_64.so'],
            { encoding: 'utf8' }).trim(),
          ASAN_OPTIONS: 'detect_leaks=0',
        }
      : {};
  }
  return found;
}

/** True when calls take the time of a sanitized build, a first one above all. */
export function isSanitized() {
  return 'LD_PRELOAD' in sanitizerEnvironment();
}
