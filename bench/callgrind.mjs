// Reads what callgrind has counted (its format is in Valgrind's manual), and makes of it what a call costs.

import fs from 'node:fs';
import path from 'node:path';

/** What a call out of the product counts as, by the function or the method that is called. */
const kinds = {
  messages: [/^objc_msg_lookup/],
  allocations: [/^(_Block_copy|operator new|malloc|calloc|dispatch_\w+_create)/, /^\+\S+ (alloc|new)/,
    /^-\S+ (mutableC|c)opy$/, /^\+\S+ \w+With\w*:/],
  'objects put into a pool': [/^-\S+ autorelease$/, /^\+\S+ (?!alloc)\w+With\w*:/],
  locks: [/^pthread_mutex_lock/],
};

/** The methods whose places a process has printed: their names by library and place. */
function readMethods(file) {
  return new Map(fs.readFileSync(file, 'utf8').split('\n').filter(Boolean).map((line) => {
    const [library, place, name] = line.split('\t');
    return [`${fs.realpathSync(library)} ${place}`, name];
  }));
}

/**
 * Instructions of `object` in one dump, and its calls into other objects by the names of what is called. Where the
 * symbols of a library are missing, callgrind names a function by its place.
 */
export function readDump(text, object, methods = new Map()) {
  const names = { ob: new Map(), fn: new Map() };
  const name = (kind, value) => {
    const [, id, given] = /^(\(\d+\)) ?(.*)$/.exec(value);
    if (given) names[kind].set(id, given);
    return names[kind].get(id);
  };
  const found = { trigger: /^desc: Trigger: Client Request: (.*)$/m.exec(text)?.[1], instructions: 0, calls: {} };
  let ob, calledOb, called, isCall = false;
  for (const line of text.split('\n')) {
    const [, key, value] = /^(c?ob|c?fn|calls)=(.*)$/.exec(line) ?? [];
    if (key === 'ob') ob = name('ob', value);
    else if (key === 'fn') name('fn', value);
    else if (key === 'cob') calledOb = name('ob', value);
    else if (key === 'cfn') called = name('fn', value);
    else if (key === 'calls') {
      if (ob === object && (calledOb ?? ob) !== object) {
        const callee = methods.get(`${calledOb} ${called}`) ?? methodName(called);
        found.calls[callee] = (found.calls[callee] ?? 0) + Number.parseInt(value, 10);
      }
      [calledOb, isCall] = [undefined, true];
    } else if (/^[+\-*\d]/.test(line)) {
      // The line after a call has what was spent in it.
      if (ob === object && !isCall) found.instructions += Number(line.split(' ')[1]);
      isCall = false;
    }
  }
  return found;
}

/** A method's name as the language writes it, of the function's as the compiler does. */
function methodName(symbol) {
  const [, kind, owner, selector] = /^_([ci])_(\w+?)__(\w+?)('\d+)?$/.exec(symbol) ?? [];
  return kind ? `${kind === 'c' ? '+' : '-'}${owner} ${selector.replaceAll('_', ':')}` : symbol;
}

/** What one call costs in the steady state, by its name: `{ instructions, messages, … }`. */
export function costOfCalls(folder, object) {
  const costs = {};
  const methods = readMethods(path.join(folder, 'methods'));
  for (const file of fs.readdirSync(folder)) {
    const dump = readDump(fs.readFileSync(path.join(folder, file), 'utf8'), object, methods);
    const [, name, count] = /^(\w+) (\d+)$/.exec(dump.trigger ?? '') ?? [];
    if (name) (costs[name] ??= []).push({ ...dump, count: Number(count) });
  }
  for (const [name, runs] of Object.entries(costs)) {
    // What a run costs besides its calls goes with the difference.
    const [less, more] = runs.sort((a, b) => a.count - b.count);
    const cost = (amount) => (amount(more) - amount(less)) / (more.count - less.count);
    const calls = (patterns) => ({ calls: counts }) => Object.entries(counts).reduce((sum, [callee, times]) =>
      sum + (patterns.some((pattern) => pattern.test(callee)) ? times : 0), 0);
    costs[name] = { instructions: cost((run) => run.instructions) };
    for (const [kind, patterns] of Object.entries(kinds)) costs[name][kind] = cost(calls(patterns));
  }
  return costs;
}
