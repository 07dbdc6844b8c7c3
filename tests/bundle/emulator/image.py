"""Reads one slice of a universal Mach-O file by way of LLVM's tools."""

import re
import shutil
import subprocess
from dataclasses import dataclass
from pathlib import Path

from failure import Failure


def find_tool(name):
    """The command of an LLVM tool: Debian's versioned name, the plain name, or the one of Xcode."""
    for command in ([f'{name}-19'], [name], ['xcrun', name]):
        if shutil.which(command[0]):
            return command
    return None


def missing_tools():
    return [name for name in ('llvm-objdump', 'llvm-lipo') if find_tool(name) is None]


def run_tool(name, *arguments):
    command = [*find_tool(name), *map(str, arguments)]
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    if result.returncode != 0:
        raise Failure(f'{name}: {result.stderr.strip()}')
    return result.stdout


@dataclass
class Segment:
    name: str
    address: int
    size: int
    protection: str
    is_read_only_after_binding: bool
    content: bytes


@dataclass
class Section:
    name: str
    address: int
    size: int


@dataclass
class Bind:
    """Where the loader writes the address of a symbol of another image."""
    address: int
    symbol: str
    is_weak: bool
    addend: int = 0


@dataclass
class Image:
    architecture: str
    segments: list
    sections: dict
    rebases: list
    binds: list
    function_starts: list


def read_image(file, architecture, folder):
    """Takes the slice for `architecture` out of `file` into `folder` and reads it."""
    thin = Path(folder) / architecture
    run_tool('llvm-lipo', '-thin', architecture, file, '-output', thin)
    return read_thin_image(thin, architecture)


def read_thin_image(file, architecture):
    content = Path(file).read_bytes()
    commands = run_tool('llvm-objdump', '--macho', '--private-headers', file)
    if re.search(r'cmd LC_DYLD_CHAINED_FIXUPS$', commands, re.MULTILINE):
        raise Failure('the pointers of the file are chained fixups, which this check cannot read: link with '
                      '-no_fixup_chains, as for the oldest systems')
    segments, sections = [], {}
    for text in re.split(r'^Load command \d+$', commands, flags=re.MULTILINE)[1:]:
        if 'cmd LC_SEGMENT_64\n' not in text:
            continue
        head, *parts = re.split(r'^Section$', text, flags=re.MULTILINE)
        segments.append(_read_segment(head, content))
        for part in parts:
            section = Section(_value(part, 'sectname'), int(_value(part, 'addr'), 16), int(_value(part, 'size'), 16))
            sections[section.name] = section

    starts = run_tool('llvm-objdump', '--macho', '--function-starts', file)
    return Image(architecture, segments, sections, _read_rebases(file), _read_binds(file),
                 [int(line, 16) for line in re.findall(r'^[0-9a-f]{16}$', starts, re.MULTILINE)])


def _read_table(file, option, row):
    """The rows of a table that llvm-objdump prints; each has to be as `row` says."""
    rows = [line for line in run_tool('llvm-objdump', '--macho', option, file).splitlines() if line.startswith('__')]
    for line in rows:
        match = re.fullmatch(row, line)
        if match is None:
            raise Failure(f'a pointer is of a kind that this check does not know: {line}')
        yield match


def _read_rebases(file):
    return [int(match[1], 16) for match in _read_table(file, '--rebase', r'__\S+ +\S+ +(0x[0-9A-F]+)  pointer')]


def _read_binds(file):
    # Lazy pointers are bound at once, as on a system that is told to.
    binds = [Bind(int(match[1], 16), match[3], match[4] is not None, int(match[2])) for match in _read_table(
        file, '--bind', r'__\S+ +\S+ +(0x[0-9A-F]+) pointer +(-?\d+) \S+ +(\S+)( \(weak_import\))?')]
    binds += [Bind(int(match[1], 16), match[2], match[3] is not None) for match in _read_table(
        file, '--lazy-bind', r'__\S+ +\S+ +(0x[0-9A-F]+) \S+ +(\S+)( \(weak_import\))?')]
    for match in _read_table(file, '--weak-bind', '.*'):
        raise Failure(f'a symbol is to be one for the whole process, which this check does not know: {match[0]}')
    return binds


def _value(text, name):
    return re.search(rf'^ *{name} (.*)$', text, re.MULTILINE)[1].strip()


def _read_segment(text, content):
    offset, length = int(_value(text, 'fileoff')), int(_value(text, 'filesize'))
    return Segment(_value(text, 'segname'), int(_value(text, 'vmaddr'), 16), int(_value(text, 'vmsize'), 16),
                   _value(text, 'initprot'), 'SG_READ_ONLY' in _value(text, 'flags'),
                   content[offset:offset + length])
