// Prints each slice of a macOS bundle with the module version that it is recorded as, in the order of
// their names: node module-version.mjs FILE

import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

import { architectures, missingTools, readSlice } from './macho.mjs';
import { readModuleRecords } from './record.mjs';

const file = process.argv[2];
const folder = mkdtempSync(join(tmpdir(), 'pellmar-macho-'));
process.on('exit', () => rmSync(folder, { recursive: true }));
try {
  const missing = missingTools();
  if (missing.length > 0) throw new Error(`not installed: ${missing.join(', ')} (LLVM 19)`);
  for (const architecture of architectures(file).sort()) {
    const records = readModuleRecords(readSlice(file, architecture, folder), 'pellmar');
    console.log(architecture, ...records.map(({ version }) => version));
  }
} catch (error) {
  console.error(error.message);
  process.exitCode = 1;
}
