"""How functions are called on each processor: where arguments and results are.

Apple's documents "Writing ARM64 code for Apple platforms" and, for x86_64, the System V psABI. A type is
one letter: p a pointer, q 64 and i 32 bits signed, Q and I unsigned, B a BOOL or bool, d a double, R a
rectangle, S a size, N a range, V an NSOperatingSystemVersion, v nothing. What a type does not fill of a
register is garbage here, as it may be on a Mac; but a BOOL is always extended to 32 bits.
"""

import struct

from unicorn import UC_ARCH_ARM64, UC_ARCH_X86, UC_MODE_64, UC_MODE_ARM
from unicorn import arm64_const as arm
from unicorn import x86_const as x86

GARBAGE = 0xD15EA5ED_D15EA5ED
MASK = (1 << 64) - 1

SIZES = {'p': 8, 'q': 8, 'Q': 8, 'i': 4, 'I': 4, 'B': 1, 'd': 8}
DOUBLES = {'R': 4, 'S': 2}


def narrow(bits, kind):
    """The value of that type in the low bits of a register."""
    size = SIZES[kind] * 8
    value = bits & ((1 << size) - 1)
    return value - (1 << size) if kind in 'qi' and value >> (size - 1) else value


def widen(value, kind):
    """A register with a value of that type."""
    mask = (1 << max(SIZES[kind] * 8, 32)) - 1
    return (value & mask) | (GARBAGE & ~mask & MASK)


def to_double(bits):
    return struct.unpack('<d', struct.pack('<Q', bits & MASK))[0]


def from_double(value):
    return struct.unpack('<Q', struct.pack('<d', value))[0]


class Abi:
    """What both processors have in common."""

    def scramble(self, uc):
        """Leaves garbage where a function may: nobody may rely on what was there before the call."""
        for register in self.scratch:
            uc.reg_write(register, GARBAGE)

    def saved(self, uc):
        """What a function has to leave as it was."""
        return [uc.reg_read(register) for register in self.preserved]


class X86_64(Abi):
    engine = (UC_ARCH_X86, UC_MODE_64)
    pc, sp = x86.UC_X86_REG_RIP, x86.UC_X86_REG_RSP
    integers = [x86.UC_X86_REG_RDI, x86.UC_X86_REG_RSI, x86.UC_X86_REG_RDX, x86.UC_X86_REG_RCX,
                x86.UC_X86_REG_R8, x86.UC_X86_REG_R9]
    doubles = [x86.UC_X86_REG_XMM0 + index for index in range(8)]
    results = [x86.UC_X86_REG_RAX, x86.UC_X86_REG_RDX]
    scratch = [*integers, x86.UC_X86_REG_RAX, x86.UC_X86_REG_R10, x86.UC_X86_REG_R11,
               *(x86.UC_X86_REG_XMM0 + index for index in range(16))]
    preserved = [x86.UC_X86_REG_RBX, x86.UC_X86_REG_RBP, x86.UC_X86_REG_R12, x86.UC_X86_REG_R13,
                 x86.UC_X86_REG_R14, x86.UC_X86_REG_R15, x86.UC_X86_REG_RSP]
    returns_this = False
    link_size = 8

    def prepare(self, uc):
        pass

    def enter(self, machine, return_address):
        """Makes room for a call of the machine's own, as the instruction would."""
        sp = (machine.uc.reg_read(self.sp) - 256) & ~15
        machine.uc.reg_write(self.sp, sp - 8)
        machine.write_pointer(sp - 8, return_address)

    def return_address(self, machine):
        sp = machine.uc.reg_read(self.sp)
        if sp % 16 != 8:
            machine.fail('the stack is not aligned at a call')
        return machine.read_pointer(sp)

    def leave(self, machine):
        machine.uc.reg_write(self.sp, machine.uc.reg_read(self.sp) + 8)

    def is_in_memory(self, kind):
        return kind in 'RV'

    def is_returned_in_memory(self, kind):
        return kind == 'R'


