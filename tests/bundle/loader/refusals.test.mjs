// What the loader does not understand it refuses: requiring the module throws an error that names it, and
// the process goes on.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { buildFolder } from '../../support/agent.mjs';
import { compile, makeFolder, modulePath, run, slice } from './fixtures.mjs';

/** What requiring the module throws where the loader takes `bundle`. */
function refusal(bundle, env) {
  const { status, signal, stdout, stderr } = run(bundle, `
    try {
      require(${JSON.stringify(modulePath)});
      console.log('was loaded');
    } catch (error) {
      console.log(error.message);
    }`, env);
  assert.equal(signal, null, stderr);
  assert.equal(status, 0, stderr);
  return stdout.trim();
}

/** Visible, or the linker would drop it. */
const visible = '__attribute__((visibility("default")))';
const idle = `${visible} int value;`;

test('the slice as it is, is not refused', () => {
  assert.equal(refusal(slice), 'was loaded');
});

/** Sources that the loader has no answer for. */
const sources = {
  'chained fixups': {
    source: `${idle} int *pointer = &value;`, flags: ['-Wl,-fixup_chains'],
    message: /: chained fixups are not understood$/,
  },
  'another processor': { source: idle, processor: 'arm64', message: /: the file is not for x86_64$/ },
  'a library': {
    source: idle, kind: '-dynamiclib', message: /: the file is of type 6 and no bundle$/,
  },
  'a class with +load': {
    source: `#import <Foundation/Foundation.h>
      @interface Eager : NSObject @end
      @implementation Eager + (void)load {} @end`,
    message: /: Eager has \+load$/,
  },
  'a category with +load': {
    source: `#import <Foundation/Foundation.h>
      @implementation NSObject (Eager) + (void)load {} @end`,
    message: /: Eager has \+load$/,
  },
  'an unknown section of Objective-C': {
    source: '__attribute__((section("__DATA,__objc_nonsense"), used)) int value;',
    message: /: section __DATA,__objc_nonsense is not understood$/,
  },
  'a variable of a thread': {
    source: '__thread int value; int get() { return value; }',
    message: /: section __DATA,__thread_\w+ is not understood$/,
  },
  'a function to be run at the end': {
    source: `extern "C" void end() {}
      __attribute__((section("__DATA,__mod_term_func,mod_term_funcs"), used)) void (*atEnd)() = end;`,
    message: /: section __DATA,__mod_term_func is of type 0xa, which is not understood$/,
  },
  'a symbol that any image may replace': {
    source: `${visible} __attribute__((weak)) int value = 1; int *pointer = &value;`,
    message: /: weak binds are not understood$/,
  },
  'a function without a frame': {
    source: 'extern "C" int getpid(); int outer(int i) { return getpid() + i; }',
    flags: ['-fomit-frame-pointer'],
    message: /: the function at 0x\w+ has no frame of %rbp \(compact unwinding 0x02\w+\)$/,
  },
  'an import that nobody has': {
    source: 'extern "C" void missing(); void call() { missing(); }',
    message: /: there is no _missing of any image$/,
  },
  'a function of libSystem that is another one on Linux': {
    source: 'extern "C" int stat(const char *, void *); int call(void *at) { return stat("/", at); }',
    ofLibSystem: '_stat',
    message: /: _stat of libSystem\.B\.dylib may be something else here/,
  },
  'a class with parts of C++ in it': {
    source: `#import <Foundation/Foundation.h>
      struct Part { Part() : value(1) {} int value; };
      @interface Whole : NSObject { Part part; } @end
      @implementation Whole @end`,
    message: /: class Whole has flags 0x\w+, which are not understood$/,
  },
  'a root class': {
    source: `__attribute__((objc_root_class)) @interface Root @end
      @implementation Root @end`,
    message: /: class Root has flags 0x\w+, which are not understood$/,
  },
  'a caught type of C++ in an Objective-C function': {
    source: `#import <Foundation/Foundation.h>
      int outer() {
        @try { try { [NSObject class]; } catch (int) { return 1; } } @catch (NSException *) { return 2; }
        return 0;
      }`,
    message: /: an Objective-C function catches what is no imported class of Objective-C$/,
  },
};

for (const [name, { source, message, ...options }] of Object.entries(sources)) {
  test(`${name} is refused`, (t) => {
    assert.match(refusal(compile(t, source, options)), message);
  });
}

/** A copy of the slice in which \`change\` has changed the bytes, or given others in their place. */
function changed(t, change) {
  const file = path.join(makeFolder(t), 'changed.node');
  const bytes = fs.readFileSync(slice);
  fs.writeFileSync(file, change(bytes) ?? bytes);
  return file;
}

/** Where the load command of that kind stands. */
function loadCommand(bytes, kind) {
  for (let offset = 32; ; offset += bytes.readUInt32LE(offset + 4)) {
    if (bytes.readUInt32LE(offset) === kind) return offset;
  }
}

const fixups = (bytes) => loadCommand(bytes, 0x80000022);  // LC_DYLD_INFO_ONLY

/** Puts another name of the same length in the place of a symbol's, wherever it stands. */
function rename(bytes, from, to) {
  let at = bytes.indexOf(`${from}\0`);
  assert.notEqual(at, -1);
  for (; at !== -1; at = bytes.indexOf(`${from}\0`)) bytes.write(to, at);
}

/** Changes of the slice that it must not survive. */
const changes = {
  'an import with another name': {
    change: (bytes) => rename(bytes, '_CFDictionaryGetValue', '_CFDictionaryGotValue'),
    message: /: there is no _CFDictionaryGotValue of CoreFoundation$/,
  },
  'a class with another name': {
    change: (bytes) => rename(bytes, '_OBJC_CLASS_$_NSButton', '_OBJC_CLASS_$_NSBotton'),
    message: /: there is no _OBJC_CLASS_\$_NSBotton of AppKit$/,
  },
  'an unknown rebase opcode': {
    change: (bytes) => void (bytes[bytes.readUInt32LE(fixups(bytes) + 8)] = 0x90),
    message: /: rebase opcode 0x90 is not understood$/,
  },
  'an unknown bind opcode': {
    change: (bytes) => void (bytes[bytes.readUInt32LE(fixups(bytes) + 16)] = 0xd0),
    message: /: bind opcode 0xd0 is not understood$/,
  },
  'an unknown load command': {
    change: (bytes) => void bytes.writeUInt32LE(0x80000028, loadCommand(bytes, 0x1b)),
    message: /: load command 0x80000028 is not understood$/,
  },
  'a truncated slice': {
    change: (bytes) => bytes.subarray(0, bytes.length - 20_000),
    message: /: the file: \d+ bytes at 0x\w+ are not there, of 0x\w+$/,
  },
  'no file': { change: () => Buffer.alloc(0), message: /: it cannot be mapped: Invalid argument$/ },
};

for (const [name, { change, message }] of Object.entries(changes)) {
  test(`${name} is refused`, (t) => {
    assert.match(refusal(changed(t, change)), message);
  });
}

test('the Linux build in the place of the loader is found out', () => {
  const { status, stderr } =
    run(slice, `require(${JSON.stringify(path.join(buildFolder, '../pellmar.node'))})`);
  assert.equal(status, 1);
  assert.match(stderr, /\/pellmar\.node has been loaded, but not the bundle \//);
});
