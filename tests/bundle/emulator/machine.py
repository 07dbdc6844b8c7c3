"""A processor with memory, in which every function outside the image is a stub of its own.

A stub is an address where nothing may be read or written. When the processor arrives there, the machine
runs the Python function that stands for the symbol and returns to the caller.
"""

import struct

from unicorn import (UC_HOOK_BLOCK, UC_HOOK_CODE, UC_HOOK_MEM_INVALID, UC_MEM_FETCH_PROT, UC_MEM_FETCH_UNMAPPED,
                     UC_MEM_READ_PROT, UC_MEM_READ_UNMAPPED, UC_PROT_ALL, UC_PROT_EXEC, UC_PROT_READ, UC_PROT_WRITE,
                     Uc, UcError)

from abi import BY_ARCHITECTURE, MASK, Arguments, widen, write_result
from failure import Failure

PAGE = 0x1000

IMAGE = 0x11_0000_0000
STUBS = 0x22_0000_0000
IMPORTED_DATA = 0x23_0000_0000
HEAP = 0x33_0000_0000
STACK = 0x44_0000_0000

STUB_SIZE = 16
STACK_SIZE = 0x10_0000
HEAP_SIZE = 0x40_0000
ARENA_SIZE = 0x1_0000

# What memory holds before somebody writes to it.
FILLING = 0xC5

# Far more than any step needs.
BLOCK_LIMIT = 100_000


