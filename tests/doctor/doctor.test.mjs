// What `pellmar doctor` says of applications: a right one in the layout of a packed Electron
// application, and one for each fault.

import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { build } from 'plist';

import { placeholdersFit } from '../../doctor/strings_table.mjs';
import { makeUniversal } from './macho_files.mjs';

const root = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../..');
const program = path.join(root, 'doctor/main.mjs');
const team = 'TEAM123456';
const sandboxKey = 'com.apple.security.app-sandbox';
const lookupKey = 'com.apple.security.temporary-exception.mach-lookup.global-name';
const bundle = 'node_modules/pellmar/pellmar.node';
const german = 'Contents/Resources/de.lproj/Pellmar.strings';
const unpacked = `Contents/Resources/app.asar.unpacked/${bundle}`;

const both = (slice) => makeUniversal(['x86_64', 'arm64'].map((architecture) => ({ architecture, ...slice })));
const client = (slice) => both({ moduleVersion: 85, signature: { team }, ...slice });
const executable = (signature, slice) => both({ signature: { team, hardened: true, ...signature }, ...slice });

/** An archive whose files are named alone: `{ path: isUnpacked }`. */
function archive(files) {
  const header = { files: {} };
  for (const [name, isUnpacked] of Object.entries(files)) {
    const parts = name.split('/');
    let folder = header;
    for (const part of parts.slice(0, -1)) folder = folder.files[part] ??= { files: {} };
    folder.files[parts.at(-1)] = { size: 0, ...(isUnpacked ? { unpacked: true } : { offset: '0' }) };
  }
  const text = Buffer.from(JSON.stringify(header));
  const sizes = Buffer.alloc(16);
  const padded = Math.ceil(text.length / 4) * 4;
  [4, padded + 8, padded + 4, text.length].forEach((size, index) => sizes.writeUInt32LE(size, index * 4));
  return Buffer.concat([sizes, text, Buffer.alloc(padded - text.length)]);
}

/** A property list in the binary form. */
const binary = (value) => spawnSync('python3', ['-c',
  'import json, plistlib, sys; sys.stdout.buffer.write(plistlib.dumps(json.load(sys.stdin), fmt=plistlib.FMT_BINARY))'],
{ input: JSON.stringify(value) }).stdout;

/** The files of an application in which nothing is wrong. */
function files() {
  return {
    'Contents/Info.plist': build({
      CFBundleExecutable: 'Editor', CFBundleName: 'Editor', CFBundleIconFile: 'editor.icns',
    }),
    'Contents/MacOS/Editor': executable(),
    'Contents/Resources/editor.icns': 'icns',
    'Contents/Resources/app.asar': archive({ 'main.js': false, [bundle]: true }),
    [unpacked]: client(),
    [german]: fs.readFileSync(path.join(root, 'languages/de.lproj/Pellmar.strings')),
    'Contents/Resources/en.lproj/locale.pak': '',
    'Contents/Frameworks/Electron Framework.framework/Versions/A/Resources/Info.plist':
      build({ CFBundleName: 'Electron Framework', CFBundleVersion: '11.5.0' }),
    'Contents/Frameworks/Electron Framework.framework/Versions/A/Electron Framework': 'not read',
  };
}

const links = { 'Versions/Current': 'A', Resources: 'Versions/Current/Resources' };

/** Writes an application with some files changed, or left out where the change is null; returns its folder. */
function make(t, changes = {}) {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'pellmar-doctor-'));
  t.after(() => fs.rmSync(folder, { recursive: true }));
  const application = path.join(folder, 'Editor.app');
  for (const [name, content] of Object.entries({ ...files(), ...changes })) {
    if (content === null) continue;
    const file = path.join(application, name);
    fs.mkdirSync(path.dirname(file), { recursive: true });
    fs.writeFileSync(file, content);
  }
  const framework = path.join(application, 'Contents/Frameworks/Electron Framework.framework');
  if (fs.existsSync(framework)) {
    for (const [name, target] of Object.entries(links)) fs.symlinkSync(target, path.join(framework, name));
  }
  return application;
}

function doctor(t, ...args) {
  const { status, stdout, stderr } = spawnSync(process.execPath, [program, 'doctor', ...args], { encoding: 'utf8' });
  // A parser may have complained of a damaged file.
  assert.doesNotMatch(stderr, /^ +at /m);
  return { status, lines: stdout.trim().split('\n') };
}

