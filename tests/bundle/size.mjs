// That the bundle named by PELLMAR_BUNDLE has not grown beyond the recorded figures:
//
//   PELLMAR_BUNDLE=build/macos/pellmar.node node --test tests/bundle/size.mjs

import assert from 'node:assert/strict';
import fs from 'node:fs';
import { test } from 'node:test';

import { figuresOf } from './figures.mjs';

const bundle = process.env.PELLMAR_BUNDLE;
const recorded = JSON.parse(fs.readFileSync(new URL('../../bench/recorded.json', import.meta.url)));

test('no slice has grown', { skip: !bundle && 'PELLMAR_BUNDLE names no bundle' }, () => {
  const figures = Object.entries(figuresOf(bundle));
  assert.ok(figures.length > 0);
  for (const [name, figure] of figures) {
    // Headers of another runtime change some bytes.
    const most = recorded[name] * (/bytes/.test(name) ? 1.02 : 1);
    assert.ok(figure <= most, `${name}: ${figure}, recorded are ${recorded[name]} (bench/recorded.json); ` +
      'if it is worth it, record the new figure there and in CHANGELOG.md');
  }
});
