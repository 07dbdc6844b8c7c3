"""A small model of the script engine of module version 85, and of what Node adds to it.

Its objects are in memory as the engine's headers describe them for compressed pointers, so that the
functions which the headers put into the bundle read them: a tagged field is 32 bits wide, an object's
address is that number plus the base of a cage of 4 GiB, a small integer has 31 bits. Handles, roots and the
slots of a call hold whole addresses. Functions outside the bundle are the methods of `Engine`.

Nothing is ever collected or moved. A handle is dead after its scope, and what is not a live handle is
refused wherever one is expected.
"""

import struct

from failure import Failure
from imports import imported, imported_raw

CAGE = 0x2A_0000_0000
ISOLATE = CAGE
ISOLATE_SIZE = 0x4000
# Not at the start of the cage, so that a field which is taken for an address leads nowhere.
OBJECTS = CAGE + 0x0808_0000
OBJECTS_SIZE = 0x4_0000

TAG = 1
SMI_MINIMUM, SMI_MAXIMUM = -(1 << 30), (1 << 30) - 1

# Instance types. The headers give the first that is no string's, that of undefined and its like, and
# that of objects; between and above them stand the others, of which the bundle's code knows none.
TYPE_STRING = 0x28
TYPE_MAP = 0x47
TYPE_HEAP_NUMBER = 0x41
FUNCTION_ABOVE_OBJECT = 0x30

DEAD_HANDLE = 0xDEAD_0000_0000_DEAD


class ScriptObject:
    """An object of the script. `text` is what it is converted to; None for one that throws instead."""

    def __init__(self, name, text='[object Object]'):
        self.name = name
        self.text = text
        self.properties = {}

    def __repr__(self):
        return self.name


class ScriptFunction(ScriptObject):
    """A function of the script. `body` gets the arguments of a call; what it raises is thrown."""

    def __init__(self, name, body=None, handler=None):
        super().__init__(f'function {name}', f'function {name}() {{}}')
        self.body = body or (lambda *arguments: UNDEFINED)
        # The bundle's function, if it is one of the bundle's.
        self.handler = handler


class ScriptError(ScriptObject):
    def __init__(self, kind, message):
        super().__init__(f'{kind} {quote(message)}', f'{kind}: {message}')


class ScriptException(Exception):
    """Raised by the body of a script's function: what it throws."""


class Undefined:
    def __repr__(self):
        return 'undefined'


class Hole:
    def __repr__(self):
        return 'the hole'


UNDEFINED, THE_HOLE = Undefined(), Hole()


def quote(text):
    return '"' + text.replace('\\', '\\\\').replace('"', '\\"').replace('\n', '\\n') + '"'


def describe(value):
    """A value as scripts write it."""
    if value is None:
        return 'null'
    if isinstance(value, bool):
        return 'true' if value else 'false'
    if isinstance(value, float) and value.is_integer():
        return str(int(value))
    return quote(value) if isinstance(value, str) else repr(value)


def to_text(value):
    """What the engine converts a value to; None if the conversion throws."""
    if isinstance(value, ScriptObject):
        return value.text
    return value if isinstance(value, str) else describe(value)


