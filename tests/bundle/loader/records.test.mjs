// What the loader understands works as on a Mac, wherever the linker has put it.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { buildFolder } from '../../support/agent.mjs';
import { compile, modulePath, run } from './fixtures.mjs';

const source = fs.readFileSync(new URL('records_fixture.mm', import.meta.url));

/** Segments of the sections of Objective-C in a bundle. */
const segments = (bundle) => {
  const text = fs.readFileSync(bundle).toString('latin1');
  return [...new Set(text.match(/(?<=__objc_(classlist|catlist|protolist)\0*)__DATA(_CONST)?/g))];
};

for (const [place, flags] of [
  ['__DATA', ['-Wl,-no_data_const']],
  ['__DATA_CONST', ['-Wl,-data_const']],
]) {
  test(`records in ${place} are understood`, (t) => {
    const version = `-DMODULE_VERSION=${process.versions.modules}`;
    const bundle = compile(t, source, { flags: [version, ...flags] });
    assert.deepEqual(segments(bundle), [place]);
    const { status, signal, stdout, stderr } = run(bundle, `
      const file = ${JSON.stringify(modulePath)};
      require(file);
      const native = require(${JSON.stringify(path.join(buildFolder, 'native.node'))});
      native.use(file);
      console.log(native.text('check'));`);
    assert.equal(signal, null, stderr);
    assert.equal(status, 0, stderr);
    assert.equal(stdout.trim(), '');
  });
}
