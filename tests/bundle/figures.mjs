// What a finished bundle costs an application: figures of each slice.

import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';

import { architectures, readSlice } from './macho.mjs';

const pageSizes = { x86_64: 4096, arm64: 16384 };
const pictures = fs.readdirSync(new URL('../../resources/', import.meta.url)).filter((name) => name.endsWith('.tiff'))
  .map((name) => fs.statSync(new URL(`../../resources/${name}`, import.meta.url)).size);

/** The figures of a bundle's slices by name, such as "arm64: binds". */
export function figuresOf(bundle) {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'pellmar-figures-'));
  try {
    return Object.assign({}, ...architectures(bundle).map((architecture) => {
      const slice = readSlice(bundle, architecture, folder);
      const lines = (...args) => slice.objdump(...args).split('\n').filter((line) => /^__DATA/.test(line)).length;
      const isWritable = ({ protection }) => protection.includes('w');
      const figures = {
        'bytes without pictures': slice.bytes.length - pictures.reduce((sum, size) => sum + size, 0),
        binds: lines('--bind') + lines('--lazy-bind'),
        rebases: lines('--rebase'),
        selectors: slice.section('__objc_selrefs').size / 8,
        initializers: slice.initializers().length,
        'writable pages': slice.segments.filter(isWritable).reduce((sum, { memory }) =>
          sum + Math.ceil(memory / pageSizes[architecture]), 0),
      };
      return Object.fromEntries(Object.entries(figures).map(([name, value]) => [`${architecture}: ${name}`, value]));
    }));
  } finally {
    fs.rmSync(folder, { recursive: true });
  }
}
