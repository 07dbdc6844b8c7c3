// undefined-symbols.txt: a section for each library, then a symbol a line. Words after the symbol:
//
//   x86_64, arm64   only this slice uses it
//   weak:x86_64     absent from the slice's oldest system, so its address may be null there
//   optional        whether it is used is the compiler's or the linker's affair

import { readFileSync } from 'node:fs';

const list = new URL('undefined-symbols.txt', import.meta.url);

/**
 * The symbols that a slice looks up, each as "NAME of LIBRARY" or "NAME of LIBRARY, weak": those that it
 * needs, and those that it may use besides.
 */
function readSymbolList(architecture) {
  const symbols = { needed: [], optional: [] };
  let library;
  for (const line of readFileSync(list, 'utf8').split('\n')) {
    const [name, ...words] = line.trim().split(/\s+/);
    if (name === '' || name.startsWith('#')) {
      continue;
    }
    if (name.startsWith('[')) {
      library = name.slice(1, -1);
      continue;
    }
    const slices = words.filter((word) => /^(x86_64|arm64)$/.test(word));
    if (slices.length === 0 || slices.includes(architecture)) {
      const isWeak = words.includes(`weak:${architecture}`);
      symbols[words.includes('optional') ? 'optional' : 'needed'].push(
        `${name} of ${library}${isWeak ? ', weak' : ''}`,
      );
    }
  }
  return symbols;
}

/** What a slice looks up beyond the list, and what of the list it should look up and does not. */
export function compareSymbols(architecture, undefinedSymbols) {
  const { needed, optional } = readSymbolList(architecture);
  const used = undefinedSymbols.map(
    ({ name, library, isWeak }) => `${name} of ${library}${isWeak ? ', weak' : ''}`,
  );
  return {
    unlisted: used.filter((symbol) => !needed.includes(symbol) && !optional.includes(symbol)),
    unused: needed.filter((symbol) => !used.includes(symbol)),
  };
}
