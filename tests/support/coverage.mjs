// Prints what `llvm-cov export -summary-only` says on standard input, by part of the tree. Ends with 1 if the product
// is below its limits, unless an argument says that only some tests have run.

import { text } from 'node:stream/consumers';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const root = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../..');
const limits = { lines: 99, branches: 95 };
const parts = {
  product: /^(binding|client|ui)\//,
  'development agent': /^agent\//,
  'library for Linux': /^linux\/cocoa\/(foundation|appkit)\//,
  'desktop host': /^linux\/host\/[^/]+$/,
};

const [{ files }] = JSON.parse(await text(process.stdin)).data;
const percent = (part, kind) => {
  const summaries = files.filter(({ filename }) => part.test(path.relative(root, filename)))
    .map(({ summary }) => summary[kind]);
  const sum = (key) => summaries.reduce((total, summary) => total + summary[key], 0);
  return 100 * sum('covered') / sum('count');
};
for (const [name, part] of Object.entries(parts)) {
  const [lines, branches] = ['lines', 'branches'].map((kind) => percent(part, kind));
  console.log(`${name}: ${lines.toFixed(1)} % of lines, ${branches.toFixed(1)} % of branches`);
}
const isHeld = Object.entries(limits).every(([kind, least]) => percent(parts.product, kind) >= least);
if (!isHeld && !process.argv[2]) {
  console.log(`The product is below ${limits.lines} % of lines or ${limits.branches} % of branches.`);
  process.exitCode = 1;
}
