// Changes one thing at a time in copies of the bundle named by PELLMAR_BUNDLE, and has check.mjs find each:
//
//   PELLMAR_BUNDLE=build/macos/pellmar.node node --test tests/bundle/faults.mjs

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, test } from 'node:test';
import { fileURLToPath } from 'node:url';

import * as expected from './expected.mjs';
import { joinSlices, missingTools, readSlice } from './macho.mjs';
import {
  adoptedProtocolList,
  categoryPropertyField,
  classPropertyList,
  protocolMethodList,
} from './objc.mjs';
import { moduleRecordAddresses } from './record.mjs';
import { compareSymbols } from './symbol-list.mjs';

const bundle = process.env.PELLMAR_BUNDLE;
const check = fileURLToPath(new URL('check.mjs', import.meta.url));
const envelope = readFileSync(new URL('../../resources/envelope-dark.tiff', import.meta.url));

function obstacle() {
  if (!bundle) {
    return 'PELLMAR_BUNDLE names no macOS bundle (scripts/macos-cross builds one)';
  }
  const missing = missingTools();
  return missing.length > 0 ? `not installed: ${missing.join(', ')} (LLVM 19)` : false;
}

/** Overwrites the only place where a zero-terminated text stands. */
function replaceText(slice, text, replacement) {
  const bytes = Buffer.from(`\0${text}\0`);
  const offset = slice.bytes.indexOf(bytes);
  assert.notEqual(offset, -1, text);
  assert.equal(slice.bytes.indexOf(bytes, offset + 1), -1, text);
  slice.bytes.write(replacement, offset + 1);
}

function writePointer(slice, address, target) {
  slice.bytes.writeBigUInt64LE(BigInt(target), slice.offset(address));
}

function swap(slice, first, second, size) {
  const [a, b] = [first, second].map((address) => slice.offset(address));
  const held = Buffer.from(slice.bytes.subarray(a, a + size));
  slice.bytes.copy(slice.bytes, a, b, b + size);
  held.copy(slice.bytes, b);
}

/** Where the entry of the symbol `name` stands in the symbol table. */
function symbolEntry(slice, name) {
  const [table, count, strings] = ['symoff', 'nsyms', 'stroff'].map((field) =>
    Number(slice.commandFields(['LC_SYMTAB'], field)[0]),
  );
  for (let entry = table; entry < table + count * 16; entry += 16) {
    const start = strings + slice.bytes.readUInt32LE(entry);
    if (slice.bytes.toString('utf8', start, slice.bytes.indexOf(0, start)) === name) {
      return entry;
    }
  }
  return assert.fail(name);
}

