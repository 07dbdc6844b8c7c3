// How the costs grow, as bars in SVG files, by gnuplot.

import { execFile } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { promisify } from 'node:util';

const run = promisify(execFile);

const least = (values) => Math.min(...values);
const median = (values) => [...values].sort((a, b) => a - b)[values.length >> 1];

/** One picture: groups of bars for `labels`, the median of each series with its least as a mark. */
async function draw(file, { title, unit, labels, series, logarithmic = false }) {
  const rows = labels.map((label, i) =>
    [`"${label}"`, ...series.flatMap(({ values }) => [median(values[i]), least(values[i])])].join(' '));
  const bars = series.map(({ name }, k) => `$data using ${2 * k + 2}:xtic(1) title "${name}"`);
  const width = 0.8 / series.length;
  const marks = series.map((_, k) =>
    `$data using ($0 + ${(k - (series.length - 1) / 2) * width}):${2 * k + 3} with points pt 7 ps 0.6 ` +
    `lc rgb "#333333" ${k ? 'notitle' : 'title "least"'}`);
  const text = `
set terminal svg size 640,360 font "Inter,13" background rgb "#ffffff"
set output "${file}"
set title "${title}"
set ylabel "${unit}"
set yrange ${logarithmic ? '[0.1:*]\nset logscale y' : '[0:*]'}
set style data histogram
set style histogram clustered gap 1
set style fill solid 0.85 noborder
set boxwidth 0.95
set grid ytics lc rgb "#dddddd"
set border 3 lc rgb "#888888"
set tics nomirror
set key outside bottom center horizontal
set linetype 1 lc rgb "#2f6fde"
set linetype 2 lc rgb "#b9bec7"
$data << END
${rows.join('\n')}
END
plot ${[...bars, ...marks].join(', ')}
`;
  const script = `${file}.gnuplot`;
  fs.writeFileSync(script, text);
  try {
    await run('gnuplot', [script]);
  } finally {
    fs.unlinkSync(script);
  }
}

/** @param times  Lists of nanoseconds for one event or request, by the benchmark's name. */
export async function plot(folder, times) {
  fs.mkdirSync(folder, { recursive: true });
  const microseconds = (name) => times[name].map((nanoseconds) => nanoseconds / 1000);
  const sizes = { 16: '16 B', 1024: '1 KiB', 65536: '64 KiB' };
  await draw(path.join(folder, 'performance-size.svg'), {
    title: 'One usage event through to the agent, by size',
    unit: 'microseconds',
    labels: Object.values(sizes),
    logarithmic: true,
    series: [
      { name: 'client', values: Object.keys(sizes).map((size) => microseconds(`EventsOurs/${size}`)) },
      { name: 'bare socket', values: Object.keys(sizes).map((size) => microseconds(`EventsFloor/${size}`)) },
    ],
  });
  const counts = [1, 8, 64];
  await draw(path.join(folder, 'performance-outstanding.svg'), {
    title: 'One request, by how many are outstanding',
    unit: 'microseconds',
    labels: counts,
    series: [{ name: 'client', values: counts.map((count) => microseconds(`Outstanding/${count}`)) }],
  });
  const threads = [1, 2, 4, 8];
  await draw(path.join(folder, 'performance-threads.svg'), {
    title: 'One usage event to its caller, by calling threads',
    unit: 'microseconds',
    labels: threads,
    series: [{ name: 'client', values: threads.map((count) => microseconds(`EventThreads/threads:${count}`)) }],
  });
}