const rightLines = [
  `ok    the client is there once, outside the archive: Resources/app.asar.unpacked/${bundle}`,
  'ok    the client has code for arm64 and x86_64',
  'ok    the client and Electron 11.5.0 have module version 85',
  `ok    the client and the application are signed by the team ${team}`,
  'ok    the application has the hardened runtime',
  'ok    the application is not sandboxed, and needs no entitlement for the agent',
  'ok    the window calls the application Editor',
  'ok    the window shows the icon editor.icns',
  'ok    the window is translated: de',
];

test('an application in which nothing is wrong', (t) => {
  const { status, lines } = doctor(t, make(t));
  assert.deepEqual(lines, rightLines);
  assert.equal(status, 0);
});

const info = (changes) => ({
  'Contents/Info.plist': build({
    CFBundleExecutable: 'Editor', CFBundleName: 'Editor', CFBundleIconFile: 'editor.icns', ...changes,
  }),
});
const entitlements = (values) => ({
  'Contents/MacOS/Editor': executable({ entitlements: build(values) }),
});
const table = (change) => ({ [german]: change(files()[german].toString('utf8')) });
const framework = 'Contents/Frameworks/Electron Framework.framework/Versions/A/Resources/Info.plist';
const changed = () => {
  const bytes = client();
  bytes[0x100 + 0x3ff] ^= 1;
  return bytes;
};

