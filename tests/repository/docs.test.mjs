// What the documents say, held against the tree.

import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { faultsPage } from '../faults/page.mjs';

const root = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../..');
const read = (file) => fs.readFileSync(path.join(root, file), 'utf8');
const integrating = 'docs/integrating.md';

/** The fenced blocks of a document that are in `language`. */
function blocks(file, language) {
  return [...read(file).matchAll(/^```(\w*)\n(.*?)^```$/gms)]
    .filter(([, found]) => found === language)
    .map(([, , text]) => text);
}

/** The pairs of a .strings table. */
function table(text) {
  return new Map([...text.matchAll(/^"(.*)" = "(.*)";$/gm)].map(([, key, value]) => [key, value]));
}

const placeholders = (text) => text.match(/%(\d\$)?@/g)?.length ?? 0;

test('the native example is the one that is compiled', () => {
  const shown = blocks(integrating, 'objc');
  assert.deepEqual(shown, [read('docs/examples/ReportsAndCodes.m')]);
});

test('each translation has the keys that the window looks up, and their placeholders', () => {
  const window = read('ui/AFXPermissionWindowController.mm').replace(/"\s*@?"/g, '');
  const languages = fs.readdirSync(path.join(root, 'languages'));
  assert.equal(languages.length, 15);
  for (const language of languages) {
    const text = read(`languages/${language}/Pellmar.strings`);
    const texts = table(text);
    assert.equal(texts.size, 6, language);
    assert.equal(text.match(/" = "/g).length, 6, language);
    for (const [key, value] of texts) {
      assert.ok(window.includes(`@"${key}"`), key);
      assert.equal(placeholders(value), placeholders(key), `${language}: ${value}`);
      assert.doesNotMatch(value, /['"]|\.\.\./, 'typewriter\'s characters');
    }
  }
  const [shown] = blocks(integrating, '').map(table).filter(({ size }) => size > 0);
  assert.deepEqual(shown, table(read('languages/de.lproj/Pellmar.strings')));
});

test('each language has its pictures, which scripts/screenshots takes', () => {
  const codes = fs.readdirSync(path.join(root, 'languages')).map((folder) => path.parse(folder).name);
  assert.deepEqual(fs.readdirSync(path.join(root, 'docs/images/languages')).sort(),
    codes.flatMap((code) => [`${code}-dark.png`, `${code}.png`]).sort());
});

test('the names that the document gives are those of the code', () => {
  const text = read(integrating);
  assert.ok(read('client/AFXConstants.mm').includes('com.pellmar.ProvisioningService'));
  assert.ok(text.includes('<string>com.pellmar.ProvisioningService</string>'));
  assert.ok(read('client/AFXConsentFlow.mm').includes('@"ShouldAskForPermissionLater"'));
  assert.ok(text.includes('`ShouldAskForPermissionLater`'));
  const declared = new Set(read('client/Pellmar.h').match(/\bPL[A-Z]\w+(?=\()/g));
  for (const name of text.match(/\bPL[A-Z]\w+(?=[`(])/g)) {
    assert.ok(declared.has(name), name);
  }
});

test('the page of faults is the table that is tried', () => {
  assert.equal(read('docs/faults.md'), faultsPage());
});

test('the spellings that are to stay are those of the code', () => {
  const sources = execFileSync('git', ['ls-files', 'binding', 'client', 'ui'], { cwd: root, encoding: 'utf8' })
    .split('\n').filter(Boolean).map((file) => file + '\n' + read(file)).join('\n');
  const [, section] = /^## Spellings that are contracts\n(.*?)^## /ms.exec(read('CONTRIBUTING.md'));
  const spellings = [...section.matchAll(/^\| (.*?) \|/gm)].slice(1)
    .flatMap(([, cell]) => [...cell.matchAll(/`(.*?)`/g)].map(([, spelling]) => spelling))
    .filter((spelling) => !spelling.includes('…'));
  assert.ok(spellings.length > 15);
  for (const spelling of spellings) assert.ok(sources.includes(spelling), spelling);
});

test('the version that the documents give is that of the package', () => {
  const { version } = JSON.parse(read('package.json'));
  assert.equal(/^## (\S+)$/m.exec(read('CHANGELOG.md'))[1], version);
  for (const document of ['README.md', 'README.package.md', integrating]) {
    const named = [...read(document).matchAll(/\b(?:pellmar-|Pellmar client )(\d+\.\d+\.\d+)/g)];
    assert.ok(named.length > 0, document);
    for (const [text, found] of named) assert.equal(found, version, `${document}: ${text}`);
  }
});

test('links within the tree lead somewhere', () => {
  const documents = execFileSync('git', ['ls-files', '-co', '--exclude-standard', '*.md'],
    { cwd: root, encoding: 'utf8' }).split('\n').filter(Boolean);
  assert.ok(documents.includes(integrating));
  for (const document of documents) {
    for (const [, link] of read(document).matchAll(/\]\(([^)#]+)(?:#[^)]*)?\)/g)) {
      if (/^\w+:/.test(link)) continue;
      const target = path.resolve(root, path.dirname(document), link);
      assert.ok(fs.existsSync(target), `${document}: ${link}`);
    }
  }
});
