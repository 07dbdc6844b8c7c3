// The benchmark's rows: what they are held against, and how they are shown.

const sorted = (values) => [...values].sort((a, b) => a - b);
export const median = (values) => sorted(values)[values.length >> 1];
/** How far a counted figure may be above the recorded one. */
const tolerance = 1.02;

export class Table {
  #groups = [];
  #counted = new Map();

  constructor(recorded) {
    this.recorded = recorded;
  }

  get rows() {
    return this.#groups.flatMap(({ rows }) => rows);
  }

  group(title) {
    this.#groups.push({ title, rows: [] });
  }

  #add(name, ours, floor, ratio, goal, held) {
    this.#groups.at(-1).rows.push({ name, ours, floor, ratio, goal, ...(goal && { held }) });
  }

  /** A figure that is the same on each machine: held while it is not above the recorded one, and within `most`. */
  counted(name, ours, { most = Infinity, floor = null } = {}) {
    this.#counted.set(name, ours);
    const limit = Math.min((this.recorded[name] ?? Infinity) * tolerance, most);
    const goal = limit === Infinity ? null : `≤ ${+limit.toPrecision(6)}`;
    this.#add(name, ours, floor, null, goal, ours <= limit + 1e-9);
  }

  /**
   * Times of ours and of a floor, measured round by round. The ratio is the median of the rounds': a machine has
   * times at which everything is slow, and the medians of ours and of the floor may come from different ones.
   */
  ratio(name, ours, floor, most) {
    const ratio = median(ours.map((value, round) => value / floor[round]));
    this.#add(name, median(ours), median(floor), ratio, most ? `≤ ${most} ×` : null, ratio <= most);
  }

  /** A figure with a limit of its own. */
  limit(name, ours, most, floor = null) {
    const goal = `≤ ${most}${floor === null ? '' : ' more'}`;
    this.#add(name, ours, floor, null, goal, ours - (floor ?? 0) <= most);
  }

  /** A figure without a goal. */
  told(name, ours, floor = null) {
    this.#add(name, ours, floor, null, null);
  }

  /** The recorded figures, where this run is not above them those of this run. */
  lowered() {
    const lower = ([name, ours]) => [name, Math.min(ours, this.recorded[name] ?? Infinity)];
    return { ...this.recorded, ...Object.fromEntries([...this.#counted].map(lower)) };
  }

  /** As text with aligned columns. */
  toString() {
    const number = (value) => value === null ? '–' : Number.isInteger(value) || value >= 1000
      ? value.toFixed(0) : value.toPrecision(3);
    const cells = this.#groups.map(({ title, rows }) => [[title, 'ours', 'floor', 'ratio', 'goal', ''], ...rows.map(
      ({ name, ours, floor, ratio, goal, held }) => [`  ${name}`, number(ours), number(floor), number(ratio),
        goal ?? '–', held === undefined ? '' : held ? 'held' : 'MISSED'])]);
    const widths = cells.flat()[0].map((_, column) => Math.max(...cells.flat().map((line) => line[column].length)));
    const text = (line) => line.map((cell, column) => cell.padEnd(widths[column])).join('  ').trimEnd();
    return cells.map((group) => group.map(text).join('\n')).join('\n\n');
  }
}
