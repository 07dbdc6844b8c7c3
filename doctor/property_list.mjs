// Property lists as XML and in the binary form.

import bplist from 'bplist-parser';
import { parse } from 'plist';

/** Whether the bytes are a property list of one of the two kinds, and not an old `.strings` file. */
export function isPropertyList(bytes) {
  return /^(bplist|\s*<)/.test(bytes.toString('latin1', 0, 64));
}

/** Throws what is wrong with it. */
export function parsePropertyList(bytes) {
  return bytes.toString('latin1', 0, 6) === 'bplist' ? bplist.parseBuffer(bytes)[0] : parse(bytes.toString('utf8'));
}
