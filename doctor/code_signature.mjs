// The signature in a slice of a Mach-O file, as Apple's <kern/cs_blobs.h> lays it out. Everything in
// it is big-endian.

import { createHash } from 'node:crypto';

const CSMAGIC_CODEDIRECTORY = 0xfade0c02;
const CSMAGIC_EMBEDDED_ENTITLEMENTS = 0xfade7171;
const CS_ADHOC = 0x2;
const CS_RUNTIME = 0x10000;
const CS_HASHTYPE_SHA256 = 2;
/** Of a code directory, from which it names the team. */
const CS_SUPPORTSTEAMID = 0x20200;

export class CodeSignature {
  #bytes;
  #directory;
  #entitlements;

  /** @param offset where in the slice's `bytes` the signature begins */
  constructor(bytes, offset) {
    this.#bytes = bytes;
    const blobs = bytes.subarray(offset);
    for (let index = 0; index < blobs.readUInt32BE(8); index++) {
      const blob = blobs.subarray(blobs.readUInt32BE(12 + index * 8 + 4));
      const magic = blob.readUInt32BE(0);
      // Older systems get a second directory, with digests of SHA-1.
      if (magic === CSMAGIC_CODEDIRECTORY &&
          (!this.#directory || blob.readUInt8(37) === CS_HASHTYPE_SHA256)) {
        this.#directory = blob;
      }
      if (magic === CSMAGIC_EMBEDDED_ENTITLEMENTS) {
        this.#entitlements = blob.subarray(8, blob.readUInt32BE(4));
      }
    }
  }

  get isAdHoc() {
    return this.#hasFlag(CS_ADHOC);
  }

  get hasHardenedRuntime() {
    return this.#hasFlag(CS_RUNTIME);
  }

  #hasFlag(flag) {
    return this.#directory !== undefined && (this.#directory.readUInt32BE(12) & flag) !== 0;
  }

  /** The identifier of the team that signed, or undefined. */
  get team() {
    const directory = this.#directory;
    if (!directory || directory.readUInt32BE(8) < CS_SUPPORTSTEAMID) return undefined;
    const offset = directory.readUInt32BE(48);
    return offset === 0 ? undefined : directory.toString('latin1', offset, directory.indexOf(0, offset));
  }

  /** The property list of the entitlements as it was signed, or undefined. */
  get entitlements() {
    return this.#entitlements;
  }

  /** What is wrong: nothing when every page has the digest that was signed. */
  faults() {
    const directory = this.#directory;
    if (!directory) return ['no code directory'];
    if (directory.readUInt8(37) !== CS_HASHTYPE_SHA256) return ['digests are not SHA-256'];
    const digests = directory.readUInt32BE(16);
    const pageCount = directory.readUInt32BE(28);
    const signedLength = directory.readUInt32BE(32);
    const digestSize = directory.readUInt8(36);
    const pageSize = 2 ** directory.readUInt8(39);
    const faults = [];
    for (let page = 0; page < pageCount; page++) {
      const end = Math.min((page + 1) * pageSize, signedLength);
      const digest = createHash('sha256').update(this.#bytes.subarray(page * pageSize, end)).digest();
      const signed = directory.subarray(digests + page * digestSize, digests + (page + 1) * digestSize);
      if (!digest.equals(signed)) faults.push(`page ${page} differs from what was signed`);
    }
    return faults;
  }
}
