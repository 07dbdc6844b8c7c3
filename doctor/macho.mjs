// Mach-O files without a Mac's tools: the slices of a file, and of each the sections, the record by
// which an add-on announces itself to Node, and the code signature. Layouts are those of Apple's
// <mach-o/fat.h> and <mach-o/loader.h>, and of node::node_module in <node.h>.

import { CodeSignature } from './code_signature.mjs';

const FAT_MAGIC = 0xcafebabe;
const FAT_MAGIC_64 = 0xcafebabf;
const MH_MAGIC_64 = 0xfeedfacf;
const LC_SEGMENT_64 = 0x19;
const LC_CODE_SIGNATURE = 0x1d;

const architectures = new Map([[0x01000007, 'x86_64'], [0x0100000c, 'arm64']]);

/** The slices of a file, in its order; none if it is no Mach-O file for 64 bits. */
export function readSlices(bytes) {
  if (bytes.length < 32) return [];
  if (bytes.readUInt32LE(0) === MH_MAGIC_64) return [new Slice(bytes)];
  const magic = bytes.readUInt32BE(0);
  if (magic !== FAT_MAGIC && magic !== FAT_MAGIC_64) return [];
  const isWide = magic === FAT_MAGIC_64;
  const field = (at) => (isWide ? Number(bytes.readBigUInt64BE(at)) : bytes.readUInt32BE(at));
  return Array.from({ length: bytes.readUInt32BE(4) }, (_, index) => {
    const entry = 8 + index * (isWide ? 32 : 20);
    const [offset, size] = isWide ? [field(entry + 8), field(entry + 16)] : [field(entry + 8), field(entry + 12)];
    return new Slice(bytes.subarray(offset, offset + size));
  }).filter((slice) => slice.bytes.readUInt32LE(0) === MH_MAGIC_64);
}

class Slice {
  #sections = [];
  #segments = [];
  #signatureOffset;

  constructor(bytes) {
    this.bytes = bytes;
    if (bytes.length < 32 || bytes.readUInt32LE(0) !== MH_MAGIC_64) return;
    const type = bytes.readUInt32LE(4);
    this.architecture = architectures.get(type) ?? `processor ${type}`;
    const commandCount = bytes.readUInt32LE(16);
    for (let index = 0, at = 32; index < commandCount; index++, at += bytes.readUInt32LE(at + 4)) {
      const command = bytes.readUInt32LE(at);
      if (command === LC_SEGMENT_64) this.#readSegment(at);
      if (command === LC_CODE_SIGNATURE) this.#signatureOffset = bytes.readUInt32LE(at + 8);
    }
  }

  #readSegment(at) {
    const number = (from) => Number(this.bytes.readBigUInt64LE(from));
    const name = (from) => this.bytes.toString('latin1', from, from + 16).replace(/\0.*/s, '');
    this.#segments.push({ address: number(at + 24), offset: number(at + 40), size: number(at + 48) });
    const sectionCount = this.bytes.readUInt32LE(at + 64);
    for (let index = 0; index < sectionCount; index++) {
      const section = at + 72 + index * 80;
      this.#sections.push({
        name: name(section), size: number(section + 40), offset: this.bytes.readUInt32LE(section + 48),
      });
    }
  }

  /** The slice's code signature, or undefined. */
  get signature() {
    return this.#signatureOffset === undefined
      ? undefined : new CodeSignature(this.bytes, this.#signatureOffset);
  }

  /** The module versions that add-ons of that name in the slice are recorded as. */
  moduleVersions(name) {
    const versions = [];
    for (const { offset, size } of this.#sections.filter((section) => section.name === '__data')) {
      for (let at = offset; at + 64 <= offset + size; at += 8) {
        if (this.#textAt(at + 40) === name) versions.push(this.bytes.readInt32LE(at));
      }
    }
    return versions;
  }

  /** The text that the pointer at that offset leads to. */
  #textAt(at) {
    // A plain address, or one of the chained fixups, which have flags in the bits above.
    const address = Number(this.bytes.readBigUInt64LE(at) & 0xfffffffffn);
    const segment = this.#segments.find((one) =>
      address >= one.address && address < one.address + one.size);
    if (!segment) return undefined;
    const start = address - segment.address + segment.offset;
    return this.bytes.toString('latin1', start, Math.min(this.bytes.indexOf(0, start), start + 64));
  }
}