/** Each with the application's change and what is said of it; `ends` is 1 unless it is a note. */
const cases = {
  'the folder is no application': [{ 'Contents/Info.plist': null }, /^wrong there is no readable Contents\/Info\.plist/],
  'the property list is damaged': [{ 'Contents/Info.plist': '<plist' }, /^wrong there is no readable Contents\/Info\.plist/],
  'the client was not packed': [{ [unpacked]: null, 'Contents/Resources/app.asar': archive({ 'main.js': false }) },
    /^wrong the client is not in the application: have the packer take/],
  'the client lies in the archive': [{ [unpacked]: null, 'Contents/Resources/app.asar': archive({ [bundle]: false }) },
    /^wrong the client lies inside an archive: Resources\/app\.asar\/node_modules\/pellmar\/.*: unpack it/],
  'the archive is damaged': [{ 'Contents/Resources/app.asar': 'x' }, /^wrong app\.asar cannot be read: .*: pack it anew/],
  'there are two copies': [{ 'Contents/Resources/app.asar.unpacked/copy.node': client() },
    /^wrong the client is there 2 times: .*copy\.node.*: keep one/],
  'two builds lie beside each other': [{
    [unpacked]: null,
    'Contents/Resources/app.asar': null,
    ...Object.fromEntries([['x64', 'x86_64'], ['arm64', 'arm64']].map(([name, architecture]) => [
      `Contents/Resources/app-${name}.asar.unpacked/${bundle}`,
      makeUniversal([{ architecture, moduleVersion: 85, signature: { team } }])])),
  }, /^ok    the client is there once, outside the archive: .*app-arm64\.asar\S*, .*app-x64\.asar/, 0],
  'an application of the Mac App Store lacks the hardened runtime': [{
    'Contents/MacOS/Editor': executable({
      hardened: false, entitlements: build({ [sandboxKey]: true, [lookupKey]: ['com.pellmar.ProvisioningService'] }) }),
  }, /^note  the application lacks the hardened runtime: .*unless it is for the Mac App Store/, 0],
  'the executable is missing': [{ 'Contents/MacOS/Editor': null }, /^wrong its executable is missing/],
  'a slice is missing': [{ [unpacked]: makeUniversal([{ architecture: 'x86_64', moduleVersion: 85, signature: { team } }]) },
    /^wrong the application runs on arm64, and the client does not: /],
  'neither has the other slice': [{
    [unpacked]: makeUniversal([{ architecture: 'arm64', moduleVersion: 85, signature: { team } }]),
    'Contents/MacOS/Editor': makeUniversal([{ architecture: 'arm64', signature: { team, hardened: true } }]),
  }, /^note  the client has code for arm64 alone/, 0],
  'Electron is a later one': [{ [framework]: build({ CFBundleVersion: '12.2.3' }) },
    /^wrong the client has module version 85, that of Electron 11, and the application has Electron 12\.2\.3, of module version 87: use a release/],
  'Electron is far later': [{ [framework]: build({ CFBundleVersion: '39.1.0' }) },
    /^wrong .* and the application has Electron 39\.1\.0: use a release/],
  'the client is for another runtime': [{ [unpacked]: client({ moduleVersion: 87 }) },
    /^wrong the client has module version 87, that of Electron 12, and the application has Electron 11\.5\.0, of module version 85/],
  'there is no Electron': [{ [framework]: null }, /^wrong there is no Electron Framework that says its version/],
  'the client is not signed': [{ [unpacked]: client({ signature: undefined }) },
    /^wrong the client is not signed \(arm64, x86_64\): sign it/],
  'the client was changed after it was signed': [{ [unpacked]: changed() },
    /^wrong the client was changed after it was signed \(x86_64: page 0 differs from what was signed\): /],
  'the client kept its ad-hoc signature': [{ [unpacked]: client({ signature: {} }) },
    /^wrong the client is signed by no team, the application by TEAM123456: sign both/],
  'another team signed the client': [{ [unpacked]: client({ signature: { team: 'OTHER' } }) },
    /^wrong the client is signed by OTHER, the application by TEAM123456: sign both/],
  'it was built for development': [{ [unpacked]: client({ signature: {} }), 'Contents/MacOS/Editor': both({ signature: {} }) },
    /^note  the application is not signed by a team, nor is the client: sign both/, 0],
  'the hardened runtime is off': [{ 'Contents/MacOS/Editor': executable({ hardened: false }) },
    /^wrong the application lacks the hardened runtime: sign it with --options runtime/],
  'library validation is off': [entitlements({ 'com.apple.security.cs.disable-library-validation': true }),
    /^note  the application turns library validation off: /, 0],
  'the sandbox hides the agent': [entitlements({ [sandboxKey]: true, [lookupKey]: ['com.example.other'] }),
    /^wrong the sandbox hides the agent from the application: add com\.pellmar\.ProvisioningService/],
  'the sandbox lets the agent through': [
    entitlements({ [sandboxKey]: true, [lookupKey]: ['com.pellmar.ProvisioningService'] }),
    /^ok    the sandbox lets the application look up the agent/, 0],
  'the name is missing': [info({ CFBundleName: '' }), /^wrong Info\.plist has no CFBundleName/],
  'the name is Electron\'s': [info({ CFBundleName: 'Electron' }), /^wrong the window calls the application Electron: /],
  'there is no icon': [info({ CFBundleIconFile: '' }), /^wrong the application has no icon: give/],
  'the icon is not there': [{ 'Contents/Resources/editor.icns': null }, /^wrong the icon editor\.icns is not in Contents/],
  'there are no translations': [{ [german]: null }, /^note  there is no Pellmar\.strings, and the window is in English/, 0],
  'a key has a typewriter\'s apostrophe': [table((text) => text.replace('"Let’s', '"Let\'s')),
    /^wrong de\.lproj\/Pellmar\.strings: the key “Let's stay in touch!” has another apostrophe.*: write “Let’s/],
  'a key is unknown': [table((text) => `${text}"Yes" = "Ja";\n`),
    /^wrong de\.lproj\/Pellmar\.strings: the window does not look up the key “Yes”: /],
  'a key is missing': [table((text) => text.replace(/^"No, .*\n/m, '')),
    /^wrong de\.lproj\/Pellmar\.strings: “No, Thanks” is missing and stays English: add it/],
  'a placeholder is wrong': [table((text) => text.replace('%@ lädt', '%s lädt')),
    /^wrong de\.lproj\/Pellmar\.strings: the placeholders of “%s lädt .*” do not fit/],
  'a placeholder is left out': [table((text) => text.replace('%@ lädt', 'Man lädt')),
    /^wrong de\.lproj\/Pellmar\.strings: “Man lädt .*” leaves out a placeholder/],
  'a table is no table': [table((text) => text.replace(';', '')),
    /^wrong de\.lproj\/Pellmar\.strings: it cannot be read: line \d+ is no "key" = "text";/],
};

for (const [name, [change, line, ends = 1]] of Object.entries(cases)) {
  test(name, (t) => {
    const { status, lines } = doctor(t, make(t, change));
    const found = lines.filter((text) => line.test(text));
    assert.equal(found.length, 1, lines.join('\n'));
    // Nothing else is made out of it.
    const others = lines.filter((text) => !text.startsWith('ok') && text !== found[0]);
    assert.deepEqual(others, []);
    assert.equal(status, ends);
  });
}

test('tables that were compiled, or are in UTF-16, are read as well', (t) => {
  const text = files()[german].toString('utf8');
  const pairs = Object.fromEntries([...text.matchAll(/^"(.*)" = "(.*)";$/gm)].map(([, key, value]) => [key, value]));
  for (const bytes of [binary(pairs), build(pairs), Buffer.from(`\ufeff${text}`, 'utf16le'),
    Buffer.from(`\ufeff${text}`)]) {
    assert.equal(doctor(t, make(t, { [german]: bytes })).lines.at(-1), rightLines.at(-1));
  }
});

test('a compiled Info.plist is read, too', (t) => {
  const { status } = doctor(t, make(t, { 'Contents/Info.plist': binary({
    CFBundleExecutable: 'Editor', CFBundleName: 'Editor', CFBundleIconFile: 'editor' }) }));
  assert.equal(status, 0);
});

const tools = ['clang-19', 'ld64.lld-19', 'llvm-lipo-19'];
const missing = tools.filter((tool) => spawnSync(tool, ['--version']).error);
const skip = missing.length > 0 && `not installed: ${missing.join(', ')}`;

test('files of a linker are read like those of this test', { skip }, (t) => {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'pellmar-doctor-'));
  t.after(() => fs.rmSync(folder, { recursive: true }));
  const file = path.join(folder, 'client.node');
  const slices = ['x86_64', 'arm64'].map((processor) => {
    // Chained fixups are what the linker makes for a later system alone.
    const target = `${processor}-apple-macosx${processor === 'arm64' ? '12.0' : '10.10'}`;
    execFileSync('clang-19', [`--target=${target}`, '-fuse-ld=lld', '-bundle', '-nostdlib',
      '-Wl,-undefined,dynamic_lookup', '-Wl,-adhoc_codesign', '-DVERSION=85', '-o', path.join(folder, processor),
      path.join(root, 'tests/package/record.c')], { stdio: 'pipe' });
    return path.join(folder, processor);
  });
  execFileSync('llvm-lipo-19', ['-create', ...slices, '-output', file]);
  const { status, lines } = doctor(t, make(t, {
    [unpacked]: fs.readFileSync(file), 'Contents/MacOS/Editor': both({ signature: {} }) }));
  assert.deepEqual(lines.slice(0, 4), [...rightLines.slice(0, 3),
    'note  the application is not signed by a team, nor is the client: sign both with your identity for a release']);
  assert.equal(status, 0);
});

test('--json says the same', (t) => {
  const application = make(t, { [german]: null });
  const { status, lines } = doctor(t, '--json', application);
  const { isWell, findings } = JSON.parse(lines.join('\n'));
  assert.deepEqual([status, isWell], [0, true]);
  assert.deepEqual(Object.keys(findings.at(-1)), ['check', 'level', 'text', 'advice']);
  assert.deepEqual(findings.map(({ check, level }) => `${check}: ${level}`), [
    'place: ok', 'slices: ok', 'runtime: ok', 'signature: ok', 'hardened runtime: ok', 'sandbox: ok', 'name: ok',
    'icon: ok', 'texts: note']);
});

test('it says how it is called', () => {
  const run = (...args) => spawnSync(process.execPath, [program, ...args], { encoding: 'utf8' });
  assert.deepEqual([run('--help').status, run().status, run('doctor').status, run('doctor', 'a', 'b').status,
    run('doctor', '--jason', 'a').status], [0, 2, 2, 2, 2]);
  assert.match(run('doctor').stderr, /^usage: npx pellmar doctor/);
});

test('placeholders fit where the client itself says so', () => {
  // The table of ui/AFXPlaceholders' own test.
  const text = fs.readFileSync(path.join(root, 'tests/ui/AFXPlaceholdersTest.cpp'), 'utf8');
  const rows = [...text.matchAll(/EXPECT_(TRUE|FALSE)\(__AFXPlaceholdersFit\("(.*?)", (\d)\)\)/g)];
  assert.ok(rows.length > 20);
  for (const [, fits, format, count] of rows) {
    assert.equal(placeholdersFit(format, Number(count)), fits === 'TRUE', `${format}, ${count}`);
  }
});
