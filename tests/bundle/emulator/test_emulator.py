"""Tests of the emulator's own parts, over small programs compiled for both processors:

    /usr/bin/python3 -m unittest discover tests/bundle/emulator
"""

import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

try:
    import unicorn  # noqa: F401
except ImportError:
    raise unittest.SkipTest('not installed: python3-unicorn') from None

sys.path.insert(0, str(Path(__file__).parent))

import cases
import frameworks
from engine import UNDEFINED, ScriptFunction, ScriptObject
from failure import Failure
from image import read_thin_image
from layout import Layout
from process import Process
from system import NOW, START

TARGETS = {'x86_64': 'x86_64-apple-macosx10.10', 'arm64': 'arm64-apple-macosx11.0'}

HEADERS = {
    'v8-version.h': '#define V8_MAJOR_VERSION 8\n#define V8_MINOR_VERSION 6\n',
    'v8-internal.h': '''
class Internals {
  static const int kHeapObjectMapOffset = 0;
  static const int kMapInstanceTypeOffset = 1 * kApiTaggedSize + kApiInt32Size;
  static const int kOddballKindOffset = 4 * kApiTaggedSize + kApiDoubleSize;
  static const int kJSObjectHeaderSize = 3 * kApiTaggedSize;
  static const uint32_t kNumIsolateDataSlots = 4;
  static const int kIsolateRootsOffset =
      kNumIsolateDataSlots * kApiSystemPointerSize;
  static const int kUndefinedValueRootIndex = 4;
  static const int kTheHoleValueRootIndex = 5;
  static const int kNullValueRootIndex = 6;
  static const int kTrueValueRootIndex = 7;
  static const int kFalseValueRootIndex = 8;
  static const int kEmptyStringRootIndex = 9;
  static const int kOddballType = 0x43;
  static const int kJSObjectType = 0x421;
  static const int kUndefinedOddballKind = 5;
  static const int kNullOddballKind = 3;
};
''',
    'v8.h': '''
class FunctionCallbackInfo {
  static const int kArgsLength = 6;
  static const int kHolderIndex = 0;
  static const int kIsolateIndex = 1;
  static const int kReturnValueDefaultValueIndex = 2;
  static const int kReturnValueIndex = 3;
  static const int kDataIndex = 4;
  static const int kNewTargetIndex = 5;
};
''',
}


