// Reads the macOS bundle named by PELLMAR_BUNDLE with LLVM's tools, on any system, and compares it with
// expected.mjs and undefined-symbols.txt:
//
//   PELLMAR_BUNDLE=build/macos/pellmar.node node --test tests/bundle/check.mjs

import assert from 'node:assert/strict';
import { existsSync, mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, describe, test } from 'node:test';
import { fileURLToPath } from 'node:url';

import * as expected from './expected.mjs';
import { architectures, missingTools, readSlice } from './macho.mjs';
import { readCategories, readClasses, readProtocols } from './objc.mjs';
import { readModuleRecords } from './record.mjs';
import { compareSymbols } from './symbol-list.mjs';

const bundle = process.env.PELLMAR_BUNDLE;
const pictureFolder = fileURLToPath(new URL('../../resources/', import.meta.url));

/** Why nothing can be checked, or undefined. */
function obstacle() {
  if (!bundle) {
    return 'PELLMAR_BUNDLE names no macOS bundle (scripts/macos-cross builds one)';
  }
  const missing = missingTools();
  return missing.length > 0 ? `not installed: ${missing.join(', ')} (LLVM 19)` : undefined;
}

const reason = obstacle();
if (reason) {
  test('the macOS bundle', { skip: reason }, () => {});
} else if (!existsSync(bundle)) {
  test('the macOS bundle exists', () => assert.fail(`no file ${bundle}`));
} else {
  const folder = mkdtempSync(join(tmpdir(), 'pellmar-macho-'));
  after(() => rmSync(folder, { recursive: true }));

  test('the file is universal', () => {
    assert.deepEqual(architectures(bundle).sort(), Object.keys(expected.slices).sort());
  });
  for (const architecture of Object.keys(expected.slices)) {
    checkSlice(architecture, folder);
  }
}

function sorted(names) {
  return [...names].sort();
}

