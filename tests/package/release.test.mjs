// scripts/release in a repository of its own, with a stand-in for the build: what it refuses, and what it makes.

import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { before, describe, test } from 'node:test';

import { makeUniversal } from '../doctor/macho_files.mjs';
import { makeSession } from '../support/agent.mjs';
import { makeBundle, root, run, skip } from './tarball.mjs';

const { version, devDependencies } = JSON.parse(fs.readFileSync(path.join(root, 'package.json'), 'utf8'));
const hasSbom = spawnSync('npm', ['sbom', '--help']).status === 0;

describe('scripts/release', { skip: skip || (!hasSbom && 'this npm has no sbom') }, () => {
  let session;
  let tree;
  const git = (...args) => run('git', ['-c', 'user.name=x', '-c', 'user.email=x@example.com', ...args], { cwd: tree });

  before(() => {
    session = makeSession();
    process.on('exit', () => fs.rmSync(session.folder, { recursive: true }));
    tree = path.join(session.folder, 'tree');
    const files = execFileSync('git', ['ls-files', '-z', '-co', '--exclude-standard', '--', '*.js', '*.d.ts', '*.md',
      'package*.json', '.gitignore', 'scripts', 'client/Pellmar.h', 'agent/package', 'doctor', 'docs', 'languages', 'tests/bundle'],
    { cwd: root, encoding: 'utf8' }).split('\0').filter((file) => fs.existsSync(path.join(root, file || '?')));
    for (const file of files) fs.cpSync(path.join(root, file), path.join(tree, file));
    fs.symlinkSync(path.join(root, 'node_modules'), path.join(tree, 'node_modules'));
    fs.appendFileSync(path.join(tree, '.gitignore'), 'node_modules\n');

    const bundle = makeBundle(session);
    const other = path.join(session.folder, 'other');
    fs.mkdirSync(other);
    makeBundle({ folder: other }, { mark: 'other' });
    const agent = makeUniversal(['x86_64', 'arm64'].map((architecture) => ({ architecture })));
    fs.writeFileSync(path.join(session.folder, 'pellmar-dev-agent'), agent);
    fs.writeFileSync(path.join(other, 'pellmar-dev-agent'), Buffer.concat([agent, Buffer.from('other')]));
    standIn('setup', '');
    // A program that tells of the folder it was built in, if there is a file that says which.
    standIn('macos-cross', `
      build=$(cd "$(dirname "$0")/.." && pwd)
      mkdir -p "$build/build/macos"
      cp -R ${path.dirname(bundle)}/pellmar{.node,.node.dSYM,-dev-agent} "$build/build/macos"
      [[ ! -e ${session.folder}/differs || $build != */two-* ]] ||
        cp -R ${other}/"$(<${session.folder}/differs)"* "$build/build/macos"`);
    git('init', '--quiet');
    commit('all');
    git('tag', `v${version}`);
  });

  function standIn(name, text) {
    fs.writeFileSync(path.join(tree, 'scripts', name), `#!/bin/bash\nset -e\n${text}\n`);
  }

  function commit(message) {
    git('add', '--all');
    git('commit', '--quiet', '--message', message);
  }

  /** Runs it; `change` is undone afterwards. */
  function release({ out = fs.mkdtempSync(path.join(session.folder, 'out-')), change } = {}) {
    change?.();
    const result = spawnSync(path.join(tree, 'scripts/release'),
      ['--sdk', session.folder, '--node-headers', session.folder, '--out', out], { encoding: 'utf8' });
    git('reset', '--quiet', '--hard', `v${version}`);
    git('clean', '--quiet', '--force');
    return { ...result, out };
  }

  function refused(change, message) {
    const { status, stdout, stderr, out } = release({ change });
    assert.deepEqual([status, stdout], [1, '']);
    assert.match(stderr, message);
    assert.deepEqual(fs.readdirSync(out), []);
  }

  const edit = (file, from, to) => {
    const name = path.join(tree, file);
    const text = fs.readFileSync(name, 'utf8');
    assert.ok(text.includes(from));
    fs.writeFileSync(name, text.replace(from, to));
  };

  test('refuses changes that are not in the commit', () => {
    refused(() => fs.writeFileSync(path.join(tree, 'more'), ''), /changes that are not in the commit/);
  });

  test('refuses a commit without the tag of its version', () => {
    refused(() => {
      fs.writeFileSync(path.join(tree, 'more'), '');
      commit('more');
    }, new RegExp(`the commit has no tag v${version}`));
  });

  for (const file of ['CHANGELOG.md', 'package-lock.json']) {
    test(`refuses another version in ${file}`, () => {
      refused(() => {
        edit(file, version, '9.9.9');
        commit('another version');
      }, new RegExp(`package.json says ${version}, and ${file} 9\\.9\\.9`));
    });
  }

  for (const [program, what] of [['pellmar.node', 'builds'], ['pellmar-dev-agent', 'packages']]) {
    test(`refuses two builds whose ${program} is not the same`, (t) => {
      const mark = path.join(session.folder, 'differs');
      fs.writeFileSync(mark, program);
      t.after(() => fs.rmSync(mark));
      refused(undefined, new RegExp(`differ.*\nrelease: the two ${what} are not the same`));
    });
  }

  test('makes the packages, symbols, a list of what is inside, notes and checksums', () => {
    const { status, stdout, stderr, out } = release();
    assert.equal(status, 0, stderr);
    const names = fs.readdirSync(out).sort();
    assert.deepEqual(names, ['NOTES.md', 'SHA256SUMS', `pellmar-${version}.cdx.json`,
      `pellmar-${version}.dSYM.tar.gz`, `pellmar-${version}.tgz`, `pellmar-dev-agent-${version}.tgz`]);
    run('sha256sum', ['--check', '--strict', 'SHA256SUMS'], { cwd: out });
    const sums = fs.readFileSync(path.join(out, 'SHA256SUMS'), 'utf8');
    assert.deepEqual(sums.match(/(?<= {2}).*/g).sort(), names.filter((name) => name !== 'SHA256SUMS'));
    const digest = run('sha256sum', [path.join(session.folder, 'pellmar.node')]).split(' ')[0];
    assert.equal(stdout, `${digest}  pellmar.node, from both builds\n${sums}`);

    const inside = JSON.parse(fs.readFileSync(path.join(out, `pellmar-${version}.cdx.json`), 'utf8'));
    assert.equal(inside.bomFormat, 'CycloneDX');
    assert.deepEqual([inside.metadata.component.name, inside.metadata.component.version], ['pellmar', version]);
    const refs = inside.components.map((component) => component['bom-ref']);
    for (const name of ['nan', 'plist', 'bplist-parser']) assert.ok(refs.includes(`${name}@${devDependencies[name]}`), name);
    assert.deepEqual(inside.components.map(({ name }) => name).sort(),
      ['@xmldom/xmldom', 'big-integer', 'bplist-parser', 'nan', 'plist', 'xmlbuilder']);

    const notes = fs.readFileSync(path.join(out, 'NOTES.md'), 'utf8');
    const log = fs.readFileSync(path.join(root, 'CHANGELOG.md'), 'utf8');
    assert.match(notes, /^\S/);
    assert.ok(log.includes(`## ${version}\n\n${notes}`));
    assert.doesNotMatch(notes, /^## /m);

    assert.match(release({ out }).stderr, /is not empty/);
  });
});
