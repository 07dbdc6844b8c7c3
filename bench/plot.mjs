// How costs grow, as lines in SVG files, by gnuplot.

import { execFile } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { promisify } from 'node:util';

const run = promisify(execFile);
const colors = ['#2f6fde', '#d9822b', '#8a94a3'];

/**
 * One picture.
 *
 * @param labels  What stands below the points, from left to right.
 * @param series  Lines: their name, a value for each label, and whether they are of the right axis.
 */
export async function draw(file, { title, across, unit, rightUnit, labels, series, logarithmic = false }) {
  const data = series.map(({ values }) => `${values.map((value, i) => `${i} ${value}`).join('\n')}\nend`);
  const lines = series.map(({ name, isRight }, k) => `"-" using 1:2 with linespoints pt 7 ps 0.7 lw 2 ` +
    `lc rgb "${colors[k]}" axes x1y${isRight ? 2 : 1} title "${name}"`);
  const script = `${file}.gnuplot`;
  fs.mkdirSync(path.dirname(file), { recursive: true });
  fs.writeFileSync(script, `
set terminal svg size 640,380 font "Inter,13" background rgb "#ffffff"
set output "${file}"
set title "${title}"
set xlabel "${across}"
set ylabel "${unit}"
${logarithmic ? 'set logscale y\nset format y "%g"' : 'set yrange [0:*]'}
${rightUnit ? `set y2label "${rightUnit}"\nset y2tics\nset y2range [0:*]` : ''}
set xrange [-0.2:${labels.length - 0.8}]
set xtics (${labels.map((label, i) => `"${label.toLocaleString('en')}" ${i}`).join(', ')})
set grid ytics lc rgb "#dddddd"
set border ${rightUnit ? 11 : 3} lc rgb "#888888"
set tics nomirror
set key ${series.length > 1 ? 'bottom right Right' : 'off'}
plot ${lines.join(', ')}
${data.join('\n')}
`);
  try {
    await run('gnuplot', [script]);
  } finally {
    fs.unlinkSync(script);
  }
}