function checkSlice(architecture, folder) {
  describe(architecture, () => {
    const slice = readSlice(bundle, architecture, folder);
    const { minimumVersion, boolEncoding } = expected.slices[architecture];
    const encoding = (types) => types.replaceAll('BOOL', boolEncoding);
    const encodings = (methods) =>
      Object.entries(methods).map(([selector, types]) => `${selector} ${encoding(types)}`);

    test('is a bundle', () => {
      assert.equal(slice.fileType, 'BUNDLE');
    });

    test('runs on the oldest system named for it', () => {
      const versions = [
        ...slice.commandFields(['LC_VERSION_MIN_MACOSX'], 'version'),
        ...slice.commandFields(['LC_BUILD_VERSION'], 'minos'),
      ];
      assert.deepEqual(versions, [minimumVersion]);
      for (const platform of slice.commandFields(['LC_BUILD_VERSION'], 'platform')) {
        assert.equal(platform, 'macos');
      }
    });

    test('has the load commands of a plain bundle', () => {
      const names = slice.commands.map(({ name }) => name);
      assert.deepEqual(names.filter((name) => !expected.loadCommands.has(name)), []);
      assert.deepEqual(expected.neededCommands.filter((name) => !names.includes(name)), []);
    });

    test('loads the libraries that its symbols come from, and no other', () => {
      const used = new Set(slice.undefined.map(({ library }) => library));
      used.delete('host');
      // The runtime of C is loaded whether a symbol of it is named or not.
      used.add('libSystem');
      assert.deepEqual(
        sorted(slice.commandFields(['LC_LOAD_DYLIB'], 'name').map((name) => name.split(' ')[0])),
        sorted([...used].map((library) => expected.libraries[library] ?? `unknown: ${library}`)),
      );
    });

    test('has no memory that is both writable and executable', () => {
      for (const { name, protection, maximumProtection } of slice.segments) {
        for (const rights of [protection, maximumProtection]) {
          assert.ok(!(rights.includes('w') && rights.includes('x')), `${name} is ${rights}`);
        }
      }
    });

    test('is signed, and unchanged since', () => {
      assert.deepEqual(slice.signatureFaults(), []);
    });

    test('exports the public interface alone', () => {
      const names = [
        ...expected.functions,
        ...Object.keys(expected.constants),
        expected.versionMarker.name,
      ].map((name) => `_${name}`);
      assert.deepEqual(sorted(slice.exported), sorted(names));
      assert.deepEqual(sorted(slice.exportedToLoader()), sorted(names));
    });

    test('is stripped of its own symbols', () => {
      assert.deepEqual(slice.local, []);
    });

    test('holds no path of a source file', () => {
      const text = slice.bytes.toString('latin1');
      assert.deepEqual(text.match(/\/[\w .+/-]+\.(h|hpp|c|cc|cpp|m|mm|o|a)(?=\0)/g), null);
    });

    test('looks up the listed symbols alone', () => {
      assert.deepEqual(compareSymbols(architecture, slice.undefined), { unlisted: [], unused: [] });
    });

    test('has its public constants with their values', () => {
      for (const [name, value] of Object.entries(expected.constants)) {
        const address = slice.addresses.get(`_${name}`);
        assert.notEqual(address, undefined, name);
        assert.equal(slice.constantString(slice.pointer(address)), value, name);
        assert.equal(slice.sectionAt(address).name, '__const', name);
      }
    });

    test('has the version marker as a variable', () => {
      const { name, value } = expected.versionMarker;
      const address = slice.addresses.get(`_${name}`);
      assert.notEqual(address, undefined, name);
      assert.equal(slice.constantString(slice.pointer(address)), value);
      const { protection, flags } = slice.segmentAt(address);
      assert.deepEqual([protection, flags], ['rw-', '(none)']);
    });

    test('has the module record', () => {
      assert.deepEqual(readModuleRecords(slice, expected.moduleRecord.name), [expected.moduleRecord]);
    });

    test('runs nothing but its registrations when it is mapped', () => {
      const calls = slice.initializers().map((address) => slice.outsideCalls(address));
      assert.deepEqual(sorted(calls), sorted(expected.initializers));
    });

    test('has no +load', () => {
      for (const { name, classMethods } of [...readClasses(slice), ...readCategories(slice)]) {
        assert.ok(!classMethods.some(({ selector }) => selector === 'load'), name);
      }
      assert.deepEqual(slice.pointerList('__objc_nlclslist'), []);
      assert.deepEqual(slice.pointerList('__objc_nlcatlist'), []);
    });

    test('declares the agent\'s protocols', () => {
      const found = readProtocols(slice).filter(
        ({ name }) => !expected.systemProtocols.includes(name),
      );
      assert.deepEqual(
        found.sort((a, b) => (a.name < b.name ? -1 : 1)),
        expected.protocols
          .map(({ name, adopts, methods }) => ({
            name,
            adopts,
            methods: methods.map(([selector, types, extendedTypes]) => ({
              selector,
              types: encoding(types),
              extendedTypes: encoding(extendedTypes),
            })),
            hasOther: false,
          }))
          .sort((a, b) => (a.name < b.name ? -1 : 1)),
      );
    });

    test('has its classes and no others', () => {
      assert.deepEqual(
        sorted(readClasses(slice).map(({ name, superclass }) => `${name} : ${superclass}`)),
        sorted(expected.classes.map(({ name, superclass }) => `${name} : ${superclass}`)),
      );
    });

    for (const { name, methods, helpers, classMethods, properties } of expected.classes) {
      test(`has the methods and properties of ${name}`, () => {
        const found = readClasses(slice).find((candidate) => candidate.name === name);
        assert.notEqual(found, undefined);
        assert.deepEqual(found.adopts, []);
        const isHelper = ({ selector }) => helpers.includes(selector);
        assert.deepEqual(
          sorted(
            found.instanceMethods
              .filter((method) => !isHelper(method))
              .map(({ selector, types }) => `${selector} ${types}`),
          ),
          sorted(encodings(methods)),
        );
        assert.deepEqual(
          sorted(found.instanceMethods.filter(isHelper).map(({ selector }) => selector)),
          sorted(helpers),
        );
        assert.deepEqual(
          sorted(found.classMethods.map(({ selector }) => selector)),
          sorted(classMethods),
        );
        assert.deepEqual(
          found.properties.map((property) => [property.name, property.attributes]),
          properties,
        );
      });
    }

    test('has its categories', () => {
      const describeCategory = (category, instanceMethods, classMethods) => ({
        name: `${category.class}(${category.name})`,
        adopts: category.adopts ?? [],
        properties: category.properties ?? [],
        instanceMethods: sorted(instanceMethods),
        classMethods: sorted(classMethods),
      });
      const byName = (a, b) => (a.name < b.name ? -1 : 1);
      const plain = (methods) => methods.map(({ selector, types }) => `${selector} ${types}`);
      assert.deepEqual(
        readCategories(slice)
          .map((found) =>
            describeCategory(found, plain(found.instanceMethods), plain(found.classMethods)),
          )
          .sort(byName),
        expected.categories
          .map((listed) =>
            describeCategory(
              listed,
              encodings(listed.instanceMethods),
              encodings(listed.classMethods),
            ),
          )
          .sort(byName),
      );
    });

    test('holds each picture once, in memory that cannot be written', () => {
      for (const name of expected.pictures) {
        const picture = readFileSync(join(pictureFolder, name));
        const offset = slice.bytes.indexOf(picture);
        assert.notEqual(offset, -1, `${name} is not there, or not as it is in resources/`);
        assert.equal(slice.bytes.indexOf(picture, offset + 1), -1, `${name} is there twice`);
        const section = slice.sections.find(
          (candidate) =>
            candidate.type !== 'S_ZEROFILL' &&
            offset >= candidate.offset &&
            offset + picture.length <= candidate.offset + candidate.size,
        );
        assert.notEqual(section, undefined, `${name} is in no section`);
        const segment = slice.segmentAt(section.address);
        assert.ok(!segment.maximumProtection.includes('w'), `${name} is in ${segment.name}`);
      }
    });

    test('is small beside the pictures', () => {
      const sizes = expected.pictures.map((name) => readFileSync(join(pictureFolder, name)).length);
      const rest = slice.bytes.length - sizes.reduce((sum, size) => sum + size, 0);
      assert.ok(rest < expected.sizeLimit, `${rest} bytes`);
    });
  });
}
