// What an asar archive lists. @electron/asar could do it, but it wants a newer Node than many who
// build for Electron 11 have, and brings a dozen packages for one header.

import fs from 'node:fs';

/** The files of an archive: `{ path, isUnpacked }`, paths with slashes. */
export function listArchive(file) {
  const descriptor = fs.openSync(file, 'r');
  try {
    // Two pickles of Chromium's: the size of the second, and in it the length of the text.
    const sizes = Buffer.alloc(16);
    fs.readSync(descriptor, sizes, 0, 16, 0);
    const text = Buffer.alloc(sizes.readUInt32LE(12));
    fs.readSync(descriptor, text, 0, text.length, 16);
    return [...filesOf(JSON.parse(text.toString('utf8')), '')];
  } finally {
    fs.closeSync(descriptor);
  }
}

function* filesOf(folder, prefix) {
  for (const [name, entry] of Object.entries(folder.files)) {
    const path = prefix + name;
    if (entry.files) yield* filesOf(entry, `${path}/`);
    else yield { path, isUnpacked: entry.unpacked === true };
  }
}
