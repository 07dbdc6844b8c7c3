"""A model of the Objective-C runtime and of blocks.

The classes and categories of the image are read from its memory as the runtime reads them, and their
methods run in the emulator. The classes of the system are those of frameworks.py, whose methods are Python
functions. Every object is counted: one that is released too often, or used after its end, is a fault, and
what is left at the end of a case is told.
"""

import re
import struct
from dataclasses import dataclass, field

from failure import Failure
from imports import imported, imported_raw
from machine import Jump

# <Block_private.h>
BLOCK_HAS_COPY_DISPOSE = 1 << 25
BYREF_HAS_COPY_DISPOSE = 1 << 25
FIELD_OBJECT, FIELD_BLOCK, FIELD_BYREF, BYREF_CALLER = 3, 7, 8, 128

# <objc/runtime.h> and the runtime's published objc-runtime-new.h
RELATIVE_METHODS = 0x8000_0000
ENTRY_SIZE_MASK = 0xFFFC
CLASS_SIZE = 40

# What an instance of a system class takes here; more than the headers say, so that the image's own
# instance variables have to be moved, as the runtime does on a Mac.
SYSTEM_INSTANCE_SIZE = 0x200
ROOT_INSTANCE_SIZE = 8


@dataclass
class Class:
    name: str
    address: int
    superclass: 'Class | None'
    instance_size: int
    # By selector: the address of a function of the image, or a Method of frameworks.py.
    instance_methods: dict = field(default_factory=dict)
    class_methods: dict = field(default_factory=dict)

    def lineage(self):
        """The class, its superclass and so on."""
        current = self
        while current:
            yield current
            current = current.superclass


class Object:
    def __init__(self, kind, address, name, payload=None):
        self.kind = kind
        self.address = address
        self.name = name
        self.payload = payload
        # None for an object that lives as long as the process.
        self.count = 1
        self.properties = {}
        # What it holds a reference to besides its properties.
        self.held = []

    def __repr__(self):
        return self.name


@dataclass
class Method:
    """A method of a system class: the types of its arguments after the selector, and a Python function."""
    selector: str
    kinds: str
    result: str
    function: object
    is_recorded: bool = True
    # Takes further arguments for the three dots, which the function reads itself.
    is_variadic: bool = False


