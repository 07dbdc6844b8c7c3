#!/usr/bin/python3
"""Changes one thing at a time in a copy of the sources, builds both slices of it, and has run.py find it.

    faults.py BUILD    the folder in which scripts/macos-cross built the bundle, with its sysroot

A compiler run for each change and slice: minutes. Prints in the form of the Test Anything Protocol.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

from failure import Failure
from image import run_tool

FOLDER = Path(__file__).resolve().parent
ROOT = FOLDER.parents[2]
ARCHITECTURES = ('x86_64', 'arm64')

BINDING = 'binding/pellmar-lib-mapping.mm'
SETTINGS = 'binding/CMakeLists.txt'
ACCESSOR = 'client/AFXServiceAccessor.mm'
REPORTER = 'client/AFXUsageReporter.mm'

# What a build of the same sources takes from the one that there is.
TAKEN_OVER = ('CMAKE_BUILD_TYPE', 'CMAKE_OSX_ARCHITECTURES', 'CMAKE_OSX_DEPLOYMENT_TARGET', 'PELLMAR_MACOS_SYSROOT',
              'PELLMAR_LIBCXX_HEADERS', 'PELLMAR_NODE_HEADERS', 'PELLMAR_MODULE_VERSION')

COMMAND = 'the binding is compiled with the settings of the engine'
TYPES, ARGUMENTS, RECEIVER = 'probe: the types of arguments', 'probe: which argument is which', 'probe: the receiver'
SMALL, LARGE = 'probe: small integers', 'probe: an integer of more than 31 bits'

ALL_SETTINGS = 'V8_COMPRESS_POINTERS V8_31BIT_SMIS_ON_64BIT_ARCH V8_REVERSE_JSARGS'
WITHOUT_SETTINGS = [
    (SETTINGS, f'    target_compile_definitions(${{name}} PRIVATE\n      {ALL_SETTINGS})\n', ''),
    # The source itself refuses to be compiled without the first of them.
    (BINDING, 'static_assert(v8::internal::kApiTaggedSize ==', 'static_assert(true || v8::internal::kApiTaggedSize =='),
]
WITHOUT_REVERSED = [(SETTINGS, ' V8_REVERSE_JSARGS)', ')')]
WITHOUT_SMALL = [(SETTINGS, ' V8_31BIT_SMIS_ON_64BIT_ARCH', '')]

# Code in the bundle that depends on the settings, and does right with them.
INLINE = [(BINDING, 'info.GetReturnValue().Set(PLCanShowReleaseNotesWindow() != NO);',
           'info.GetReturnValue().Set(PLCanShowReleaseNotesWindow() != NO &&\n'
           '                             (info.Length() < 2 || info[1]->IsString()));')]
CAN_SHOW = 'PLCanShowReleaseNotesWindow: always'

ASKING = [f'PLAskUserToShareEmail: {case}' for case in (
    'no question', 'a callback, and no agent', 'a callback that throws, and no question',
    'a callback, and the address is allowed', 'a callback, and the address is not allowed',
    'a callback, and the answer is postponed', 'the dark look, and back to no address',
    'two callbacks, and one window')]
ON_THE_MAIN_QUEUE = [f'PLAskUserToShareEmail: {case}' for case in (
    'a callback, and the address is allowed', 'a callback, and the address is not allowed',
    'a callback, and the answer is postponed', 'an object, and a question', 'two callbacks, and one window',
    'the dark look, and back to no address')]
MORE_ARGUMENTS = 'PLReportUsageEvent: no argument, and more than one'
HANGING = [f'PLGetLastUserEmailSharingResponse: an agent that hangs {case}' for case in (
    'from the first, and replies after all', 'later, and replies after all', 'for eight seconds, and serves then')]
HANGING_NOTES = 'PLShowReleaseNotesWindow: an agent that hangs for two seconds'
OLDEST = 'PLAskUserToShareEmail: the oldest system'

# (what is changed, (file, text, replacement)…, the checks that fail, those of x86_64 alone)
FAULTS = [
    ('a copy without a change', [], [], []),
    ("none of the engine's settings", WITHOUT_SETTINGS, [COMMAND, TYPES, ARGUMENTS, RECEIVER, SMALL, LARGE], []),
    ('no V8_REVERSE_JSARGS', WITHOUT_REVERSED, [COMMAND, TYPES, ARGUMENTS, RECEIVER], []),
    ('no V8_31BIT_SMIS_ON_64BIT_ARCH', WITHOUT_SMALL, [COMMAND], []),
    ('an inline function of the engine in a handler', INLINE, [], []),
    ("the same, and none of the engine's settings", INLINE + WITHOUT_SETTINGS,
     [CAN_SHOW, COMMAND, TYPES, ARGUMENTS, RECEIVER, SMALL, LARGE], []),
    ('the same, and no V8_REVERSE_JSARGS', INLINE + WITHOUT_REVERSED,
     [CAN_SHOW, COMMAND, TYPES, ARGUMENTS, RECEIVER], []),
    ('another message', [(BINDING, 'supportted rignt now', 'supported right now')], [MORE_ARGUMENTS], []),
    ('another order of exports', [(BINDING, '    {"PLShowReleaseNotesWindow", _PLShowReleaseNotesWindow},\n', ''),
                                  (BINDING, '_PLEnableDebugLogging},\n};',
                                   '_PLEnableDebugLogging},\n'
                                   '    {"PLShowReleaseNotesWindow", _PLShowReleaseNotesWindow},\n};')],
     ['module: requiring'], []),
    ('an event that is not reported after the exception',
     [(BINDING, '    // The event is reported all the same.\n', '    return;\n')], [MORE_ARGUMENTS], []),
    ('a callback with another receiver', [(BINDING, 'callback->Call(context->Global(), 1',
                                           'callback->Call(function.As<Object>(), 1')], ASKING, [OLDEST]),
    ('a callback in another async resource', [(BINDING, '"nan:Callback:Call"', '"pellmar"')], ASKING, [OLDEST]),
    ('an answer without a handle scope', [(BINDING, '  HandleScope scope(isolate);\n', '')],
     ON_THE_MAIN_QUEUE, [OLDEST]),
    ('a holder that is not freed', [(BINDING, '  delete callback;\n', '')],
     [*ASKING, 'PLAskUserToShareEmail: an object, and a question'], [OLDEST]),
    ('a wait for an agent that is known to hang',
     [(ACCESSOR, '  _isHung |= _checkDeadline && dispatch_time(DISPATCH_TIME_NOW, 0) >= _checkDeadline;\n', '')],
     [*HANGING[:2], HANGING_NOTES], []),
    ('an agent that is not there again after it hung', [(ACCESSOR, '  _isHung = NO;\n', '')],
     [*HANGING, HANGING_NOTES], []),
    ('an event too many on its way', [(REPORTER, '_sent - _taken < s', '_sent - _taken <= s')],
     ['PLReportUsageEvent: checks with every 256 events, and no more than 4,096 that are not taken'], []),
    ('a retry delay that does not become longer', [(REPORTER, 'MAX(2 * _retryDelay', 'MAX(_retryDelay')],
     ['PLReportUsageEvent: no agent'], []),
]


class Tree:
    """A copy of the tree in which both slices can be built."""

    def __init__(self, folder, build):
        self._folder = Path(folder)
        self._build = build
        listed = subprocess.run(['git', 'ls-files', '-z', '-co', '--exclude-standard'], cwd=ROOT,
                                capture_output=True, text=True, check=True).stdout
        for name in filter(None, listed.split('\0')):
            if (ROOT / name).is_file():
                (self._folder / name).parent.mkdir(parents=True, exist_ok=True)
                shutil.copy2(ROOT / name, self._folder / name)
        (self._folder / 'node_modules').symlink_to(ROOT / 'node_modules')

    def change(self, edits):
        """Leaves the sources as they are in the tree but for the edits."""
        for name in (BINDING, SETTINGS, ACCESSOR, REPORTER):
            text = (ROOT / name).read_text()
            for _, old, new in (edit for edit in edits if edit[0] == name):
                if text.count(old) != 1:
                    raise Failure(f'{name} does not have this text once: {old}')
                text = text.replace(old, new)
            if (self._folder / name).read_text() != text:
                (self._folder / name).write_text(text)

    def build(self):
        """Builds both slices and joins them; returns the folder."""
        output = self._folder / 'build/macos'
        slices = []
        for architecture in ARCHITECTURES:
            cache = (self._build / architecture / 'CMakeCache.txt').read_text()
            values = dict(re.findall(r'^(\w+):\w+=(.*)$', cache, re.MULTILINE))
            folder = output / architecture
            run(['cmake', '-S', self._folder, '-B', folder, '-G', 'Ninja', '--log-level=WARNING', '-D',
                 f'CMAKE_TOOLCHAIN_FILE={self._folder}/cmake/macos-cross.cmake', '-D', 'PELLMAR_TESTS=OFF',
                 *(argument for name in TAKEN_OVER for argument in ('-D', f'{name}={values.get(name, "")}'))])
            run(['cmake', '--build', folder, '--target', 'pellmar'])
            slices.append(folder / 'pellmar.node')
        run_tool('llvm-lipo', '-create', *slices, '-output', output / 'pellmar.node')
        return output


def run(command):
    # What these add to every command is meant for the machine it runs on.
    environment = {name: value for name, value in os.environ.items()
                   if not re.fullmatch(r'(C|CXX|OBJC|OBJCXX|LD)FLAGS|.*_INCLUDE_PATH|CPATH|LIBRARY_PATH|SDKROOT', name)}
    result = subprocess.run(list(map(str, command)), capture_output=True, text=True, check=False, env=environment)
    if result.returncode != 0:
        raise Failure(f'{command[0]}: {result.stdout}{result.stderr}')


def failing_checks(bundle, headers):
    """The names of the checks of run.py that fail for a bundle, and all of its output."""
    result = subprocess.run([sys.executable, FOLDER / 'run.py', '--headers', headers, bundle],
                            capture_output=True, text=True, check=False)
    failed = re.findall(r'^not ok \d+ - (.*)$', result.stdout, re.MULTILINE)
    if result.returncode != (1 if failed else 0):
        raise Failure(f'run.py ended with {result.returncode}: {result.stdout}{result.stderr}')
    return failed, result.stdout


def expect(expected, failed, output):
    if sorted(failed) != sorted(expected):
        raise Failure(f'failed but should not: {sorted(set(failed) - set(expected))}\n'
                      f'should fail but did not: {sorted(set(expected) - set(failed))}\n{output}')


def check_fault(tree, headers, edits, both, x86_64_alone):
    tree.change(edits)
    bundle = tree.build() / 'pellmar.node'
    expected = [f'{architecture}: {name}' for architecture in ARCHITECTURES for name in both]
    expected += [f'x86_64: {name}' for name in x86_64_alone]
    expect(expected, *failing_checks(bundle, headers))


def check_renamed_import(build, headers, folder):
    """An import under a name of which the model has nothing fails with that name."""
    content = (build / 'pellmar.node').read_bytes()
    bundle = Path(folder) / 'renamed.node'
    bundle.write_bytes(content.replace(b'_getpid\0', b'_getuid\0'))
    failed, output = failing_checks(bundle, headers)
    expect([f'{architecture}: PLEnableDebugLogging: on, off and on' for architecture in ARCHITECTURES], failed, output)
    if output.count('FAULT: _getuid is called, of which the model has nothing') != len(failed):
        raise Failure(f'the name of the import is not told: {output}')


def main(arguments):
    if len(arguments) != 1 or not (Path(arguments[0]) / 'x86_64/CMakeCache.txt').is_file():
        print(__doc__, file=sys.stderr)
        return 2
    build = Path(arguments[0]).resolve()
    headers = re.search(r'^PELLMAR_NODE_HEADERS:\w+=(.*)$', (build / 'x86_64/CMakeCache.txt').read_text(),
                        re.MULTILINE)[1]
    failures = 0
    with tempfile.TemporaryDirectory(prefix='pellmar-emulator-faults-') as folder:
        tree = Tree(folder, build)
        checks = [('finds an import with another name', lambda: check_renamed_import(build, headers, folder))]
        for change, *fault in FAULTS:
            verb = 'finds' if any(fault[1:]) else 'accepts'
            checks.append((f'{verb} {change}', lambda fault=fault: check_fault(tree, headers, *fault)))
        for number, (name, check) in enumerate(checks, start=1):
            try:
                check()
                print(f'ok {number} - {name}', flush=True)
            except Failure as failure:
                failures += 1
                print(f'not ok {number} - {name}')
                print('\n'.join(f'  {line}' for line in str(failure).splitlines()), flush=True)
        print(f'1..{len(checks)}')
    return 1 if failures else 0


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
