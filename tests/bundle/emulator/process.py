"""An application that has loaded the bundle: the image in memory, bound to the models of its surroundings."""

import struct

from unicorn import UC_PROT_EXEC, UC_PROT_READ, UC_PROT_WRITE

from agent import Agent
from engine import Engine, ScriptObject
from failure import Failure
from frameworks import read_classes
from imports import functions_of
from machine import IMAGE, Machine
from objects import ObjectiveC, quoted
from system import System

PROTECTIONS = {'r': UC_PROT_READ, 'w': UC_PROT_WRITE, 'x': UC_PROT_EXEC}

FONT_WEIGHTS = {'UltraLight': -0.8, 'Thin': -0.6, 'Light': -0.4, 'Regular': 0.0, 'Medium': 0.23, 'Semibold': 0.3,
                'Bold': 0.4, 'Heavy': 0.56, 'Black': 0.62}

CONSTANT_STRINGS = ('NSCocoaErrorDomain', 'NSLocalizedDescriptionKey', 'NSAppearanceNameAqua',
                    'NSAccessibilityDialogSubrole', 'NSImageNameApplicationIcon')


class Process:
    """Maps the image at another address than it was linked for and runs its initialisers."""

    def __init__(self, image, layout, is_oldest_system=False):
        self.image = image
        self.transcript = []
        self.current_message = ''
        self.translations = {}
        self.defaults = {}
        self.is_dark = False
        self.is_oldest_system = is_oldest_system
        self.system_version = (10, 10, 0) if is_oldest_system else (14, 0, 0)
        self._shared = {}
        self.machine = Machine(image.architecture)
        self.objc = ObjectiveC(self, read_classes())
        self.engine = Engine(self, layout)
        self.system = System(self)
        self.agent = Agent(self)
        self._constants = self._make_constants()
        self._functions = {}
        for model in (self.objc, self.engine, self.system):
            self._functions.update(functions_of(model))
        self._symbols = {}
        self._load()

    # --- Loading ----------------------------------------------------------------------------------------

    def _load(self):
        machine, segments = self.machine, self.image.segments
        machine.map_image(segments)
        content = bytearray(max(segment.address + segment.size for segment in segments))
        for segment in segments:
            content[segment.address:segment.address + len(segment.content)] = segment.content
        for address in self.image.rebases:
            pointer, = struct.unpack_from('<Q', content, address)
            struct.pack_into('<Q', content, address, pointer + IMAGE)
        for bind in self.image.binds:
            target = self._symbol(bind)
            struct.pack_into('<Q', content, bind.address, target + bind.addend if target else 0)
        machine.protect(IMAGE, len(content), UC_PROT_READ | UC_PROT_WRITE)
        machine.write(IMAGE, content)
        self.objc.read_image(self.pointers('__objc_classlist'), self.pointers('__objc_catlist'))
        for segment in segments:
            protection = sum(PROTECTIONS.get(letter, 0) for letter in segment.protection)
            if segment.is_read_only_after_binding:
                protection &= ~UC_PROT_WRITE
            machine.protect(IMAGE + segment.address, segment.size, protection)
        for function in self.pointers('__mod_init_func'):
            # main's arguments, as dyld hands them to initialisers.
            machine.call(function, 0, 0, 0, 0)

    def pointers(self, section_name):
        """What a section that is a list of pointers holds."""
        section = self.image.sections.get(section_name)
        places = range(0, section.size, 8) if section else ()
        return [self.machine.read_pointer(IMAGE + section.address + place) for place in places]

    def _symbol(self, bind):
        """The address of a symbol: every one has its own."""
        if bind.is_weak and self.is_oldest_system:
            return 0
        name = bind.symbol
        if name not in self._symbols:
            address = self._constants.get(name) or self.system.data.get(name) or self.objc.data(name)
            self._symbols[name] = address or self.machine.add_function(name, self._functions.get(name))
        return self._symbols[name]

    def _make_constants(self):
        add = self.machine.add_data
        constants = {f'_NSFontWeight{name}': add(f'NSFontWeight{name}', struct.pack('<d', value))
                     for name, value in FONT_WEIGHTS.items()}
        version = 1348.17 if self.is_oldest_system else 2487.0
        constants['_NSAppKitVersionNumber'] = add('NSAppKitVersionNumber', struct.pack('<d', version))
        constants['_NSZeroRect'] = add('NSZeroRect', bytes(32))
        for name in CONSTANT_STRINGS:
            string = self.objc.make_immortal('NSString', name, name)
            constants[f'_{name}'] = add(name, struct.pack('<Q', string.address))
        return constants

    # --- What models share ------------------------------------------------------------------------------

    def record(self, text):
        self.transcript.append(text)

    def shared(self, class_name):
        """The one object of a class."""
        if class_name not in self._shared:
            self._shared[class_name] = self.objc.make_immortal(class_name, f'the {class_name}')
        return self._shared[class_name]

    def constant_string(self, text):
        return self.objc.make_immortal('NSString', f'@{quoted(text)}', text)

    def read_objects(self, address, count):
        return [self.objc.at(self.machine.read_pointer(address + 8 * index)) for index in range(count)]

    # --- What happens in the application ----------------------------------------------------------------

    def require(self):
        """Has the bundle fill an exports object, as Node does; returns the functions by name."""
        exports = ScriptObject('exports')
        self.engine.initialize_module(self.module_record()['register'], exports)
        return exports.properties

    def module_record(self):
        """The fields of `node::node_module` of <node.h>."""
        if len(self.engine.modules) != 1:
            raise Failure(f'node_module_register was called {len(self.engine.modules)} times')
        version, flags, handle, file, register, in_context, name, private, link = struct.unpack(
            '<iI7Q', self.machine.read(self.engine.modules[0], 64))
        text = self.machine.read_text
        return {'version': version, 'flags': flags, 'handle': handle, 'file': text(file).decode(),
                'register': register, 'registerInContext': in_context, 'name': text(name).decode(),
                'private': private, 'link': link}

    def run_main_queue(self):
        """An iteration of the main run loop, where no handle scope is open and no context entered."""
        while self.system.main_blocks:
            self.objc.run(self.system.main_blocks.pop(0))

    def run_connections(self):
        """Has the connections' queue do what it has to do."""
        while self.agent.reply_once():
            pass

    def press(self, key, value):
        """Has the button whose title or key equivalent is `value` send its action."""
        for button in self.objc.living('NSButton'):
            found = button.properties.get(key)
            if found and found.payload == value:
                pool = self.objc.push_pool()
                self.objc.send(button.target, button.action, button.address)
                self.objc.pop_pool(pool)
                return
        raise Failure(f'no button has the {key} {quoted(value)}')

    def turn_dark(self):
        self.is_dark = True
        change = self.objc.make_immortal('NSDictionary', '{}', {})
        pool = self.objc.push_pool()
        for window in self.objc.living('AFXPermissionWindow'):
            for observer, path in window.observers:
                self.objc.send(observer, 'observeValueForKeyPath:ofObject:change:context:',
                               self.constant_string(path).address, window.address, change.address, 0)
        self.objc.pop_pool(pool)

    def exit(self):
        for function, argument in reversed(self.system.exit_functions):
            self.machine.call(function, argument)
        self.system.exit_functions = []

    def remains(self):
        return [*self.engine.remains(), *self.objc.remains(), *self.system.remains()]
