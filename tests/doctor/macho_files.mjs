// Small Mach-O files: a header, the record of a module or none, and a signature of the wanted kind.

import { createHash } from 'node:crypto';

const processors = { x86_64: [0x01000007, 3], arm64: [0x0100000c, 0] };
const pageSize = 4096;

/** A slice: `{ architecture, moduleVersion, signature }`; without a signature it has none. */
export function makeSlice({ architecture, moduleVersion, signature }) {
  const content = Buffer.alloc(0x400);
  const [type, subtype] = processors[architecture];
  const commandSize = 72 + 80 + 16;
  content.writeUInt32LE(0xfeedfacf, 0);
  content.writeUInt32LE(type, 4);
  content.writeUInt32LE(subtype, 8);
  content.writeUInt32LE(8, 12); // MH_BUNDLE
  content.writeUInt32LE(signature ? 2 : 1, 16);
  content.writeUInt32LE(commandSize, 20);
  const segment = 32;
  content.writeUInt32LE(0x19, segment); // LC_SEGMENT_64
  content.writeUInt32LE(72 + 80, segment + 4);
  content.write('__DATA', segment + 8);
  content.writeBigUInt64LE(BigInt(content.length), segment + 32);
  content.writeBigUInt64LE(BigInt(content.length), segment + 48);
  content.writeUInt32LE(1, segment + 64);
  const section = segment + 72;
  content.write('__data', section);
  content.write('__DATA', section + 16);
  content.writeBigUInt64LE(0x200n, section + 32);
  content.writeBigUInt64LE(0x40n, section + 40);
  content.writeUInt32LE(0x200, section + 48);
  if (moduleVersion !== undefined) {
    content.writeInt32LE(moduleVersion, 0x200);
    // The bits above are those of a chained fixup, which arm64 has.
    content.writeBigUInt64LE(0x300n | (architecture === 'arm64' ? 1n << 52n : 0n), 0x200 + 40);
    content.write('pellmar\0', 0x300);
  }
  if (!signature) return content;
  content.writeUInt32LE(0x1d, section + 80); // LC_CODE_SIGNATURE
  content.writeUInt32LE(16, section + 84);
  content.writeUInt32LE(content.length, section + 88);
  return Buffer.concat([content, makeSignature(content, signature)]);
}

/** A universal file of these slices. */
export function makeUniversal(slices) {
  const parts = slices.map(makeSlice);
  const header = Buffer.alloc(0x100);
  header.writeUInt32BE(0xcafebabe, 0);
  header.writeUInt32BE(parts.length, 4);
  let offset = header.length;
  parts.forEach((part, index) => {
    const entry = 8 + index * 20;
    header.writeUInt32BE(processors[slices[index].architecture][0], entry);
    header.writeUInt32BE(offset, entry + 8);
    header.writeUInt32BE(part.length, entry + 12);
    offset += part.length;
  });
  return Buffer.concat([header, ...parts]);
}

/** `{ team, hardened, entitlements }`, the last one a property list as text. */
function makeSignature(content, { team, hardened, entitlements }) {
  const identifier = Buffer.from('com.example.editor\0');
  const teamName = Buffer.from(team ? `${team}\0` : '');
  const digest = createHash('sha256').update(content).digest();
  const directory = Buffer.alloc(52);
  directory.writeUInt32BE(0xfade0c02, 0);
  directory.writeUInt32BE(0x20200, 8);
  directory.writeUInt32BE((team ? 0 : 0x2) | (hardened ? 0x10000 : 0), 12);
  directory.writeUInt32BE(directory.length + identifier.length + teamName.length, 16);
  directory.writeUInt32BE(directory.length, 20);
  directory.writeUInt32BE(1, 28);
  directory.writeUInt32BE(content.length, 32);
  directory.writeUInt8(digest.length, 36);
  directory.writeUInt8(2, 37);
  directory.writeUInt8(Math.log2(pageSize), 39);
  if (team) directory.writeUInt32BE(directory.length + identifier.length, 48);
  const blobs = [[0, Buffer.concat([directory, identifier, teamName, digest])]];
  if (entitlements) {
    const head = Buffer.alloc(8);
    head.writeUInt32BE(0xfade7171, 0);
    blobs.push([5, Buffer.concat([head, Buffer.from(entitlements)])]);
  }
  const index = Buffer.alloc(12 + blobs.length * 8);
  index.writeUInt32BE(0xfade0cc0, 0);
  index.writeUInt32BE(blobs.length, 8);
  let offset = index.length;
  blobs.forEach(([slot, blob], number) => {
    blob.writeUInt32BE(blob.length, 4);
    index.writeUInt32BE(slot, 12 + number * 8);
    index.writeUInt32BE(offset, 16 + number * 8);
    offset += blob.length;
  });
  return Buffer.concat([index, ...blobs.map(([, blob]) => blob)]);
}
