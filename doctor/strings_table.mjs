// Tables of translations: what the window looks up, and what is wrong with an application's table.

import { isPropertyList, parsePropertyList } from './property_list.mjs';

/** The texts that the window looks up, with the number of objects that each is filled with. */
export const windowTexts = new Map([
  ['Let’s stay in touch!', 1],
  ['%@ invites you to receive its newsletters and offers.', 1],
  ['Pellmar will share your %@ email with the developers of %@.', 2],
  ['No, Thanks', 0],
  ['Sure, I’m In', 0],
  ['Ask Me Later', 0],
]);

/** Reads a `.strings` file, text or compiled. Throws what is wrong with it. */
export function readTable(bytes) {
  return isPropertyList(bytes) ? new Map(Object.entries(parsePropertyList(bytes))) : parseTable(decode(bytes));
}

function decode(bytes) {
  const mark = bytes.readUInt16BE(0);
  const encoding = mark === 0xfeff ? 'utf-16be' : mark === 0xfffe ? 'utf-16le' : 'utf-8';
  return new TextDecoder(encoding, { fatal: true }).decode(bytes);
}

/** No package reads this old kind of property list and is kept up: pairs of quoted texts. */
function parseTable(text) {
  const table = new Map();
  const token = /\s+|\/\*.*?\*\/|\/\/[^\n]*|"((?:[^"\\]|\\.)*)"\s*=\s*"((?:[^"\\]|\\.)*)"\s*;/suy;
  while (token.lastIndex < text.length) {
    const start = token.lastIndex;
    const match = token.exec(text);
    if (!match) {
      throw new Error(`line ${text.slice(0, start).split('\n').length} is no "key" = "text";`);
    }
    if (match[1] !== undefined) table.set(unescape(match[1]), unescape(match[2]));
  }
  return table;
}

function unescape(text) {
  return text.replace(/\\(U[0-9a-fA-F]{4}|.)/gsu, (_, escape) =>
    escape.length > 1 ? String.fromCharCode(parseInt(escape.slice(1), 16))
      : ({ n: '\n', t: '\t', r: '\r' })[escape] ?? escape);
}

/** The faults of a table: `{ text, advice }`. */
export function tableFaults(table) {
  const plain = (text) => text.replace(/['‘`´]/g, '’');
  const faults = [];
  for (const key of table.keys()) {
    if (windowTexts.has(key)) continue;
    faults.push(windowTexts.has(plain(key))
      ? { text: `the key “${key}” has another apostrophe than the window’s`, advice: `write “${plain(key)}” (U+2019)` }
      : { text: `the window does not look up the key “${key}”`, advice: 'compare it with those of the package' });
  }
  for (const [key, count] of windowTexts) {
    const text = table.get(key);
    if (text === undefined) {
      const isMisspelled = [...table.keys()].some((other) => plain(other) === key);
      if (!isMisspelled) faults.push({ text: `“${key}” is missing and stays English`, advice: 'add it' });
    } else if (count > 0 && !placeholdersFit(text, count)) { // the others are no formats
      faults.push({
        text: `the placeholders of “${text}” do not fit, and the English text is shown`,
        advice: `take those of “${key}”, or %1$@ and %2$@, and %% for a per cent sign`,
      });
    } else if (missingPlaceholder(key, text)) {
      faults.push({ text: `“${text}” leaves out a placeholder`, advice: `take all of “${key}”` });
    }
  }
  return faults;
}

/** As the client itself has it (ui/AFXPlaceholders.h): objects alone, and none beyond the first `count`. */
export function placeholdersFit(text, count) {
  const rest = text.replaceAll('%%', '');
  const found = [...rest.matchAll(/%(?:([1-9])\$)?@/g)].map(([, position]) => position);
  const positions = found.filter((position) => position !== undefined);
  return rest.split('%').length - 1 === found.length && positions.every((position) => Number(position) <= count) &&
    (positions.length === 0 || positions.length === found.length) && found.length - positions.length <= count;
}

function missingPlaceholder(key, text) {
  const count = (format) => new Set([...format.matchAll(/%(?:\d\$)?@/g)].map(([whole, index]) =>
    whole === '%@' ? index : whole)).size;
  return count(text) < count(key);
}
