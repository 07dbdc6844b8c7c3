// Reads a universal Mach-O file by way of LLVM's tools: each slice's load commands, symbols, pointers and
// machine code. What the tools do not print (the content of Objective-C protocols, of records and
// constants) is read from the slice's bytes at the places they name.

import { execFileSync, spawnSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { join } from 'node:path';

import { CodeSignature } from '../../doctor/code_signature.mjs';

/** The command of an LLVM tool: Debian's versioned name, the plain name, or the one of Xcode. */
function findTool(name) {
  for (const command of [[`${name}-19`], [name], ['xcrun', name]]) {
    if (spawnSync(command[0], [...command.slice(1), '--version']).status === 0) {
      return command;
    }
  }
  return undefined;
}

const toolNames = ['llvm-objdump', 'llvm-nm', 'llvm-lipo'];
const tools = new Map(toolNames.map((name) => [name, findTool(name)]));

/** Names of the tools that are not installed. */
export function missingTools() {
  return toolNames.filter((name) => tools.get(name) === undefined);
}

function run(tool, ...args) {
  const [command, ...first] = tools.get(tool);
  return execFileSync(command, [...first, ...args], { encoding: 'utf8', maxBuffer: 1 << 28 });
}

/** The architectures that a file holds. */
export function architectures(file) {
  return run('llvm-lipo', '-archs', file).trim().split(/\s+/);
}

/** Takes one slice of `file` out into `folder` and reads it. */
export function readSlice(file, architecture, folder) {
  const thin = join(folder, architecture);
  run('llvm-lipo', '-thin', architecture, file, '-output', thin);
  return new Slice(thin, architecture);
}

/** Makes one universal file of a file for each slice. */
export function joinSlices(parts, file) {
  run('llvm-lipo', '-create', ...parts, '-output', file);
}

/** One line's value of a load command as llvm-objdump prints it. */
function field(text, name) {
  return text.match(new RegExp(`^ *${name} (.*)$`, 'm'))?.[1].trim();
}

export class Slice {
  constructor(path, architecture) {
    this.path = path;
    this.architecture = architecture;
    this.bytes = readFileSync(path);
    this.#readCommands();
    this.#readSymbols();
    this.#readPointers();
  }

  #readCommands() {
    const [header, ...commands] = this.objdump('--private-headers').split(/^Load command \d+$/m);
    this.fileType = header.match(/\s(BUNDLE|DYLIB|EXECUTE|OBJECT)\s/)?.[1];
    this.commands = commands.map((text) => ({ name: field(text, 'cmd'), text }));
    this.segments = [];
    this.sections = [];
    for (const { text } of this.commands.filter(({ name }) => name === 'LC_SEGMENT_64')) {
      const [head, ...sections] = text.split(/^Section$/m);
      this.segments.push({
        name: field(head, 'segname'),
        address: Number(field(head, 'vmaddr')),
        offset: Number(field(head, 'fileoff')),
        size: Number(field(head, 'filesize')),
        memory: Number(field(head, 'vmsize')),
        maximumProtection: field(head, 'maxprot'),
        protection: field(head, 'initprot'),
        flags: field(head, 'flags'),
      });
      for (const section of sections) {
        this.sections.push({
          name: field(section, 'sectname'),
          segment: field(section, 'segname'),
          address: Number(field(section, 'addr')),
          size: Number(field(section, 'size')),
          offset: Number(field(section, 'offset')),
          type: field(section, 'type'),
        });
      }
    }
  }

  #readSymbols() {
    this.exported = [];
    this.local = [];
    this.undefined = [];
    this.addresses = new Map();
    // With -a those of debugging, too.
    for (const line of run('llvm-nm', '-a', '-m', this.path).split('\n')) {
      const defined = line.match(/^([0-9a-f]+) \((.*?)\) (.*?)external (\S+)$/);
      if (defined && !/private|non-/.test(defined[3])) {
        this.exported.push(defined[4]);
        this.addresses.set(defined[4], Number(`0x${defined[1]}`));
      } else if (/^[0-9a-f]/.test(line)) {
        this.local.push(line);
      }
      const missing = line.match(/^ +\(undefined\) (weak )?external (\S+) \((.*)\)$/);
      if (missing) {
        this.undefined.push({
          name: missing[2],
          isWeak: missing[1] !== undefined,
          library: missing[3] === 'dynamically looked up' ? 'host' : missing[3].replace(/^from /, ''),
        });
      }
    }
  }

  // Where the loader writes pointers: at each address the symbol that it looks up, or the address in
  // this image if the file's own bytes do not give it plainly.
  #readPointers() {
    this.bound = new Map();
    this.rebased = new Map();
    if (this.commands.some(({ name }) => name === 'LC_DYLD_CHAINED_FIXUPS')) {
      for (const line of this.objdump('--dyld-info').split('\n')) {
        const bind = line.match(/ (0x[0-9A-F]+) +0x[0-9A-F]+ +bind .* (\S+)$/);
        const rebase = line.match(/ (0x[0-9A-F]+) +0x[0-9A-F]+ +rebase +(0x[0-9A-F]+)$/);
        if (bind) {
          this.bound.set(Number(bind[1]), bind[2]);
        } else if (rebase) {
          this.rebased.set(Number(rebase[1]), Number(rebase[2]));
        }
      }
      return;
    }
    for (const line of this.objdump('--bind').split('\n')) {
      const bind = line.match(/ (0x[0-9A-F]+) +pointer +\S+ \S+ +(\S+)( \(weak_import\))?$/);
      if (bind) {
        this.bound.set(Number(bind[1]), bind[2]);
      }
    }
  }

  /** Names in the table by which the loader finds exported symbols. */
  exportedToLoader() {
    return this.objdump('--exports-trie')
      .split('\n')
      .map((line) => line.match(/^0x[0-9A-F]+ +(\S+)/)?.[1])
      .filter((name) => name !== undefined);
  }

  objdump(...args) {
    return run('llvm-objdump', '--macho', ...args, this.path);
  }

  /** The values of a field of every load command of the given names. */
  commandFields(names, fieldName) {
    return this.commands
      .filter(({ name }) => names.includes(name))
      .map(({ text }) => field(text, fieldName));
  }

  /** Section by name, in whichever segment the linker put it. */
  section(name) {
    return this.sections.find((section) => section.name === name);
  }

  sectionAt(address) {
    return this.sections.find(
      (section) => address >= section.address && address < section.address + section.size,
    );
  }

  segmentAt(address) {
    return this.segments.find(
      (segment) => address >= segment.address && address < segment.address + segment.size,
    );
  }

  offset(address) {
    const segment = this.segmentAt(address);
    if (segment === undefined) {
      throw new RangeError(`${this.architecture}: no bytes at 0x${address.toString(16)}`);
    }
    return address - segment.address + segment.offset;
  }

  /** The pointer stored at `address`: an address in this image, 0 for null or a symbol of another. */
  pointer(address) {
    if (this.bound.has(address)) {
      return 0;
    }
    return this.rebased.get(address) ?? Number(this.bytes.readBigUInt64LE(this.offset(address)));
  }

  uint32(address) {
    return this.bytes.readUInt32LE(this.offset(address));
  }

  int32(address) {
    return this.bytes.readInt32LE(this.offset(address));
  }

  uint64(address) {
    return this.bytes.readBigUInt64LE(this.offset(address));
  }

  string(address) {
    const start = this.offset(address);
    return this.bytes.toString('utf8', start, this.bytes.indexOf(0, start));
  }

  /** Addresses held by a section that is a list of pointers. */
  pointerList(sectionName) {
    const section = this.section(sectionName);
    const addresses = [];
    for (let at = 0; section && at < section.size; at += 8) {
      addresses.push(this.pointer(section.address + at));
    }
    return addresses;
  }

  /** The text of the constant NSString object at `address`. */
  constantString(address) {
    if (this.bound.get(address) !== '___CFConstantStringClassReference') {
      throw new TypeError(`${this.architecture}: no constant string at 0x${address.toString(16)}`);
    }
    return this.string(this.pointer(address + 16));
  }

  /** Addresses of the functions that the loader runs when it maps the file. */
  initializers() {
    const offsets = this.section('__init_offsets');
    const functions = this.pointerList('__mod_init_func');
    for (let at = 0; offsets && at < offsets.size; at += 4) {
      functions.push(this.segments[0].address + this.uint32(offsets.address + at));
    }
    return functions;
  }

  /** Names of the functions outside the image that the function at `address` calls. */
  outsideCalls(address) {
    const starts = this.objdump('--function-starts')
      .split('\n')
      .filter((line) => /^[0-9a-f]{16}$/.test(line))
      .map((line) => Number(`0x${line}`));
    const end = starts.find((start) => start > address) ?? Infinity;
    const calls = [];
    for (const line of this.objdump('--disassemble', '--no-show-raw-insn').split('\n')) {
      const call = line.match(/^ *([0-9a-f]+):.*symbol stub for: (\S+)$/);
      if (call && Number(`0x${call[1]}`) >= address && Number(`0x${call[1]}`) < end) {
        calls.push(call[2]);
      }
    }
    return calls;
  }

  /** Faults of the slice's signature: none when every page has the digest that was signed. */
  signatureFaults() {
    const [offset] = this.commandFields(['LC_CODE_SIGNATURE'], 'dataoff').map(Number);
    return offset === undefined ? ['no signature'] : new CodeSignature(this.bytes, offset).faults();
  }
}
