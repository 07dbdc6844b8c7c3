// The benchmark's own logic: what is counted of callgrind's output, when a goal is held, and what is recorded.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import { test } from 'node:test';

import { readDump } from '../../bench/callgrind.mjs';
import { median, Table } from '../../bench/table.mjs';

const read = (file) => fs.readFileSync(new URL(`../../${file}`, import.meta.url), 'utf8');

test('instructions are those of the object, and calls those that leave it', () => {
  const dump = `desc: Trigger: Client Request: event 60
ob=(1) /build/pellmar.node
fn=(1) PLReportUsageEvent
10 7
cob=(2) /lib/libobjc.so
cfn=(2) objc_msg_lookup
calls=3 0
10 500
cob=(3) /lib/libbase.so
cfn=(3) 0x10
calls=1 0
+1 40
cfn=(4) helper
calls=5 0
* 25
fn=(4)
20 25
ob=(2)
fn=(2)
0 500
cob=(1)
cfn=(1)
calls=2 0
0 900
`;
  const methods = new Map([['/lib/libbase.so 0x10', '-NSObject autorelease']]);
  assert.deepEqual(readDump(dump, '/build/pellmar.node', methods), {
    trigger: 'event 60', instructions: 32, calls: { objc_msg_lookup: 3, '-NSObject autorelease': 1 } });
});

test('a counted figure is held up to 2 % above the recorded one, and within its goal', () => {
  const table = new Table({ a: 100, b: 100, c: 100 });
  table.group('counted');
  for (const [name, ours, most] of [['a', 102], ['b', 102.1], ['c', 99, 98], ['new', 7]]) {
    table.counted(name, ours, { most });
  }
  assert.deepEqual(table.rows.map(({ held }) => held), [true, false, false, undefined]);
  // Recorded figures only fall.
  assert.deepEqual(table.lowered(), { a: 100, b: 100, c: 99, new: 7 });
});

test('a ratio is the median of the rounds, which pair ours with the floor', () => {
  const table = new Table({});
  table.group('felt');
  // The machine is three times as slow in two rounds: the medians alone would say 30 / 5.
  table.ratio('slow rounds', [10, 30, 30], [5, 15, 15], 2);
  table.ratio('missed', [10, 30, 30], [5, 10, 10], 2);
  table.ratio('without a goal', [1], [1]);
  table.limit('added', 5, 3, 2);
  table.limit('too much', 4, 3);
  assert.deepEqual(table.rows.map(({ ratio, held }) => [ratio, held]),
    [[2, true], [3, false], [1, undefined], [null, true], [null, false]]);
  for (const row of table.rows) {
    assert.deepEqual(Object.keys(row).slice(0, 5), ['name', 'ours', 'floor', 'ratio', 'goal']);
    assert.equal(row.goal === null, row.held === undefined);
  }
  assert.match(String(table),
    /felt +ours +floor +ratio +goal\n {2}slow rounds +30 +15 +2 +≤ 2 × +held\n {2}missed.*MISSED/);
  assert.equal(median([3, 1, 2]), 2);
});

test('the change log says how large the file for a Mac is', () => {
  const [, current] = read('CHANGELOG.md').split(/^## /m);
  const figures = Object.entries(JSON.parse(read('bench/recorded.json')))
    .filter(([name]) => /^(x86_64|arm64):/.test(name));
  assert.equal(figures.length, 12);
  for (const [name, figure] of figures) {
    const [architecture, what] = name.split(': ');
    const [, ...cells] = new RegExp(`^\\| ${what} \\| (\\d+) \\| (\\d+) \\|$`, 'm').exec(current);
    assert.equal(Number(cells[architecture === 'x86_64' ? 0 : 1]), figure, name);
  }
});