class Engine:
    def __init__(self, process, layout):
        self._process = process
        self._machine = process.machine
        self._layout = layout
        self._next_object = OBJECTS
        self._values = {}
        self._addresses = {}
        self._maps = {}
        self._slots = {}
        self._scopes = []
        self._persistent = {}
        self._contexts = []
        self._next_async = 41
        self.modules = []
        self.pending = None
        self.global_object = ScriptObject('the global object')
        self.context = ScriptObject('the context')

        machine = self._machine
        machine.map(ISOLATE, ISOLATE_SIZE)
        machine.map(OBJECTS, OBJECTS_SIZE)
        roots = {
            layout.kUndefinedValueRootIndex: UNDEFINED,
            layout.kTheHoleValueRootIndex: THE_HOLE,
            layout.kNullValueRootIndex: None,
            layout.kTrueValueRootIndex: True,
            layout.kFalseValueRootIndex: False,
            layout.kEmptyStringRootIndex: '',
        }
        for index, value in roots.items():
            slot = ISOLATE + layout.kIsolateRootsOffset + index * 8
            machine.write_pointer(slot, self.tag(value))
            self._slots[slot] = None

    # --- The heap ---------------------------------------------------------------------------------------

    def tag(self, value):
        """The tagged word of a Python value: an integer, a float, a text, True, None, …"""
        if isinstance(value, int) and not isinstance(value, bool):
            if SMI_MINIMUM <= value <= SMI_MAXIMUM:
                return (value << 1) & ((1 << 64) - 1)
            value = float(value)
        key = (type(value), value)
        if key not in self._addresses:
            self._addresses[key] = self._build(value)
        return self._addresses[key]

    def _allocate(self, content):
        address = self._next_object
        self._next_object += -(-len(content) // 8) * 8 + 8
        if self._next_object > OBJECTS + OBJECTS_SIZE:
            raise Failure('the heap of the engine is full')
        self._machine.write(address, content)
        return address + TAG

    def _map_word(self, instance_type):
        """What an object of that type begins with: the low half of its map's address."""
        if instance_type not in self._maps:
            # The map of maps is its own.
            own = (self._next_object + TAG) & 0xFFFF_FFFF
            word = own if instance_type == TYPE_MAP else self._map_word(TYPE_MAP)
            content = bytearray(b'\xC5' * 40)
            struct.pack_into('<I', content, self._layout.kHeapObjectMapOffset, word)
            struct.pack_into('<H', content, self._layout.kMapInstanceTypeOffset, instance_type)
            self._maps[instance_type] = self._allocate(content)
        return self._maps[instance_type] & 0xFFFF_FFFF

    def _build(self, value):
        layout = self._layout
        if isinstance(value, str):
            characters = value.encode('utf-16-le')
            content = struct.pack('<III', self._map_word(TYPE_STRING), 3, len(characters) // 2) + characters
        elif isinstance(value, float):
            content = struct.pack('<Id', self._map_word(TYPE_HEAP_NUMBER), value)
        elif value in (UNDEFINED, THE_HOLE, None, True, False):
            kind = {UNDEFINED: layout.kUndefinedOddballKind, None: layout.kNullOddballKind}.get(value, 1)
            content = bytearray(b'\xC5' * (layout.kOddballKindOffset + 4))
            struct.pack_into('<I', content, 0, self._map_word(layout.kOddballType))
            struct.pack_into('<I', content, layout.kOddballKindOffset, kind << 1)
        else:
            above = FUNCTION_ABOVE_OBJECT if isinstance(value, ScriptFunction) else 0
            content = bytearray(b'\xC5' * (layout.kJSObjectHeaderSize + 8))
            struct.pack_into('<I', content, 0, self._map_word(layout.kJSObjectType + above))
        address = self._allocate(content)
        self._values[address] = value
        return address

    def untag(self, word):
        """The Python value of a tagged word."""
        if word & 1 == 0:
            return struct.unpack('<i', struct.pack('<I', word & 0xFFFF_FFFF))[0] >> 1
        if word not in self._values:
            raise Failure(f'0x{word:x} is taken for a value of the engine')
        return self._values[word]

    # --- Handles ----------------------------------------------------------------------------------------

    def handle(self, value):
        """A new local handle in the innermost scope."""
        return self._handle_of(self.tag(value))

    def _handle_of(self, word):
        if not self._scopes:
            raise Failure('a handle is made where no handle scope is open')
        slot = self._machine.allocate(8, 8)
        self._machine.write_pointer(slot, word)
        self._slots[slot] = self._scopes[-1]
        return slot

    def value(self, handle):
        if handle not in self._slots:
            raise Failure(f'{self._machine.describe(handle)} is taken for a handle'
                          if handle else 'an empty handle is used')
        return self.untag(self._machine.read_pointer(handle))

    def _open_scope(self, owner):
        scope = {'owner': owner}
        self._scopes.append(scope)

    def _close_scope(self, owner):
        if not self._scopes or self._scopes[-1]['owner'] != owner:
            raise Failure('a handle scope is closed that is not the innermost')
        scope = self._scopes.pop()
        for slot in [slot for slot, kept in self._slots.items() if kept is scope]:
            self._machine.write_pointer(slot, DEAD_HANDLE)
            del self._slots[slot]

    @imported('__ZN2v811HandleScopeC1EPNS_7IsolateE', 'pp', 'p')
    def handle_scope(self, scope, isolate):
        self._expect_isolate(isolate)
        self._machine.write_pointer(scope, isolate)
        self._open_scope(scope)
        return scope

    @imported('__ZN2v811HandleScopeD1Ev', 'p', 'p')
    @imported('__ZN2v811HandleScopeD2Ev', 'p', 'p')
    def close_handle_scope(self, scope):
        self._close_scope(scope)
        return scope

    @imported('__ZN2v820EscapableHandleScopeC1EPNS_7IsolateE', 'pp', 'p')
    def escapable_handle_scope(self, scope, isolate):
        self._expect_isolate(isolate)
        escaped = self._handle_of(self.tag(THE_HOLE))
        self._open_scope(scope)
        self._scopes[-1]['escaped'] = escaped
        return scope

    @imported('__ZN2v820EscapableHandleScope6EscapeEPm', 'pp', 'p')
    def escape(self, scope, handle):
        if self._scopes[-1]['owner'] != scope or 'escaped' not in self._scopes[-1]:
            raise Failure('a handle escapes from a scope that is not the innermost')
        if handle == 0:
            return 0
        escaped = self._scopes[-1].pop('escaped')
        self._machine.write_pointer(escaped, self.tag(self.value(handle)))
        return escaped

    @imported('__ZN2v811HandleScope12CreateHandleEPNS_8internal7IsolateEm', 'pQ', 'p')
    def create_handle(self, isolate, word):
        self._expect_isolate(isolate)
        self.untag(word)
        return self._handle_of(word)

    @imported('__ZN2v82V818GlobalizeReferenceEPNS_8internal7IsolateEPm', 'pp', 'p')
    def globalize(self, isolate, handle):
        self._expect_isolate(isolate)
        value = self.value(handle)
        self._record(f'v8::V8::GlobalizeReference({describe(value)})')
        slot = self._machine.allocate(8, 8)
        self._machine.write_pointer(slot, self.tag(value))
        self._persistent[slot] = value
        return slot

    @imported('__ZN2v82V813DisposeGlobalEPm', 'p')
    def dispose_global(self, slot):
        if slot not in self._persistent:
            raise Failure('an invalid persistent handle is disposed of')
        self._record(f'v8::V8::DisposeGlobal({describe(self._persistent.pop(slot))})')
        self._machine.write_pointer(slot, DEAD_HANDLE)

    @imported('__ZN2v82V812ToLocalEmptyEv')
    def to_local_empty(self):
        raise Failure('an empty handle ends the application')

    # --- Isolate and context ----------------------------------------------------------------------------

    def _expect_isolate(self, isolate):
        if isolate != ISOLATE:
            raise Failure(f'{self._machine.describe(isolate)} is taken for the isolate')

    def _expect_context(self, handle):
        if self.value(handle) is not self.context:
            raise Failure(f'{describe(self.value(handle))} is taken for the context')

    @imported('__ZN2v87Isolate10GetCurrentEv', '', 'p')
    def current_isolate(self):
        return ISOLATE

    @imported('__ZN2v86Object10GetIsolateEv', 'p', 'p')
    def isolate_of(self, handle):
        self.value(handle)
        return ISOLATE

    @imported('__ZN2v87Isolate9InContextEv', 'p', 'B')
    def in_context(self, isolate):
        self._expect_isolate(isolate)
        return len(self._contexts) > 0

    @imported('__ZN2v87Isolate17GetCurrentContextEv', 'p', 'p')
    def current_context(self, isolate):
        self._expect_isolate(isolate)
        return self.handle(self.context) if self._contexts else 0

    @imported('__ZN2v86Object15CreationContextEv', 'p', 'p')
    def creation_context(self, handle):
        self._record(f'v8::Object::CreationContext({describe(self.value(handle))})')
        return self.handle(self.context)

    @imported('__ZN2v87Context5EnterEv', 'p')
    def enter_context(self, handle):
        self._expect_context(handle)
        self._record('v8::Context::Enter()')
        self._contexts.append(handle)

    @imported('__ZN2v87Context4ExitEv', 'p')
    def exit_context(self, handle):
        self._expect_context(handle)
        if not self._contexts:
            raise Failure('a context is left that was not entered')
        self._record('v8::Context::Exit()')
        self._contexts.pop()

    @imported('__ZN2v87Context6GlobalEv', 'p', 'p')
    def global_of(self, handle):
        self._expect_context(handle)
        return self.handle(self.global_object)

    # --- Values -----------------------------------------------------------------------------------------

    @imported('__ZN2v86String11NewFromUtf8EPNS_7IsolateEPKcNS_13NewStringTypeEi', 'ppii', 'p')
    def new_string(self, isolate, text, string_type, length):
        self._expect_isolate(isolate)
        content = self._machine.read_text(text) if length < 0 else self._machine.read(text, length)
        value = content.decode()
        kind = {0: 'normal', 1: 'internalized'}[string_type]
        self._record(f'v8::String::NewFromUtf8({quote(value)}, {kind}, {length})')
        return self.handle(value)

    @imported('__ZN2v86String9Utf8ValueC1EPNS_7IsolateENS_5LocalINS_5ValueEEE', 'ppp', 'p')
    def utf8_value(self, this, isolate, handle):
        self._expect_isolate(isolate)
        value = self.value(handle)
        self._record(f'v8::String::Utf8Value({describe(value)})')
        text = to_text(value)
        if text is None:
            content, address = b'', 0
        else:
            content = text.encode('utf-8', 'replace')
            address = self._machine.allocate(len(content) + 1)
            self._machine.write(address, content + b'\0')
        self._process.system.note_allocation(this, 'the text of a value')
        self._machine.write(this, struct.pack('<Qi', address, len(content)))
        return this

    @imported('__ZN2v86String9Utf8ValueD1Ev', 'p', 'p')
    def release_utf8_value(self, this):
        self._process.system.forget_allocation(this, 'the text of a value')
        return this

    @imported('__ZN2v87Integer3NewEPNS_7IsolateEi', 'pi', 'p')
    def new_integer(self, isolate, value):
        self._expect_isolate(isolate)
        self._record(f'v8::Integer::New({value})')
        return self.handle(value)

    @imported('__ZNK2v85Value7ToInt32ENS_5LocalINS_7ContextEEE', 'pp', 'p')
    def to_int32(self, handle, context):
        self._expect_context(context)
        self._record(f'v8::Value::ToInt32({describe(self.value(handle))})')
        return self.handle(self.value(handle))

    @imported('__ZNK2v85Value10IsFunctionEv', 'p', 'B')
    def is_function(self, handle):
        self._record(f'v8::Value::IsFunction({describe(self.value(handle))})')
        return isinstance(self.value(handle), ScriptFunction)

    @imported('__ZNK2v85Value9IsBooleanEv', 'p', 'B')
    def is_boolean(self, handle):
        self._record(f'v8::Value::IsBoolean({describe(self.value(handle))})')
        return isinstance(self.value(handle), bool)

    @imported('__ZNK2v85Value6IsTrueEv', 'p', 'B')
    def is_true(self, handle):
        self._record(f'v8::Value::IsTrue({describe(self.value(handle))})')
        return self.value(handle) is True

    @imported('__ZN2v86Object3NewEPNS_7IsolateE', 'p', 'p')
    def new_object(self, isolate):
        self._expect_isolate(isolate)
        self._record('v8::Object::New()')
        return self.handle(ScriptObject('{}'))

    @imported('__ZN2v86Object3SetENS_5LocalINS_7ContextEEENS1_INS_5ValueEEES5_', 'pppp', 'Q')
    def set_property(self, handle, context, name, value):
        self._expect_context(context)
        receiver, name, value = (self.value(each) for each in (handle, name, value))
        self._record(f'v8::Object::Set({describe(receiver)}, {describe(name)}, {describe(value)})')
        receiver.properties[name] = value
        # Maybe<bool>: whether there is a value, and the value.
        return 0x0101

    @imported('__ZN2v816FunctionTemplate3NewEPNS_7IsolateEPFvRKNS_20FunctionCallbackInfoINS_5ValueEEEENS_5Local'
              'IS4_EENSA_INS_9SignatureEEEiNS_19ConstructorBehaviorENS_14SideEffectTypeEPKNS_9CFunctionE',
              'ppppiiip', 'p')
    def new_function_template(self, isolate, handler, data, signature, length, behavior, side_effect, c_function):
        self._expect_isolate(isolate)
        if (data, signature, length, behavior, side_effect, c_function) != (0, 0, 0, 1, 0, 0):
            raise Failure('a function template is made with other than the defaults')
        self._record(f'v8::FunctionTemplate::New({self._machine.describe(handler)}, defaults)')
        template = ScriptObject('a function template')
        template.handler = handler
        return self.handle(template)

    @imported('__ZN2v816FunctionTemplate11GetFunctionENS_5LocalINS_7ContextEEE', 'pp', 'p')
    def get_function(self, handle, context):
        self._expect_context(context)
        self._record('v8::FunctionTemplate::GetFunction()')
        return self.handle(ScriptFunction('of the bundle', handler=self.value(handle).handler))

    # --- Exceptions -------------------------------------------------------------------------------------

    @imported('__ZN2v89Exception9TypeErrorENS_5LocalINS_6StringEEE', 'p', 'p')
    def type_error(self, handle):
        message = self.value(handle)
        self._record(f'v8::Exception::TypeError({describe(message)})')
        return self.handle(ScriptError('TypeError', message))

    @imported('__ZN2v87Isolate14ThrowExceptionENS_5LocalINS_5ValueEEE', 'pp', 'p')
    def throw_exception(self, isolate, handle):
        self._expect_isolate(isolate)
        self.pending = self.value(handle)
        self._record(f'v8::Isolate::ThrowException({describe(self.pending)})')
        return self.handle(UNDEFINED)

    # --- Node -------------------------------------------------------------------------------------------

    @imported('_node_module_register', 'p')
    def register_module(self, record):
        self._record(f'node_module_register({self._machine.describe(record)})')
        self.modules.append(record)

    @imported_raw('__ZN4node13EmitAsyncInitEPN2v87IsolateENS0_5LocalINS0_6ObjectEEENS3_INS0_6StringEEEd')
    def emit_async_init(self, call):
        isolate, resource, name, trigger = call.arguments('pppd')
        self._expect_isolate(isolate)
        self._record(f'node::EmitAsyncInit({describe(self.value(resource))}, {describe(self.value(name))}, '
                     f'trigger {trigger:g})')
        self._next_async += 1
        # async_context: two doubles.
        call.finish('S', (float(self._next_async), 7.0))

    @imported_raw('__ZN4node16EmitAsyncDestroyEPN2v87IsolateENS_13async_contextE')
    def emit_async_destroy(self, call):
        isolate, context = call.arguments('pS')
        self._expect_isolate(isolate)
        self._record(f'node::EmitAsyncDestroy(async {context[0]:g}/{context[1]:g})')
        call.finish()

    @imported_raw('__ZN4node12MakeCallbackEPN2v87IsolateENS0_5LocalINS0_6ObjectEEENS3_INS0_8FunctionEEEiPNS3_INS0_'
                  '5ValueEEENS_13async_contextE')
    def make_callback(self, call):
        isolate, receiver, function, count, values, context = call.arguments('pppipS')
        self._expect_isolate(isolate)
        if not self._contexts:
            raise Failure('a callback is made where no context is entered')
        receiver, function = self.value(receiver), self.value(function)
        arguments = [self.value(self._machine.read_pointer(values + index * 8)) for index in range(count)]
        self._record(f'node::MakeCallback({describe(receiver)}, {describe(function)}, '
                     f'[{", ".join(map(describe, arguments))}], async {context[0]:g}/{context[1]:g})')
        try:
            result = self.handle(function.body(*arguments))
        except ScriptException as exception:
            self.pending = exception.args[0]
            result = 0
        call.finish('p', result)

    # --- What scripts do --------------------------------------------------------------------------------

    def _record(self, text):
        self._process.record(text)

    def initialize_module(self, function, exports):
        """Calls a module's register function as Node does."""
        self._open_scope('the engine')
        self._contexts.append('the engine')
        self._machine.call(function, self.handle(exports), self.handle(ScriptObject('module')), 0)
        self._contexts.pop()
        self._close_scope('the engine')

    def call(self, function, *arguments):
        """Calls a function of the bundle as a script does. Returns its value or what it throws."""
        self._open_scope('the engine')
        self._contexts.append('the engine')
        values = self._machine.allocate(8 * (len(arguments) + 8), 8) + 32
        # The receiver stands below the first argument, since arguments are in the reverse order on the stack.
        for index, value in enumerate((self.global_object, *arguments), start=-1):
            slot = values + index * 8
            self._machine.write_pointer(slot, self.tag(value))
            self._slots[slot] = self._scopes[-1]
        layout = self._layout
        implicit = self._machine.allocate(8 * layout.kArgsLength, 8)
        for index, word in {
                layout.kHolderIndex: self.tag(self.global_object),
                layout.kIsolateIndex: ISOLATE,
                layout.kReturnValueDefaultValueIndex: self.tag(THE_HOLE),
                layout.kReturnValueIndex: self.tag(THE_HOLE),
                layout.kDataIndex: self.tag(UNDEFINED),
                layout.kNewTargetIndex: self.tag(UNDEFINED)}.items():
            self._machine.write_pointer(implicit + index * 8, word)
        info = self._machine.allocate(24)
        self._machine.write(info, struct.pack('<QQi', implicit, values, len(arguments)))

        self._machine.call(function.handler, info)
        result = self.untag(self._machine.read_pointer(implicit + layout.kReturnValueIndex * 8))
        self._contexts.pop()
        self._close_scope('the engine')
        thrown, self.pending = self.pending, None
        if thrown is not None:
            return f'throws {describe(thrown)}'
        return f'returns {describe(UNDEFINED if result is THE_HOLE else result)}'

    def remains(self):
        """What is left of what has to be given back."""
        faults = [f'a handle scope of {self._machine.describe(scope["owner"])}' for scope in self._scopes]
        faults += ['an entered context' for _ in self._contexts]
        faults += [f'a persistent handle to {describe(value)}' for value in self._persistent.values()]
        return faults