class Arm64(Abi):
    engine = (UC_ARCH_ARM64, UC_MODE_ARM)
    pc, sp, link = arm.UC_ARM64_REG_PC, arm.UC_ARM64_REG_SP, arm.UC_ARM64_REG_X30
    integers = [arm.UC_ARM64_REG_X0 + index for index in range(8)]
    doubles = [arm.UC_ARM64_REG_D0 + index for index in range(8)]
    results = integers[:2]
    # Register 18 belongs to the system.
    scratch = [*(arm.UC_ARM64_REG_X0 + index for index in range(18)),
               *(arm.UC_ARM64_REG_D0 + index for index in (*range(8), *range(16, 32)))]
    preserved = [*(arm.UC_ARM64_REG_X0 + index for index in range(19, 29)), arm.UC_ARM64_REG_X29,
                 *(arm.UC_ARM64_REG_D0 + index for index in range(8, 16)), arm.UC_ARM64_REG_SP]
    returns_this = True
    link_size = 0

    def prepare(self, uc):
        # Lets floating-point instructions run.
        uc.reg_write(arm.UC_ARM64_REG_CPACR_EL1, 3 << 20)

    def enter(self, machine, return_address):
        machine.uc.reg_write(self.sp, (machine.uc.reg_read(self.sp) - 256) & ~15)
        machine.uc.reg_write(self.link, return_address)

    def return_address(self, machine):
        if machine.uc.reg_read(self.sp) % 16:
            machine.fail('the stack is not aligned at a call')
        return machine.uc.reg_read(self.link)

    def leave(self, machine):
        pass

    def is_in_memory(self, kind):
        return False

    def is_returned_in_memory(self, kind):
        return False


BY_ARCHITECTURE = {'x86_64': X86_64, 'arm64': Arm64}


class Arguments:
    """Reads a call's arguments one after the other, at the moment of the call."""

    def __init__(self, machine, is_struct_return=False):
        self._machine = machine
        self._abi = machine.abi
        # The address of the result comes first.
        self._integer = 1 if is_struct_return else 0
        self._double = 0
        self._stack = machine.uc.reg_read(machine.abi.sp) + machine.abi.link_size

    def next(self, kind):
        if kind == 'd':
            return self._next_double()
        if kind in DOUBLES:
            return self._next_doubles(DOUBLES[kind], self._abi.is_in_memory(kind))
        if kind == 'V':
            return self._next_version()
        return narrow(self._next_word(SIZES[kind]), kind)

    def next_variadic(self, kind):
        """One of the arguments that stand for the three dots."""
        if isinstance(self._abi, Arm64):
            # All of them are on the stack, each in eight bytes.
            word = self._next_on_stack(8)
            return to_double(word) if kind == 'd' else narrow(word, kind)
        return self.next(kind)

    def _next_on_stack(self, size):
        # On arm64 an argument takes as many bytes as its type has, on x86_64 always eight.
        size = size if isinstance(self._abi, Arm64) else 8
        self._stack = -(-self._stack // size) * size
        word = int.from_bytes(self._machine.read(self._stack, size), 'little')
        self._stack += size
        return word

    def _next_word(self, size):
        if self._integer < len(self._abi.integers):
            self._integer += 1
            return self._machine.uc.reg_read(self._abi.integers[self._integer - 1])
        return self._next_on_stack(size)

    def _next_double(self):
        if self._double < len(self._abi.doubles):
            self._double += 1
            return to_double(self._machine.uc.reg_read(self._abi.doubles[self._double - 1]))
        return to_double(self._next_on_stack(8))

    def _next_doubles(self, count, is_in_memory):
        if is_in_memory or self._double + count > len(self._abi.doubles):
            return tuple(to_double(self._next_on_stack(8)) for _ in range(count))
        return tuple(self._next_double() for _ in range(count))

    def _next_version(self):
        if self._abi.is_in_memory('V'):
            return tuple(narrow(self._next_on_stack(8), 'q') for _ in range(3))
        # A structure of that size is passed by its address.
        address = self._next_word(8)
        return struct.unpack('<3q', self._machine.read(address, 24))


def write_result(machine, kind, value):
    """Leaves a function's result; one that is in memory has been written already."""
    abi, uc = machine.abi, machine.uc
    if machine.leaves_garbage:
        abi.scramble(uc)
    if kind == 'v' or abi.is_returned_in_memory(kind):
        return
    if kind == 'd':
        value, kind = (value,), 'D'
    if kind in 'DRS':
        for register, component in zip(abi.doubles, value):
            uc.reg_write(register, from_double(component))
    elif kind == 'N':
        for register, component in zip(abi.results, value):
            uc.reg_write(register, component)
    else:
        uc.reg_write(abi.results[0], widen(value, kind))
