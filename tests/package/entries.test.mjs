// What can be required and imported of the package, and how checkers of packages judge it.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import { before, describe, test } from 'node:test';

import { parse } from 'acorn';

import { makeSession } from '../support/agent.mjs';
import { makeTarball, root, run, skip } from './tarball.mjs';

const require = createRequire(import.meta.url);
const { exports: entries, files } = require('../../package.json');
const program = (name) => path.join(root, 'node_modules/.bin', name);

describe('the packed package', { skip }, () => {
  let session;
  let tarball;
  before(() => {
    session = makeSession();
    process.on('exit', () => fs.rmSync(session.folder, { recursive: true }));
    tarball = makeTarball(session);
  });

  test('has nothing that publint complains of', () => {
    const { status, stdout } = spawnSync(program('publint'), ['run', tarball, '--strict'], { encoding: 'utf8' });
    assert.match(stdout, /All good!/);
    assert.equal(status, 0);
  });

  test('has types for each way to import a script', () => {
    const headers = Object.keys(entries).filter((name) => name.endsWith('.h'));
    const { status, stdout } = spawnSync(program('attw'),
      [tarball, '--format', 'json', '--exclude-entrypoints', ...headers], { encoding: 'utf8' });
    assert.equal(status, 0, stdout);
    const { analysis } = JSON.parse(stdout);
    assert.deepEqual(analysis.problems, []);
    const scripts = Object.keys(entries).filter((name) => entries[name].types);
    for (const name of scripts) {
      const { resolutions } = analysis.entrypoints[name];
      assert.deepEqual(Object.keys(resolutions).sort(), ['bundler', 'node10', 'node16-cjs', 'node16-esm']);
      for (const { resolution } of Object.values(resolutions)) assert.equal(resolution.isTypeScript, true);
    }
  });

  test('has documents whose links lead somewhere within it', () => {
    const folder = path.join(session.folder, 'documents');
    fs.mkdirSync(folder);
    run('tar', ['-xzf', tarball, '-C', folder, '--strip-components=1']);
    const documents = fs.readdirSync(folder, { recursive: true }).filter((name) => name.endsWith('.md'));
    assert.deepEqual(documents.sort(), ['CHANGELOG.md', 'README.md', 'docs/integrating.md', 'docs/security.md']);
    const read = (name) => fs.readFileSync(path.join(folder, name), 'utf8');
    // As the places that show documents make them of headings.
    const anchors = (name) => [...read(name).matchAll(/^#+ (.*)$/gm)]
      .map(([, heading]) => heading.toLowerCase().replace(/[^\w\- ]/g, '').replace(/ /g, '-'));
    let followed = 0;
    for (const document of documents) {
      for (const [, link] of read(document).matchAll(/\]\(([^)]+)\)/g)) {
        assert.doesNotMatch(link, /^\w+:/, `${document}: ${link}`);
        const [file, anchor] = link.split('#');
        const target = path.posix.join(path.posix.dirname(document), file || path.posix.basename(document));
        assert.ok(fs.existsSync(path.join(folder, target)), `${document}: ${link}`);
        if (anchor !== undefined) assert.ok(anchors(target).includes(anchor), `${document}: ${link}`);
        followed++;
      }
    }
    assert.ok(followed > 5);
  });

  test('gives what it lists, and nothing else of its folder', () => {
    const application = path.join(session.folder, 'application');
    const folder = path.join(application, 'node_modules/pellmar');
    fs.mkdirSync(folder, { recursive: true });
    run('tar', ['-xzf', tarball, '-C', folder, '--strip-components=1']);
    const { resolve } = createRequire(path.join(application, 'main.js'));
    for (const [name, target] of Object.entries(entries)) {
      assert.equal(resolve(path.posix.join('pellmar', name)),
        fs.realpathSync(path.join(folder, target.default ?? target)));
    }
    for (const name of fs.readdirSync(folder).filter((file) => !entries[`./${file}`])) {
      assert.throws(() => resolve(`pellmar/${name}`), { code: 'ERR_PACKAGE_PATH_NOT_EXPORTED' });
    }
  });
});

test('the scripts parse in Node 12 and require nothing that it lacks', () => {
  assert.ok(files.includes('*.js'));
  for (const name of fs.readdirSync(root).filter((file) => file.endsWith('.js'))) {
    const text = fs.readFileSync(path.join(root, name), 'utf8');
    parse(text, { ecmaVersion: 2019, sourceType: 'script' });
    for (const [, wanted] of text.matchAll(/\brequire\(([^)]*)/g)) assert.match(wanted, /^'\.\/[\w-]+\.(js|node)'$/);
  }
});
