// Tests the tests: applies each mutant of the table to a copy of the tree, builds what it changes, and
// demands that one of the tests that should see it fails.
//
//   run.mjs [PATTERN]     the mutants whose file or text has PATTERN; all without it
//   run.mjs --list        prints a line each
//
// Ends with 1 if a mutant survives, or if its text is not found exactly once any more.

import { execFileSync, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

import { mutants } from './table.mjs';

const root = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../..');
const work = path.join(root, 'build/mutants');
const copy = path.join(work, 'tree');
const build = path.join(work, 'build');

const [argument] = process.argv.slice(2);
const oneLine = (text) => text.replace(/\s+/g, ' ').trim();
const describe = ({ file, from, to }) => `${file}: ${oneLine(from)} → ${oneLine(to) || '(nothing)'}`;

if (argument === '--list') {
  mutants.forEach((mutant) => console.log(describe(mutant)));
  process.exit(0);
}

const pattern = new RegExp(argument ?? '', 'i');
const chosen = mutants.filter((mutant) => pattern.test(describe(mutant)));
if (chosen.length === 0) {
  console.error(`mutants: none has ${pattern}`);
  process.exit(2);
}

/** Makes the copy equal to the tree's files, keeping the times of those that are the same already. */
function refreshCopy() {
  const files = execFileSync('git', ['ls-files', '-z', '--cached', '--others', '--exclude-standard'],
    { cwd: root, encoding: 'utf8' }).split('\0').filter(Boolean);
  const present = files.filter((file) => fs.existsSync(path.join(root, file)));
  for (const file of present) {
    const [from, to] = [path.join(root, file), path.join(copy, file)];
    const content = fs.readFileSync(from);
    if (fs.existsSync(to) && fs.readFileSync(to).equals(content)) continue;
    fs.mkdirSync(path.dirname(to), { recursive: true });
    fs.writeFileSync(to, content, { mode: fs.statSync(from).mode });
  }
  // What a change leaves unused shall not keep it from being tested.
  const options = path.join(copy, 'cmake/PellmarOptions.cmake');
  fs.writeFileSync(options, fs.readFileSync(options, 'utf8').replace(' -Werror', ''));
  const modules = path.join(copy, 'node_modules');
  if (!fs.existsSync(modules)) fs.symlinkSync(path.join(root, 'node_modules'), modules);
}

function run(program, args) {
  const { status, stdout, stderr } = spawnSync(program, args,
    { cwd: copy, encoding: 'utf8', maxBuffer: 1 << 28 });
  return { ok: status === 0, output: `${stdout}${stderr}` };
}

function mustRun(program, args) {
  const { ok, output } = run(program, args);
  if (!ok) {
    console.error(output);
    process.exit(2);
  }
}

const ctest = (tests) =>
  run('ctest', ['--test-dir', build, '-j2', '--no-tests=error', '--stop-on-failure', '-R',
    `^(${tests.join('|')})$`]);

refreshCopy();
if (!fs.existsSync(path.join(build, 'build.ninja'))) {
  console.log('mutants: building the copy, which takes a few minutes …');
  // Many a mutant has its test wait for what never comes.
  mustRun('cmake', ['--preset', 'default', '-B', build, '-D', 'CMAKE_BUILD_TYPE=Debug', '-D', 'PELLMAR_TEST_TIMEOUT=120']);
}
mustRun('cmake', ['--build', build]);

// What fails without a mutant would catch all of them.
const before = ctest([...new Set(chosen.flatMap(({ tests }) => tests))]);
if (!before.ok) {
  console.error(`${before.output}\nmutants: the tests fail as it is`);
  process.exit(2);
}

let survivors = 0;
for (const mutant of chosen) {
  const file = path.join(copy, mutant.file);
  const text = fs.readFileSync(file, 'utf8');
  let verdict;
  if (text.split(mutant.from).length !== 2) {
    verdict = 'NOT FOUND exactly once';
  } else {
    fs.writeFileSync(file, text.replace(mutant.from, () => mutant.to));
    const built = run('cmake', ['--build', build]);
    if (!built.ok) {
      verdict = `DOES NOT BUILD: ${/^.*error: .*$/m.exec(built.output)?.[0] ?? built.output.slice(-300)}`;
    } else {
      const tested = ctest(mutant.tests);
      const failed = /\d+ - (\S+) \((?:Failed|.*Exception|Timeout|SEGFAULT|Subprocess aborted)/.exec(tested.output);
      verdict = tested.ok ? 'SURVIVES' : `caught by ${failed ? failed[1] : '?'}`;
    }
    fs.writeFileSync(file, text);
  }
  if (!verdict.startsWith('caught')) ++survivors;
  console.log(`${describe(mutant)}\n    ${verdict}`);
}
console.log(`${chosen.length - survivors} of ${chosen.length} mutants caught`);
process.exit(survivors ? 1 : 0);
