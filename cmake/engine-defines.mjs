// The preprocessor definitions with which an engine was built and which its public headers ask about:
//
//   node engine-defines.mjs NODE [V8]    NODE has config.gypi and common.gypi, V8 the engine's headers
//
// prints one a line. An add-on that is compiled without them reads the engine's objects wrongly: their
// pointers are half as wide where pointers are compressed. node-gyp takes them from the same two files,
// Python literals, of which this reads as much as tells of the engine. Prints nothing for headers that
// come without them.

import fs from 'node:fs';
import path from 'node:path';
import vm from 'node:vm';

const [folder, engine = folder] = process.argv.slice(2);

/** Reads a Python literal of dictionaries, lists, strings and numbers. */
function readLiteral(name) {
  const file = path.join(folder, name);
  if (!fs.existsSync(file)) return {};
  // Without comments; strings that stand beside each other are one.
  const text = fs.readFileSync(file, 'utf8')
    .replace(/('(?:[^'\\\n]|\\.)*'|"(?:[^"\\\n]|\\.)*")|#.*/g, (all, string) => string ?? '')
    .replace(/('(?:[^'\\\n]|\\.)*'|"(?:[^"\\\n]|\\.)*")\s+(?=['"])/g, '$1 + ');
  return vm.runInNewContext(`(${text})`);
}

/** The name of a variable without the mark that it is a default. */
const plain = (name) => name.replace(/%$/, '');

/** Whether a condition such as `a == 1 and OS in "mac ios"` holds; unknown names make it not hold. */
function holds(condition, variables) {
  const script = condition
    .replace(/\band\b/g, '&&').replace(/\bor\b/g, '||')
    .replace(/(\w+)\s+not in\s+(["'][^"']*["'])/g, '!$2.split(" ").includes($1)')
    .replace(/(\w+)\s+in\s+(["'][^"']*["'])/g, '$2.split(" ").includes($1)')
    .replace(/\bnot\b/g, '!');
  try {
    return Boolean(vm.runInNewContext(script, { ...variables }));
  } catch {
    return false;
  }
}

/** The parts of a dictionary that hold: itself and, of its conditions, what they choose. */
function* partsOf(dictionary, variables) {
  yield dictionary;
  for (const [condition, then, otherwise = {}] of dictionary.conditions ?? []) {
    yield* partsOf(holds(condition, variables) ? then : otherwise, variables);
  }
}

const common = readLiteral('common.gypi');
const config = readLiteral('config.gypi');

// The processors differ in nothing that has to do with the engine's objects, as long as they have 64 bits.
const variables = { target_arch: 'x64', host_arch: 'x64', OS: 'mac' };
for (const part of partsOf(common.variables ?? {}, variables)) {
  for (const [name, value] of Object.entries(part)) {
    if (typeof value !== 'object') variables[plain(name)] = value;
  }
}
Object.assign(variables, config.variables);

/** What the engine's headers ask about. */
const asked = fs.readdirSync(engine).filter((name) => /^v8.*\.h$/.test(name))
  .map((name) => fs.readFileSync(path.join(engine, name), 'utf8')).join('\n');

const defines = new Set();
for (const { target_defaults: defaults } of [config, common]) {
  for (const part of partsOf(defaults ?? {}, variables)) {
    for (const define of part.defines ?? []) {
      const [name] = define.split('=');
      const isAsked = new RegExp(`^#\\s*(el)?if.*\\b${name}\\b`, 'm').test(asked);
      if (/^V8_/.test(name) && !/_WARNINGS$/.test(name) && isAsked) defines.add(define);
    }
  }
}
for (const define of defines) console.log(define);
