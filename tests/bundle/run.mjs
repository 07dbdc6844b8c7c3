// Runs what there is to run of the Mac's bundle on Linux. scripts/macos-cross --run calls it:
//
//   node run.mjs --bundle FILE --headers DIR --build DIR --slice FILE --sysroot DIR
//
//   --bundle   the bundle that ships
//   --headers  of its runtime
//   --build    where each of its slices was built
//   --slice    the one for x86_64 once more, built for the node at hand, which is run in that
//   --sysroot  what all of them were built against
//
// Ends with one line, "N passed, N failed", of everything, and with 1 unless all have passed. What is
// skipped has failed: it has shown nothing. Output is kept in the folder logs beside the slice.

import { spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { parseArgs } from 'node:util';

import { oldFonts } from './fonts.mjs';

const root = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../..');
const build = path.join(root, 'build/Release');
const options = ['bundle', 'headers', 'build', 'slice', 'sysroot'];
const { values: given } = parseArgs({
  options: Object.fromEntries(options.map((name) => [name, { type: 'string' }])),
});
const logs = path.join(path.dirname(given.slice), 'logs');

/** In milliseconds; the longest part takes two minutes on two processors. */
const partLimit = 1_200_000;

/** The environment in which pellmar.node is the slice, and nothing else is taken for it. */
const onSlice = {
  PELLMAR_BUILD_DIR: path.join(build, 'macho'),
  PELLMAR_MACHO: given.slice,
  NODE_OPTIONS: `--require=${JSON.stringify(path.join(root, 'tests/bundle/loader/must_be_macho.js'))}`,
};
const onOldestSystem = {
  ...onSlice, PELLMAR_MACHO_WEAK: 'null', PLATFORM_APPKIT_VERSION: '1343', PLATFORM_OS_VERSION: '10.10.5',
  ...oldFonts(path.join(path.dirname(given.slice), 'fonts')),
};
const withSysroot = { ...onSlice, PELLMAR_MACHO_SYSROOT: given.sysroot };

/** A file of node's test runner. */
const nodeTest = (file, env) => ({
  command: [process.execPath, '--test', '--test-reporter=tap', path.join(root, 'tests', file)],
  env,
  count(output) {
    const number = (name) => Number(new RegExp(`^# ${name} (\\d+)$`, 'm').exec(output)?.[1] ?? 0);
    return { passed: number('pass'), all: number('tests') };
  },
});

/** A program of GoogleTest. */
const googleTest = (file, env) => ({
  command: [path.join(build, 'tests', file)],
  env,
  count: (output) => ({
    passed: Number(/^\[ {2}PASSED {2}\] (\d+) tests?\.$/m.exec(output)?.[1] ?? 0),
    all: Number(/^\[=+\] (\d+) tests? from .* ran\./m.exec(output)?.[1] ?? 0),
  }),
});

/** The rows of the table of faults that call from a script. */
const faultTable = (env) => ({
  command: [process.execPath, path.join(root, 'tests/faults/run.mjs'), '--scripts'],
  env,
  count(output) {
    const [, passed, all] = /^(\d+) of (\d+) rows held/m.exec(output) ?? [0, 0, 0];
    return { passed: Number(passed), all: Number(all) };
  },
});

/** The bundle that ships in a processor emulator, for which Debian's own interpreter has the library. */
const emulator = () => ({
  command: ['/usr/bin/python3', path.join(root, 'tests/bundle/emulator/run.py'),
    '--headers', given.headers, '--build', given.build, given.bundle],
  env: {},
  count: (output) => ({
    passed: output.match(/^ok (?!.*# SKIP)/gm)?.length ?? 0,
    all: Number(/^# (\d+) checks, /m.exec(output)?.[1] ?? 0),
  }),
});

/** Everything, in this order: first what is done with the bundle that ships. */
const parts = {
  'check of the bundle': nodeTest('bundle/check.mjs', { PELLMAR_BUNDLE: given.bundle }),
  'check of that check': nodeTest('bundle/faults.mjs', { PELLMAR_BUNDLE: given.bundle }),
  'symbols beside the bundle': nodeTest('bundle/symbols.mjs', { PELLMAR_BUNDLE: given.bundle }),
  "the compiler's analyzer": nodeTest('bundle/analyze.mjs', {
    PELLMAR_COMPILE_COMMANDS: path.join(given.build, 'x86_64/compile_commands.json'),
  }),
  'processor emulator': emulator(),
  'parts of the loader': googleTest('bundle/loader/macho_loader_test', { PELLMAR_MACHO: given.slice }),
  'what the loader refuses': nodeTest('bundle/loader/refusals.test.mjs', withSysroot),
  'what it understands': nodeTest('bundle/loader/records.test.mjs', withSysroot),
  'native callers': nodeTest('bundle/loader/native.test.mjs', onSlice),
  'exceptions that end in the module': nodeTest('bundle/loader/guarded.test.mjs', onSlice),
  'script functions': nodeTest('binding/binding.test.mjs', onSlice),
  'consent': nodeTest('binding/consent.test.mjs', onSlice),
  'consent, as on macOS 10.10': nodeTest('binding/consent.test.mjs', onOldestSystem),
  'debug log relay': nodeTest('binding/relay.test.mjs', onSlice),
  'table of faults': faultTable(onSlice),
};

async function run(name, { command: [program, ...args], env, count }) {
  const log = path.join(logs, `${name}.log`);
  const loads = path.join(logs, `${name}.loads`);
  fs.writeFileSync(loads, '');
  // A file and no pipe, which the notification daemon would keep open.
  const output = fs.openSync(log, 'w');
  const child = spawn(program, args, {
    env: { ...process.env, ...env, PELLMAR_MACHO_LOADS: loads },
    stdio: ['ignore', output, output],
    timeout: partLimit,
  });
  const [status, signal] = await once(child, 'exit');
  fs.closeSync(output);
  const text = fs.readFileSync(log, 'utf8');
  const { passed, all } = count(text);
  const loadCount = fs.readFileSync(loads, 'utf8').split('\n').length - 1;
  const problems = [];
  if (status !== 0) problems.push(`ended with ${signal ?? status}`);
  if (all === 0) problems.push('no test has run');
  if (env.NODE_OPTIONS && loadCount === 0) problems.push('nothing has loaded the slice');
  const failed = Math.max(all - passed, problems.length ? 1 : 0);
  console.log(`${name}: ${passed} passed, ${failed} failed` +
    (loadCount ? `; the slice was loaded ${loadCount} times` : ''));
  if (failed) console.log(`${text}\n${name}: ${problems.join(', ')} (${log})`);
  return { passed, failed };
}

fs.mkdirSync(logs, { recursive: true });
const sum = { passed: 0, failed: 0 };
for (const [name, part] of Object.entries(parts)) {
  const { passed, failed } = await run(name, part);
  sum.passed += passed;
  sum.failed += failed;
}
console.log(`${sum.passed} passed, ${sum.failed} failed`);
process.exitCode = sum.failed ? 1 : 0;
