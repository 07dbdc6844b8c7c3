// Prints each slice of a macOS bundle with the module version that it is recorded as, in the order of
// their names: node module-version.mjs FILE

import { readFileSync } from 'node:fs';

import { readSlices } from '../../doctor/macho.mjs';

const slices = readSlices(readFileSync(process.argv[2]));
if (slices.length === 0) {
  console.error('no Mach-O file');
  process.exitCode = 1;
}
for (const slice of slices.sort((a, b) => a.architecture.localeCompare(b.architecture))) {
  console.log(slice.architecture, ...slice.moduleVersions('pellmar'));
}
