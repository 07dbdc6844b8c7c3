// undefined-symbols.txt: a section for each library, then a symbol a line. Words after the symbol:
//
//   x86_64, arm64   only this slice uses it
//   weak:x86_64     absent from the slice's oldest system, so its address may be null there

import { readFileSync } from 'node:fs';

const list = new URL('undefined-symbols.txt', import.meta.url);

/** The symbols that a slice looks up, each as "NAME of LIBRARY" or "NAME of LIBRARY, weak". */
export function readSymbolList(architecture) {
  const symbols = [];
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
    const slices = words.filter((word) => !word.startsWith('weak:'));
    if (slices.length === 0 || slices.includes(architecture)) {
      const isWeak = words.includes(`weak:${architecture}`);
      symbols.push(`${name} of ${library}${isWeak ? ', weak' : ''}`);
    }
  }
  return symbols;
}