class ObjectiveC:
    def __init__(self, process, classes):
        self._process = process
        self._machine = process.machine
        self._selectors = {}
        self._selector_names = {}
        self._pools = []
        self._ordinals = {}
        self._byrefs = {}
        self.objects = {}
        self.classes = {}
        self._classes_by_address = {}
        machine = self._machine
        self.block_classes = {name: machine.add_data(name, bytes(CLASS_SIZE))
                              for name in ('__NSConcreteStackBlock', '__NSConcreteGlobalBlock',
                                           '__NSConcreteMallocBlock')}
        for name, superclass, instance_methods, class_methods in classes:
            address = machine.add_data(f'the class {name}', bytes(CLASS_SIZE))
            self._add_class(Class(
                name, address, self.classes.get(superclass),
                SYSTEM_INSTANCE_SIZE if superclass else ROOT_INSTANCE_SIZE, instance_methods, class_methods))
        self.constant_string_class = machine.add_data('the class of constant strings', bytes(CLASS_SIZE))
        self._metaclasses = {}

    def data(self, symbol):
        """The address of a class or another of the runtime's data that the image refers to, or None."""
        if match := re.fullmatch(r'_OBJC_CLASS_\$_(\w+)', symbol):
            return self.class_named(match[1]).address
        if match := re.fullmatch(r'_OBJC_METACLASS_\$_(\w+)', symbol):
            name = self.class_named(match[1]).name
            if name not in self._metaclasses:
                self._metaclasses[name] = self._machine.add_data(f'the metaclass {name}', bytes(CLASS_SIZE))
            return self._metaclasses[name]
        if symbol == '___CFConstantStringClassReference':
            return self.constant_string_class
        if symbol in self.block_classes:
            return self.block_classes[symbol]
        if symbol in ('__objc_empty_cache', '_OBJC_EHTYPE_$_NSException'):
            return self._machine.add_data(symbol, bytes(32))
        return None

    def class_named(self, name):
        if name not in self.classes:
            # It may be referred to; no message to it will be understood.
            self._add_class(Class(name, self._machine.add_data(f'the class {name}', bytes(CLASS_SIZE)), None,
                                  SYSTEM_INSTANCE_SIZE))
        return self.classes[name]

    def _add_class(self, added):
        self.classes[added.name] = added
        self._classes_by_address[added.address] = added

    # --- The classes of the image -----------------------------------------------------------------------

    def read_image(self, classes, categories):
        """Registers classes and categories, as the runtime does before any initialiser runs."""
        for address in classes:
            self._read_class(address)
        for address in categories:
            target = self._class_at(self._machine.read_pointer(address + 8))
            target.instance_methods = {**target.instance_methods, **self._methods(address + 16)}
            target.class_methods = {**target.class_methods, **self._methods(address + 24)}

    def _class_at(self, address):
        if address not in self._classes_by_address:
            self._read_class(address)
        return self._classes_by_address[address]

    def _read_class(self, address):
        if address in self._classes_by_address:
            return
        machine = self._machine
        data = machine.read_pointer(address + 32) & ~7
        metadata = machine.read_pointer(machine.read_pointer(address) + 32) & ~7
        superclass = self._class_at(machine.read_pointer(address + 8))
        start, size = struct.unpack('<II', machine.read(data + 4, 8))
        moved = -(-max(superclass.instance_size - start, 0) // 16) * 16
        ivars = machine.read_pointer(data + 48)
        if ivars:
            entry_size, count = struct.unpack('<II', machine.read(ivars, 8))
            for index in range(count):
                offset = machine.read_pointer(ivars + 8 + index * entry_size)
                machine.write(offset, struct.pack('<I', machine.read_uint32(offset) + moved))
        self._add_class(Class(
            machine.read_text(machine.read_pointer(data + 24)).decode(), address, superclass, size + moved,
            self._methods(data + 32), self._methods(metadata + 32)))

    def _methods(self, field_address):
        machine = self._machine
        methods = machine.read_pointer(field_address)
        if not methods:
            return {}
        head, count = struct.unpack('<II', machine.read(methods, 8))
        found = {}
        for index in range(count):
            entry = methods + 8 + index * (head & ENTRY_SIZE_MASK)
            if head & RELATIVE_METHODS:
                name = machine.read_pointer(entry + machine.read_int32(entry))
                function = entry + 8 + machine.read_int32(entry + 8)
            else:
                name, function = machine.read_pointer(entry), machine.read_pointer(entry + 16)
            found[machine.read_text(name).decode()] = function
        return found

    # --- Objects ----------------------------------------------------------------------------------------

    def make(self, class_name, name=None, payload=None):
        """A new object with one reference, which is its maker's. Without a name it gets a number."""
        kind = self.class_named(class_name)
        address = self._machine.allocate(kind.instance_size)
        # The runtime hands out cleared memory.
        self._machine.write(address, struct.pack('<Q', kind.address) + bytes(kind.instance_size - 8))
        if name is None:
            self._ordinals[kind.name] = self._ordinals.get(kind.name, 0) + 1
            name = f'{kind.name} {self._ordinals[kind.name]}'
        made = self.objects[address] = Object(kind, address, name, payload)
        return made

    def make_immortal(self, class_name, name, payload=None):
        made = self.make(class_name, name, payload)
        made.count = None
        return made

    def make_autoreleased(self, class_name, name=None, payload=None):
        return self.autoreleased(self.make(class_name, name, payload))

    def at(self, address):
        """The object at an address; None for nil."""
        if address == 0:
            return None
        if address not in self.objects:
            isa = self._machine.read_pointer(address)
            if isa == self.constant_string_class:
                self._adopt_constant_string(address)
            elif isa in self.block_classes.values():
                # Not kept: a block on the stack is another one the next time.
                block = Object(self.class_named('NSBlock'), address, 'a block')
                block.count = None
                return block
            else:
                raise Failure(f'{self._machine.describe(address)} is taken for an object')
        found = self.objects[address]
        if found.count == 0:
            raise Failure(f'{found} is used after its end')
        return found

    def _adopt_constant_string(self, address):
        flags, characters, length = struct.unpack('<QQQ', self._machine.read(address + 8, 24))
        # <CFString>: a constant of UTF-16 units, or of bytes.
        text = (self._machine.read(characters, length * 2).decode('utf-16-le') if flags & 0xFF == 0xD0
                else self._machine.read(characters, length).decode('ascii'))
        self.objects[address] = Object(self.class_named('NSString'), address, f'@{quoted(text)}', text)
        self.objects[address].count = None

    def describe(self, address):
        if address == 0:
            return 'nil'
        if address in self._classes_by_address:
            return self._classes_by_address[address].name
        return repr(self.at(address))

    def retain(self, found):
        if found is not None and found.count is not None:
            found.count += 1
        return found

    def release(self, found):
        if found is None or found.count is None:
            return
        if found.count == 0:
            raise Failure(f'{found} is released after its end')
        if found.count > 1:
            found.count -= 1
            return
        dealloc, owner = self._find(found.kind, 'dealloc', 'instance_methods')
        if isinstance(dealloc, int):
            self._machine.call(dealloc, found.address, self.selector('dealloc'))
            if found.count != 0:
                raise Failure(f'{found} did not pass its dealloc on to {owner.superclass.name}')
        else:
            self.end(found)

    def end(self, found):
        """What the root class's dealloc does, and those of the system's classes."""
        found.count = 0
        if found.kind.name == 'NSBlock':
            self._dispose_block(found.address)
        if found.kind.name == 'OS_dispatch_group' and found.payload:
            raise Failure('a group is released while it is entered, which ends the application')
        for held in [*found.held, *found.properties.values()]:
            if isinstance(held, Object):
                self.release(held)

    def autoreleased(self, found):
        if found is not None and found.count is not None:
            if not self._pools:
                raise Failure(f'{found} is autoreleased where no pool is open')
            self._pools[-1].append(found)
        return found

    def hold(self, owner, found):
        """`owner` takes a reference that it gives up at its end."""
        owner.held.append(self.retain(found))

    def selector(self, name):
        if name not in self._selectors:
            self._selectors[name] = self._machine.add_data(f'the selector {name}', name.encode() + b'\0')
        return self._selectors[name]

    def selector_name(self, address):
        if address not in self._selector_names:
            self._selector_names[address] = self._machine.read_text(address).decode()
        return self._selector_names[address]

    def living(self, class_name):
        return [found for found in self.objects.values() if found.kind.name == class_name and found.count]

    def left(self):
        """Objects that are alive though nobody made them for good."""
        return sorted(found.name for found in self.objects.values() if found.count)

    # --- Messages ---------------------------------------------------------------------------------------

    def _find(self, start, selector, table):
        for kind in start.lineage():
            method = getattr(kind, table).get(selector)
            if method is not None:
                return method, kind
        return None, None

    def send(self, receiver, selector, *arguments, kinds=None):
        """Sends a message to an object of one of the image's classes."""
        method, _ = self._find(receiver.kind, selector, 'instance_methods')
        if not isinstance(method, int):
            raise Failure(f'{receiver} has no method {selector} of the bundle')
        return self._machine.call(method, receiver.address, self.selector(selector), *arguments,
                                  kinds='pp' + (kinds or 'p' * len(arguments)))

    @imported_raw('_objc_msgSend')
    def message(self, call):
        return self._dispatch(call, call.reader())

    @imported_raw('_objc_msgSend_stret')
    def message_for_structure(self, call):
        return self._dispatch(call, call.reader(is_struct_return=True), call.arguments('p')[0])

    @imported_raw('_objc_msgSendSuper2')
    def message_to_super(self, call):
        pair = call.arguments('p')[0]
        receiver, current = struct.unpack('<QQ', self._machine.read(pair, 16))
        # The receiver stands where the pair was, as if the message had been sent to it.
        self._machine.uc.reg_write(self._machine.abi.integers[0], receiver)
        return self._dispatch(call, call.reader(), start=self._class_at(current).superclass)

    def _dispatch(self, call, reader, structure=None, start=None):
        receiver, selector = reader.next('p'), self.selector_name(reader.next('p'))
        if receiver == 0:
            self._answer_nil(call, structure)
            return None
        if receiver in self._classes_by_address:
            kind, table = self._classes_by_address[receiver], 'class_methods'
            method, _ = self._find(start or kind, selector, table)
            if method is None:
                method, _ = self._find(self.class_named('NSObject'), selector, 'instance_methods')
            target = kind
        else:
            target = self.at(receiver)
            method, _ = self._find(start or target.kind, selector, 'instance_methods')
        if method is None:
            raise Failure(f'[{target.name} {selector}] is sent, of which the model has nothing')
        if isinstance(method, int):
            return Jump(method)
        arguments = [reader.next(abi_kind(kind)) for kind in method.kinds]
        text = message_text(target, selector, [self.describe_argument(kind, value)
                                               for kind, value in zip(method.kinds, arguments)])
        self._process.current_message = text
        if method.is_recorded:
            self._process.record(text)
        arguments = [self._argument(kind, value) for kind, value in zip(method.kinds, arguments)]
        if method.is_variadic:
            arguments.append(reader)
        result = method.function(self._process, target, *arguments)
        self._finish(call, method.result, result, structure)
        return None

    def _argument(self, kind, value):
        if kind == 'k':
            return self._class_at(value)
        return self.at(value) if kind == 'o' else value

    def describe_argument(self, kind, value):
        if kind in 'ok':
            return self.describe(value)
        if kind == 's':
            return self.selector_name(value)
        if kind == 'P':
            return f'the protocol {self._machine.read_text(self._machine.read_pointer(value + 8)).decode()}'
        if kind == 'c':
            return quoted(self._machine.read_text(value).decode())
        if kind == 'B':
            return 'YES' if value & 0xFF else 'NO'
        if kind == 'p':
            return 'NULL' if value == 0 else 'a pointer'
        if kind == 'd':
            return f'{value:g}'
        if kind in 'RSV':
            return '{' + ', '.join(f'{component:g}' for component in value) + '}'
        return str(value)

    def _finish(self, call, kind, result, structure):
        if structure is not None:
            if kind != 'R':
                raise Failure(f'{self._process.current_message} is sent as if it returned a structure in memory')
            self._machine.write(structure, struct.pack('<4d', *result))
            call.finish('p', structure)
        elif kind == 'R' and self._machine.abi.is_returned_in_memory('R'):
            raise Failure(f'{self._process.current_message} is sent as if it returned no structure in memory')
        elif kind == 'o':
            call.finish('p', result.address if isinstance(result, (Object, Class)) else 0)
        else:
            call.finish(kind, result)

    def _answer_nil(self, call, structure):
        call.finish()
        uc, abi = self._machine.uc, self._machine.abi
        for register in (*abi.results, *abi.doubles[:4]):
            uc.reg_write(register, 0)
        if structure is not None:
            self._machine.write(structure, bytes(32))

    # --- The runtime's functions ------------------------------------------------------------------------

    @imported('_objc_alloc', 'p', 'p')
    def alloc(self, kind):
        return self.make(self._class_at(kind).name).address

    @imported_raw('_objc_alloc_init')
    def alloc_init(self, call):
        made = self.alloc(*call.arguments('p'))
        call.finish('p', made)
        if isinstance(self._find(self.objects[made].kind, 'init', 'instance_methods')[0], int):
            raise Failure('objc_alloc_init of a class with its own init')

    @imported('_objc_retain', 'p', 'p')
    def retain_address(self, address):
        self.retain(self.at(address))
        return address

    @imported('_objc_release', 'p')
    def release_address(self, address):
        self.release(self.at(address))

    @imported('_objc_autorelease', 'p', 'p')
    def autorelease_address(self, address):
        self.autoreleased(self.at(address))
        return address

    @imported('_objc_autoreleasePoolPush', '', 'p')
    def push_pool(self):
        self._pools.append([])
        return 0x1000 + len(self._pools)

    @imported('_objc_autoreleasePoolPop', 'p')
    def pop_pool(self, token):
        if token != 0x1000 + len(self._pools):
            raise Failure('an autorelease pool is popped that is not the innermost')
        for found in self._pools.pop():
            self.release(found)

    @imported('_objc_setProperty_nonatomic', 'pppp')
    def set_property(self, address, _selector, value, offset):
        self._set_instance_variable(address + offset, self.retain(self.at(value)))

    @imported('_objc_setProperty_nonatomic_copy', 'pppp')
    def set_copied_property(self, address, _selector, value, offset):
        self._set_instance_variable(address + offset, self.copy(self.at(value)))

    def _set_instance_variable(self, place, value):
        old = self._machine.read_pointer(place)
        self._machine.write_pointer(place, value.address if value else 0)
        self.release(self.at(old))

    def copy(self, found):
        """A copy with one reference: the same object, where objects of its class cannot be changed."""
        if found is None:
            return None
        return self.copy_block(found) if found.kind.name == 'NSBlock' else self.retain(found)

    # --- Blocks -----------------------------------------------------------------------------------------

    def invoke(self, block, *arguments, kinds=None):
        """Calls a block."""
        function = self._machine.read_pointer(block.address + 16)
        return self._machine.call(function, block.address, *arguments, kinds='p' + (kinds or 'p' * len(arguments)))

    def run(self, block, *arguments):
        """Calls a block as a queue does, with objects and truth values; uses up a reference to each."""
        pool = self.push_pool()
        self.invoke(block, *(each if isinstance(each, bool) else each.address if each else 0 for each in arguments),
                    kinds=''.join('B' if isinstance(each, bool) else 'p' for each in arguments))
        self.pop_pool(pool)
        for used in (block, *(each for each in arguments if isinstance(each, Object))):
            self.release(used)

    def copy_block(self, block):
        machine = self._machine
        if machine.read_pointer(block.address) != self.block_classes['__NSConcreteStackBlock']:
            return self.retain(block)
        flags = machine.read_uint32(block.address + 8)
        descriptor = machine.read_pointer(block.address + 24)
        size = machine.read_pointer(descriptor + 8)
        address = machine.allocate(size)
        machine.write(address, machine.read(block.address, size))
        machine.write_pointer(address, self.block_classes['__NSConcreteMallocBlock'])
        copied = self.objects[address] = Object(block.kind, address, 'a block')
        if flags & BLOCK_HAS_COPY_DISPOSE:
            machine.call(machine.read_pointer(descriptor + 16), address, block.address)
        return copied

    def _dispose_block(self, address):
        machine = self._machine
        if machine.read_uint32(address + 8) & BLOCK_HAS_COPY_DISPOSE:
            machine.call(machine.read_pointer(machine.read_pointer(address + 24) + 24), address)

    @imported('__Block_object_assign', 'ppi')
    def assign_in_block(self, destination, source, flags):
        if flags & BYREF_CALLER:
            target = source
        elif flags == FIELD_BYREF:
            target = self._copy_byref(source)
        elif flags in (FIELD_OBJECT, FIELD_BLOCK):
            found = self.at(source)
            kept = self.copy(found) if flags == FIELD_BLOCK else self.retain(found)
            target = kept.address if kept else 0
        else:
            raise Failure(f'a block captures a variable of the unknown kind {flags}')
        self._machine.write_pointer(destination, target)

    @imported('__Block_object_dispose', 'pi')
    def dispose_in_block(self, captured, flags):
        if flags & BYREF_CALLER:
            return
        if flags == FIELD_BYREF:
            self._release_byref(captured)
        else:
            self.release(self.at(captured))

    def _copy_byref(self, source):
        """A variable that blocks share moves to the heap with the first of them."""
        machine = self._machine
        forwarding = machine.read_pointer(source + 8)
        if forwarding in self._byrefs:
            self._byrefs[forwarding] += 1
            return forwarding
        flags, size = struct.unpack('<II', machine.read(source + 16, 8))
        address = machine.allocate(size)
        machine.write(address, machine.read(source, size))
        if flags & BYREF_HAS_COPY_DISPOSE:
            machine.call(machine.read_pointer(source + 24), address, source)
        machine.write_pointer(address + 8, address)
        machine.write_pointer(source + 8, address)
        # One for the block and one for the function whose variable it was.
        self._byrefs[address] = 2
        return address

    def _release_byref(self, captured):
        machine = self._machine
        address = machine.read_pointer(captured + 8)
        if address not in self._byrefs:
            # It never left the stack.
            return
        self._byrefs[address] -= 1
        if self._byrefs[address] == 0:
            del self._byrefs[address]
            if machine.read_uint32(address + 16) & BYREF_HAS_COPY_DISPOSE:
                machine.call(machine.read_pointer(address + 32), address)

    def remains(self):
        faults = ['an autorelease pool' for _ in self._pools]
        faults += ['a variable that blocks share' for _ in self._byrefs]
        return faults


def quoted(text):
    return '"' + text.replace('\\', '\\\\').replace('"', '\\"').replace('\n', '\\n').replace('\r', '\\r') \
        .replace('\x1b', '\\x1b') + '"'


def abi_kind(kind):
    """How an argument is passed that is described in a way of its own."""
    return 'p' if kind in 'okscP' else kind


def message_text(target, selector, arguments):
    if not arguments:
        return f'[{target.name} {selector}]'
    parts = selector.split(':')
    return f'[{target.name} {" ".join(f"{part}:{argument}" for part, argument in zip(parts, arguments))}]'