/** What is changed, in both slices, and the test that must fail for each. */
const faults = [
  {
    change: 'an exported symbol with another name',
    apply: (slice) => replaceText(slice, '_PLReportUsageEvent', '_PLReportUsageEvenT'),
    failing: 'exports the public interface alone',
  },
  {
    change: 'a symbol of its own that was not stripped',
    apply: (slice) => {
      // The lowest bit of the type says that the symbol is external.
      slice.bytes[symbolEntry(slice, '_PLReportUsageEvent') + 4] &= ~1;
    },
    failing: 'is stripped of its own symbols',
  },
  {
    change: 'the path of a source file',
    apply: (slice) =>
      slice.bytes.write('\0/home/jane/pellmar/ui/window.mm\0', slice.bytes.indexOf(envelope) + 4000),
    failing: 'holds no path of a source file',
  },
  {
    change: 'an undefined symbol with another name',
    apply: (slice) => replaceText(slice, '_getpid', '_getuid'),
    failing: 'looks up the listed symbols alone',
  },
  {
    change: 'a weak import that is a strong one, or the reverse',
    apply: (slice) => {
      const weakReference = 0x40;
      slice.bytes[symbolEntry(slice, '_NSFontWeightBold') + 6] ^= weakReference;
    },
    failing: 'looks up the listed symbols alone',
  },
  {
    change: 'two methods of a protocol in the other order',
    apply: (slice) => {
      const list = protocolMethodList(slice, 'AFXCustomerPermissionsService');
      const size = slice.uint32(list) & 0xfffc;
      swap(slice, list + 8, list + 8 + size, size);
    },
    failing: "declares the agent's protocols",
  },
  {
    change: 'two adopted protocols in the other order',
    apply: (slice) => {
      const list = adoptedProtocolList(slice, 'AFXProvisioningService');
      swap(slice, list + 8, list + 16, 8);
    },
    failing: "declares the agent's protocols",
  },
  {
    change: 'the BOOL of the other slice in a reply block',
    apply: (slice) => {
      const { boolEncoding } = expected.slices[slice.architecture];
      const other = boolEncoding === 'c' ? 'B' : 'c';
      replaceText(slice, `v24@0:8@?<v@?${boolEncoding}>16`, `v24@0:8@?<v@?${other}>16`);
    },
    failing: "declares the agent's protocols",
  },
  {
    change: 'a property that retains what it should copy',
    apply: (slice) =>
      replaceText(slice, 'T@"NSString",C,N,V_userEmail', 'T@"NSString",&,N,V_userEmail'),
    failing: 'has the methods and properties of AFXPermissionWindowController',
  },
  {
    change: 'a category method with another name',
    apply: (slice) =>
      replaceText(slice, 'addCenterXContraintForSubviews:', 'addCenterXConstraintForSubview:'),
    failing: 'has its categories',
  },
  {
    change: 'a category with properties',
    apply: (slice) =>
      writePointer(
        slice,
        categoryPropertyField(slice, 'NSView', 'AFXEnxtensions'),
        classPropertyList(slice, 'AFXPermissionWindowController'),
      ),
    failing: 'has its categories',
  },
  {
    change: 'a class method by the name of +load',
    apply: (slice) => replaceText(slice, 'kv_colorWithDeviceRGBHex:', 'load\0'),
    failing: 'has no +load',
  },
  {
    change: 'an initializer run twice and another not at all',
    apply: (slice) => {
      const { address } = slice.section('__mod_init_func');
      writePointer(slice, address, slice.pointer(address + 8));
    },
    failing: 'runs nothing but its registrations when it is mapped',
  },
  {
    change: "another version in the module's record",
    apply: (slice) => {
      const [address] = moduleRecordAddresses(slice, expected.moduleRecord.name);
      slice.bytes.writeInt32LE(expected.moduleRecord.version + 1, slice.offset(address));
    },
    failing: 'has the module record',
  },
  {
    change: 'a constant with another value',
    apply: (slice) => replaceText(slice, 'omit presentation', 'omit Presentation'),
    failing: 'has its public constants with their values',
  },
  {
    change: 'constants outside of the section of constants',
    apply: (slice) => {
      const constant = slice.addresses.get('_AFXProvisioningServiceName');
      const { name, segment } = slice.sectionAt(constant);
      const header = Buffer.alloc(32);
      header.write(name);
      header.write(segment, 16);
      const offset = slice.bytes.indexOf(header);
      assert.notEqual(offset, -1);
      slice.bytes.write('__other', offset);
    },
    failing: 'has its public constants with their values',
  },
  {
    change: 'one byte of a picture',
    apply: (slice) => {
      const offset = slice.bytes.indexOf(envelope) + envelope.length / 2;
      slice.bytes[offset] ^= 1;
    },
    failing: 'holds each picture once, in memory that cannot be written',
  },
  {
    change: 'one byte of a message',
    apply: (slice) =>
      replaceText(
        slice,
        'Wrong number of arguments. Should be 1.',
        'Wrong number of arguments. Should be 2.',
      ),
    failing: 'is signed, and unchanged since',
  },
];

const reason = obstacle();
const folder = mkdtempSync(join(tmpdir(), 'pellmar-macho-'));
after(() => rmSync(folder, { recursive: true }));

/** Exit code and output of the check of `file`. */
function runCheck(file) {
  // A test runner inside a test would report to the outer one.
  const { NODE_TEST_CONTEXT, ...environment } = process.env;
  return spawnSync(process.execPath, ['--test', '--test-reporter=tap', check], {
    encoding: 'utf8',
    env: { ...environment, PELLMAR_BUNDLE: file },
  });
}

test('the check accepts the bundle as it is', { skip: reason }, () => {
  const { status, stdout } = runCheck(bundle);
  assert.equal(status, 0, stdout);
});

for (const { change, apply, failing } of faults) {
  test(`the check finds ${change}`, { skip: reason }, () => {
    const changed = join(folder, 'pellmar.node');
    const parts = Object.keys(expected.slices).map((architecture) => {
      const slice = readSlice(bundle, architecture, folder);
      apply(slice);
      writeFileSync(slice.path, slice.bytes);
      return slice.path;
    });
    joinSlices(parts, changed);

    const { status, stdout } = runCheck(changed);
    assert.notEqual(status, 0);
    const failures = stdout.match(/(?<=^ +not ok \d+ - ).*$/gm) ?? [];
    assert.deepEqual(
      failures.filter((name) => name === failing),
      Object.keys(expected.slices).map(() => failing),
      stdout,
    );
  });
}

test('the check takes shortcuts of the runtime where the oldest system has them', { skip: reason }, () => {
  const shortcuts = ['class', 'isKindOfClass', 'new', 'respondsToSelector', 'self'];
  for (const architecture of Object.keys(expected.slices)) {
    const slice = readSlice(bundle, architecture, folder);
    for (const name of shortcuts.map((method) => `_objc_opt_${method}`)) {
      for (const isWeak of [false, true]) {
        const used = [...slice.undefined, { name, library: 'libobjc', isWeak }];
        const isTaken = architecture === 'arm64' && !isWeak;
        assert.deepEqual(compareSymbols(architecture, used), {
          unlisted: isTaken ? [] : [`${name} of libobjc${isWeak ? ', weak' : ''}`],
          unused: [],
        });
      }
    }
  }
});
