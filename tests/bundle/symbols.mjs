// The symbols that scripts/macos-cross puts beside the bundle named by PELLMAR_BUNDLE, as FILE.dSYM: they
// are those of that very file, and a crash report's addresses lead to the source by them.
//
//   PELLMAR_BUNDLE=build/macos/pellmar.node node --test tests/bundle/symbols.mjs

import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdirSync, mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { homedir, tmpdir } from 'node:os';
import { basename, join } from 'node:path';
import { after, describe, test } from 'node:test';
import { fileURLToPath } from 'node:url';

import * as expected from './expected.mjs';
import { readSlice } from './macho.mjs';

const bundle = process.env.PELLMAR_BUNDLE;
const symbols = join(`${bundle}.dSYM/Contents/Resources/DWARF`, basename(bundle));
const root = fileURLToPath(new URL('../../', import.meta.url));

const folder = mkdtempSync(join(tmpdir(), 'pellmar-symbols-'));
after(() => rmSync(folder, { recursive: true }));
for (const part of ['bundle', 'symbols']) mkdirSync(join(folder, part));

for (const architecture of Object.keys(expected.slices)) {
  describe(architecture, () => {
    const slice = readSlice(bundle, architecture, join(folder, 'bundle'));
    const symbolSlice = readSlice(symbols, architecture, join(folder, 'symbols'));

    test('the symbols have the identifier of the file', () => {
      const uuids = slice.commandFields(['LC_UUID'], 'uuid');
      assert.equal(uuids.length, 1);
      assert.deepEqual(symbolSlice.commandFields(['LC_UUID'], 'uuid'), uuids);
    });

    test('the address of each public function leads to its definition', () => {
      for (const name of expected.functions) {
        // The function itself comes last, after what was put into its beginning.
        const [found, place] = execFileSync('llvm-symbolizer-19',
          [`--obj=${symbols}`, `--default-arch=${architecture}`, String(slice.addresses.get(`_${name}`))],
          { encoding: 'utf8' }).trim().split('\n').slice(-2);
        assert.equal(found, name);
        const [, file, line] = /^\/pellmar\/(client\/\w+\.mm):(\d+):/.exec(place) ?? assert.fail(place);
        // A definition's head has up to three lines; its code begins in the last or after it.
        const head = readFileSync(join(root, file), 'utf8').split('\n').slice(line - 4, line);
        assert.match(head.join('\n'), new RegExp(`\\b${name}\\(`), place);
      }
    });

    test('the symbols hold no path of the machine that made them', () => {
      for (const path of [root, `${homedir()}/`]) assert.equal(symbolSlice.bytes.includes(path), false, path);
    });
  });
}