class TestCase(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        for name, text in HEADERS.items():
            (self.folder / name).write_text(text)
        self.layout = Layout(self.folder)

    def link(self, architecture, source, *options):
        """A bundle of a C source."""
        (self.folder / 'source.c').write_text(source)
        file = self.folder / 'source.node'
        subprocess.run(['clang-19', f'--target={TARGETS[architecture]}', '-O1', '-fno-builtin', '-nostdlib', '-bundle',
                        '-fuse-ld=lld', '-Wl,-undefined,dynamic_lookup', *options, self.folder / 'source.c',
                        '-o', file], check=True, capture_output=True)
        return read_thin_image(file, architecture)

    def load(self, architecture, source):
        """A process with the bundle, and its functions in the order of the table `functions` in the source."""
        process = Process(self.link(
            architecture, f'#define TABLE __attribute__((used, section("__DATA,__table")))\n{source}'), self.layout)
        return process, process.pointers('__table')

    def on_both(self, source, check):
        for architecture in TARGETS:
            with self.subTest(architecture):
                check(*self.load(architecture, source))

    def assert_fault(self, pattern, function, *arguments):
        with self.assertRaisesRegex(Failure, pattern):
            function(*arguments)


class ImageTest(TestCase):
    def test_refuses_chained_fixups(self):
        self.assert_fault('chained fixups', self.link, 'arm64', 'int x; int *p = &x;', '-Wl,-fixup_chains')

    def test_reads_rebases_and_binds(self):
        image = self.link('x86_64', 'extern int outside; int x; int *p[] = {&x, &outside + 2};')
        self.assertEqual(len(image.rebases), 1)
        self.assertEqual([(bind.symbol, bind.addend, bind.address) for bind in image.binds],
                         [('_outside', 8, image.rebases[0] + 8)])


class MachineTest(TestCase):
    def test_an_unknown_import_fails_with_its_name(self):
        self.on_both('void unheard_of(void); void f(void) { unheard_of(); } TABLE void *t = f;',
                     lambda process, functions: self.assert_fault('_unheard_of is called', process.machine.call,
                                                                  functions[0]))

    def test_unknown_data_fails_with_its_name(self):
        self.on_both('extern int unheard_of; int f(void) { return unheard_of; } TABLE void *t = f;',
                     lambda process, functions: self.assert_fault('reads the symbol _unheard_of', process.machine.call,
                                                                  functions[0]))

    def test_arguments_and_results(self):
        def check(process, functions):
            text = process.machine.allocate(8)
            process.machine.write(text, b'abc\0')
            result = process.machine.call(functions[0], text)
            self.assertEqual(result & 0xFFFFFFFF, 3 + 40 + 2)

        self.on_both('unsigned long strlen(const char *); double floor(double);'
                     'int memcmp(const void *, const void *, unsigned long);'
                     'int f(const char *text) { return strlen(text) + (int)(floor(4.9) * 10)'
                     ' + (memcmp(text, text, 3) == 0) + (memcmp("b", text, 1) > 0); } TABLE void *t = f;', check)

    def test_constants_cannot_be_written(self):
        self.on_both('const int value = 1; void f(void) { *(volatile int *)&value = 2; } TABLE void *t = f;',
                     lambda process, functions: self.assert_fault('writes to', process.machine.call, functions[0]))

    def test_code_that_does_not_end(self):
        self.on_both('void f(volatile int *go) { while (*go) {} } TABLE void *t = f;',
                     lambda process, functions: self.assert_fault('does not come to an end', process.machine.call,
                                                                  functions[0], process.machine.allocate(4)))

    def test_registers_that_a_function_has_to_keep(self):
        code = {'x86_64': 'mov $1, %rbx\\nret', 'arm64': 'mov x19, #1\\nret'}
        for architecture, text in code.items():
            process, functions = self.load(
                architecture, f'__attribute__((naked)) void f(void) {{ __asm__("{text}"); }} TABLE void *t = f;')
            self.assert_fault('a register that it has to keep', process.machine.call, functions[0])

    def test_an_unaligned_stack(self):
        code = {'x86_64': 'call _getpid\\nret', 'arm64': 'sub sp, sp, #8\\nb _getpid'}
        for architecture, text in code.items():
            process, functions = self.load(
                architecture, 'int getpid(void); void *keep = getpid;'
                f'__attribute__((naked)) void f(void) {{ __asm__("{text}"); }} TABLE void *t = f;')
            self.assert_fault('not aligned', process.machine.call, functions[0])


class EngineTest(TestCase):
    def setUp(self):
        super().setUp()
        self.process, _ = self.load('x86_64', 'int x;')
        self.engine = self.process.engine

    def test_values_come_back_as_they_were(self):
        for value in ('text', '', 1.5, -3, (1 << 30) - 1, True, False, None, UNDEFINED, ScriptObject('x')):
            self.assertIs(type(self.engine.untag(self.engine.tag(value))), type(value))
            self.assertEqual(self.engine.untag(self.engine.tag(value)), value)

    def test_a_tagged_field_has_32_bits(self):
        address = self.engine.tag('text') - 1
        map_word = self.process.machine.read_uint32(address)
        base = address & ~0xFFFFFFFF
        instance_type = self.process.machine.read(base + map_word - 1 + 8, 2)
        self.assertLess(int.from_bytes(instance_type, 'little'), 0x40)

    def test_a_handle_needs_a_scope_and_dies_with_it(self):
        self.assert_fault('no handle scope', self.engine.handle, 1)
        scope = self.process.machine.allocate(24)
        self.engine.handle_scope(scope, self.engine.current_isolate())
        handle = self.engine.handle(1)
        self.assertEqual(self.engine.value(handle), 1)
        self.engine.close_handle_scope(scope)
        self.assert_fault('is taken for a handle', self.engine.value, handle)

    def test_what_is_no_value_is_refused(self):
        self.assert_fault('is taken for a value', self.engine.untag, self.engine.tag('text') + 8)

    def test_a_persistent_handle_has_to_be_disposed_of(self):
        self.engine._open_scope('test')
        slot = self.engine.globalize(self.engine.current_isolate(), self.engine.handle(ScriptFunction('f')))
        self.engine._close_scope('test')
        self.assertEqual(self.engine.remains(), ['a persistent handle to function f'])
        self.engine.dispose_global(slot)
        self.assertEqual(self.engine.remains(), [])
        self.assert_fault('an invalid persistent handle is disposed of', self.engine.dispose_global, slot)


class ObjectsTest(TestCase):
    def setUp(self):
        super().setUp()
        self.process, _ = self.load('arm64', 'int x;')
        self.objc = self.process.objc

    def test_an_object_that_is_released_too_often(self):
        made = self.objc.make('NSView')
        self.objc.release(made)
        self.assert_fault('released after its end', self.objc.release, made)
        self.assert_fault('used after its end', self.objc.at, made.address)

    def test_what_an_object_holds_ends_with_it(self):
        owner, held = self.objc.make('NSView'), self.objc.make('NSView')
        self.objc.hold(owner, held)
        self.objc.release(held)
        self.assertEqual(self.objc.left(), ['NSView 1', 'NSView 2'])
        self.objc.release(owner)
        self.assertEqual(self.objc.left(), [])

    def test_a_group_that_is_released_while_it_is_entered(self):
        group = self.process.system.create_group()
        self.process.system.enter_group(group)
        self.assert_fault('while it is entered', self.process.system.release, group)

    def test_a_wait_that_nobody_ends(self):
        system = self.process.system
        group = system.create_group()
        system.enter_group(group)
        self.assertEqual(system.wait_for_group(group, system.time(NOW, 5)), 1)
        self.assertEqual(system.clock, START + 5)
        system.leave_group(group)
        self.assertEqual(system.wait_for_group(group, system.time(NOW, 5)), 0)
        self.assertEqual(system.clock, START + 5)

    def test_a_mutex_that_is_locked_twice(self):
        mutex = self.process.machine.allocate(64)
        self.assert_fault('was not set up', self.process.system.mutex_lock, mutex)
        self.process.system.mutex_init(mutex, 0)
        self.process.system.mutex_lock(mutex)
        self.assert_fault('locked twice', self.process.system.mutex_lock, mutex)

    def test_a_captured_block_and_a_shared_variable(self):
        source = '''
            typedef void (^Block)(void);
            void dispatch_async(void *queue, Block block);
            extern char _dispatch_main_q;
            void f(int *result) {
              __block int count = 0;
              Block inner = ^{ *result = ++count; };
              dispatch_async(&_dispatch_main_q, ^{ inner(); inner(); });
            }
            TABLE void *t = f;'''
        for architecture in TARGETS:
            image = self.link(architecture, '#define TABLE __attribute__((used, section("__DATA,__table")))' + source,
                              '-fblocks')
            process = Process(image, self.layout)
            result = process.machine.allocate(4)
            process.machine.call(process.pointers('__table')[0], result)
            process.run_main_queue()
            self.assertEqual(process.machine.read_uint32(result), 2)
            self.assertEqual((process.remains(), process.objc.left()), ([], []))


class FrameworksTest(unittest.TestCase):
    def test_a_method_has_a_type_for_each_argument(self):
        with self.assertRaisesRegex(ValueError, 'not one type for each argument'):
            frameworks.read_classes('NSObject\n- a:b: o = v')

    def test_a_behaviour_that_no_class_declares(self):
        with self.assertRaisesRegex(ValueError, 'no class declares'):
            frameworks.read_classes('NSObject\n- init = self')


class CasesTest(TestCase):
    def test_reads_arguments(self):
        values = cases.read_arguments('"a, b", -1, 1.5, true, null, undefined, an object, a callback')
        self.assertEqual(values[:6], ['a, b', -1, 1.5, True, None, UNDEFINED])
        self.assertEqual([type(value) for value in values[6:]], [ScriptObject, ScriptFunction])

    def test_reads_what_is_of_a_processor(self):
        file = self.folder / 'cases.txt'
        file.write_text('# no line\n== both\n> a\nx86_64| b\narm64| c\n\n== arm64| one\n> d\n')
        read = {architecture: [(case.name, case.lines) for case in cases.read_cases(file, architecture)]
                for architecture in TARGETS}
        self.assertEqual(read, {'x86_64': [('cases: both', ['> a', 'b'])],
                                'arm64': [('cases: both', ['> a', 'c']), ('cases: one', ['> d'])]})

    def test_writes_out_what_is_repeated(self):
        repeated = {'both': ['.. one: 1', '.. one: #'], 'one': ['a # #']}
        self.assertEqual(cases.written_out(['.. both: 2', 'b #'], repeated), ['a 1 1', 'a 2 2', 'b #'])

    def test_does_a_step_often_and_counts_its_lines(self):
        case = cases.Case(self.link('x86_64', 'int x;'), self.layout, Process.require, False)
        case.do('3 × 5 ms pass')
        self.assertEqual(case.process.system.clock, START + 15_000_000)
        self.assertEqual(cases.counted(['a', 'b', 'a']), ['2 × a', 'b'])

    def test_a_step_that_is_none(self):
        image = self.link('x86_64', 'int x;')
        self.assert_fault('no step is written like this: whatever', cases.run_case,
                          cases.CaseText('a case', ['> whatever']), image, self.layout, Process.require)

    def test_a_difference_is_told(self):
        image = self.link('x86_64', 'int x;')
        self.assert_fault(r'-version: 85\n\+FAULT: node_module_register was called 0 times', cases.run_case,
                          cases.CaseText('a case', ['> the record of the module', 'version: 85']), image, self.layout,
                          Process.require)


if __name__ == '__main__':
    unittest.main()
