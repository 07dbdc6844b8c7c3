// Makes a failing list shorter.

/**
 * Takes away parts of `list`, halves first and single elements at last, as long as what is left still fails; returns
 * the shortest list found. `fails(candidate)` may be asynchronous; `isOver()` ends the search early.
 */
export async function shorten(list, fails, isOver = () => false) {
  let best = list;
  for (let size = Math.ceil(best.length / 2); size >= 1; ) {
    let isShorter = false;
    for (let at = 0; at < best.length && !isOver(); ) {
      const candidate = [...best.slice(0, at), ...best.slice(at + size)];
      if (candidate.length < best.length && (await fails(candidate))) {
        best = candidate;
        isShorter = true;
      } else {
        at += size;
      }
    }
    if (isOver()) break;
    // Single elements may go once another is gone.
    if (size === 1 && !isShorter) break;
    size = size === 1 ? 1 : Math.ceil(size / 2);
  }
  return best;
}