def pages(size):
    return -(-size // PAGE) * PAGE


class Jump:
    """What a stub returns to have the processor go on at another address with the same arguments."""

    def __init__(self, address):
        self.address = address


class Machine:
    def __init__(self, architecture):
        self.abi = BY_ARCHITECTURE[architecture]()
        self.uc = Uc(*self.abi.engine)
        self.abi.prepare(self.uc)
        # Where code of the image has run, and how many blocks of code since a step began.
        self.blocks = set()
        self.block_count = 0
        # Whether calls leave garbage where they may.
        self.leaves_garbage = True
        self.segments = []
        self._image_size = 0
        self._stubs = {}
        self._names = {}
        self._fault = None
        self._next_data = IMPORTED_DATA
        self._next_heap = HEAP
        self.uc.mem_map(STUBS, ARENA_SIZE, UC_PROT_EXEC)
        self.map(IMPORTED_DATA, ARENA_SIZE)
        self.map(HEAP, HEAP_SIZE)
        self.map(STACK, STACK_SIZE)
        self.uc.reg_write(self.abi.sp, STACK + STACK_SIZE - 0x1000)
        self.uc.hook_add(UC_HOOK_CODE, self._stop, None, STUBS, STUBS + ARENA_SIZE - 1)
        self.uc.hook_add(UC_HOOK_MEM_INVALID, self._note_fault)
        self._return_address = self.add_function('the end of a call', None)

    # --- Memory -----------------------------------------------------------------------------------------

    def map(self, address, size, protection=UC_PROT_READ | UC_PROT_WRITE):
        self.uc.mem_map(address, pages(size), UC_PROT_ALL)
        self.uc.mem_write(address, bytes([FILLING]) * pages(size))
        self.protect(address, size, protection)

    def protect(self, address, size, protection):
        self.uc.mem_protect(address, pages(size), protection)

    def map_image(self, segments):
        """Memory for an image, of which nothing can be used until it is protected."""
        size = max(segment.address + segment.size for segment in segments)
        self.uc.mem_map(IMAGE, pages(size), 0)
        self.segments = segments
        self._image_size = size
        self.uc.hook_add(UC_HOOK_BLOCK, self._count_block, None, IMAGE, IMAGE + pages(size) - 1)

    def read(self, address, size):
        try:
            return bytes(self.uc.mem_read(address, size))
        except UcError:
            raise Failure(f'there is nothing at {self.place(address)} to read') from None

    def write(self, address, content):
        try:
            self.uc.mem_write(address, bytes(content))
        except UcError:
            raise Failure(f'there is nothing at {self.place(address)} to write to') from None

    def read_pointer(self, address):
        return struct.unpack('<Q', self.read(address, 8))[0]

    def write_pointer(self, address, value):
        self.write(address, struct.pack('<Q', value & MASK))

    def read_uint32(self, address):
        return struct.unpack('<I', self.read(address, 4))[0]

    def read_int32(self, address):
        return struct.unpack('<i', self.read(address, 4))[0]

    def read_text(self, address):
        """The bytes of a zero-terminated text."""
        text = b''
        while b'\0' not in text:
            # Up to the end of a page, behind which there may be nothing.
            at = address + len(text)
            text += self.read(at, PAGE - at % PAGE if at % PAGE > PAGE - 64 else 64)
        return text.partition(b'\0')[0]

    def allocate(self, size, alignment=16):
        """Memory that is never handed out again, so that a late use of it is noticed."""
        address = -(-self._next_heap // alignment) * alignment
        self._next_heap = address + max(size, 1) + 16
        if self._next_heap > HEAP + HEAP_SIZE:
            raise Failure('more memory was asked for than any case needs')
        return address

    # --- Symbols of other images ------------------------------------------------------------------------

    def add_function(self, name, function):
        """The address of a stub. `function` gets a `Call`; None for a symbol of which the model has nothing."""
        address = STUBS + len(self._stubs) * STUB_SIZE
        self._stubs[address] = (name, function)
        return address

    def add_data(self, name, content):
        address = self._next_data
        self._next_data = -(-(address + len(content) + 16) // 16) * 16
        self.write(address, content)
        self._names[address] = name
        return address

    def place(self, address):
        """Where an address is, to the byte."""
        return f'0x{address - IMAGE:x} of the image' if self.is_in_image(address) else self.describe(address)

    def is_in_image(self, address):
        return IMAGE <= address < IMAGE + self._image_size

    def describe(self, address):
        """What is at an address, without the numbers that change with every build."""
        if address == 0:
            return 'NULL'
        if address == IMAGE:
            return 'the image'
        if self.is_in_image(address):
            segment = next(each for each in self.segments if each.address <= address - IMAGE < each.address + each.size)
            return 'a function of the bundle' if 'x' in segment.protection else 'a variable of the bundle'
        stub = self._stubs.get(address - address % STUB_SIZE)
        if stub:
            return f'the symbol {stub[0]}'
        return self._names.get(address, f'0x{address:x}')

    def fail(self, text):
        raise Failure(f'{text} ({self.place(self.uc.reg_read(self.abi.pc))})')

    # --- Running ----------------------------------------------------------------------------------------

    def call(self, address, *arguments, kinds=None):
        """Calls a function of the image; returns the register of an integer result."""
        uc, abi = self.uc, self.abi
        if not self.is_in_image(address):
            raise Failure(f'a call goes to {self.describe(address)}, which is not in the image')
        before = abi.saved(uc)
        for register, argument, kind in zip(abi.integers, arguments, kinds or 'p' * len(arguments)):
            uc.reg_write(register, widen(argument, kind))
        sp = uc.reg_read(abi.sp)
        abi.enter(self, self._return_address)
        lowered = uc.reg_read(abi.sp)
        self._run(address)
        if uc.reg_read(abi.sp) != lowered + abi.link_size:
            self.fail(f'the function at {self.place(address)} returned with another stack pointer')
        uc.reg_write(abi.sp, sp)
        if abi.saved(uc) != before:
            self.fail(f'the function at {self.place(address)} changed a register that it has to keep')
        return uc.reg_read(abi.results[0])

    def _run(self, address):
        while True:
            self._fault = None
            try:
                self.uc.emu_start(address, MASK)
            except UcError as error:
                self.fail(self._fault or f'the processor stopped: {error}')
            if self._fault:
                self.fail(self._fault)
            stub = self.uc.reg_read(self.abi.pc)
            if stub == self._return_address:
                return
            if stub not in self._stubs:
                self.fail('the processor stopped')
            address = self._run_stub(*self._stubs[stub])

    def _run_stub(self, name, function):
        """Where the processor goes on."""
        if function is None:
            raise Failure(f'{name} is called, of which the model has nothing')
        return_address = self.abi.return_address(self)
        result = function(Call(self))
        if isinstance(result, Jump):
            return result.address
        self.abi.leave(self)
        return return_address

    def _stop(self, uc, address, size, data):
        uc.emu_stop()

    def _count_block(self, uc, address, size, data):
        self.blocks.add(address)
        self.block_count += 1
        if self.block_count > BLOCK_LIMIT:
            self._fault = 'the code does not come to an end'
            uc.emu_stop()

    def _note_fault(self, uc, access, address, size, value, data):
        verb = ('reads' if access in (UC_MEM_READ_UNMAPPED, UC_MEM_READ_PROT)
                else 'runs' if access in (UC_MEM_FETCH_UNMAPPED, UC_MEM_FETCH_PROT) else 'writes to')
        self._fault = f'the code {verb} {self.place(address)}, which it may not'
        return False


class Call:
    """A call that the image made of a function outside of it."""

    def __init__(self, machine):
        self.machine = machine

    def arguments(self, kinds):
        reader = self.reader()
        return [reader.next(kind) for kind in kinds]

    def reader(self, is_struct_return=False):
        return Arguments(self.machine, is_struct_return)

    def finish(self, kind='v', value=None):
        write_result(self.machine, kind, value)
