"""The classes of Foundation, Core Animation and AppKit that the bundle sends messages to, as far as it does.

`CLASSES` declares them as their headers do: a class and its superclass, then its methods with the types of
their arguments (abi.py; besides: o an object, k a class, s a selector, c a text in C, P a protocol) and
what becomes of a call:

  v        nothing; the object of a setter is kept and retained, unless `weak` follows
  value    a new autoreleased object that is known by the message it comes from
  self     the receiver
  get X    what the setter was given, else a new object of the class X
  do T     the Python function of that name in `Behaviour` gives a result of type T

`quietly` at the end of a line keeps messages out of the list of calls: they only read.
"""

import functools
import hashlib
import inspect
import struct
from pathlib import Path

from failure import Failure
from objects import Method, Object, quoted

CLASSES = """
NSObject
- init = self quietly
- dealloc = do v quietly
- copy = do o quietly
+ class = self quietly
- isKindOfClass: k = do B quietly

NSBlock < NSObject

OS_dispatch_group < NSObject

NSString < NSObject
+ stringWithUTF8String: c = do o
+ stringWithFormat: o ... = do o
- initWithUTF8String: c = do o
- initWithFormat: o ... = do o
- UTF8String = do p quietly
- length = do Q quietly
- isEqualToString: o = do B quietly
- substringToIndex: Q = do o
- stringByAppendingString: o = do o
- rangeOfComposedCharacterSequenceAtIndex: Q = do N

NSArray < NSObject
+ arrayWithObjects:count: pQ = do o quietly
+ arrayWithArray: o = do o quietly
- count = do Q quietly
- countByEnumeratingWithState:objects:count: ppQ = do Q quietly

NSMutableArray < NSArray
- addObject: o = do v quietly
- removeAllObjects = do v quietly

NSDictionary < NSObject
+ dictionaryWithObjects:forKeys:count: ppQ = do o quietly

NSNumber < NSObject
+ numberWithDouble: d = do o quietly

NSData < NSObject
+ dataWithBytes:length: pQ = do o quietly

NSError < NSObject

NSBundle < NSObject
+ mainBundle = do o quietly
- objectForInfoDictionaryKey: o = do o
- localizedStringForKey:value:table: ooo = do o

NSUserDefaults < NSObject
+ standardUserDefaults = do o quietly
- boolForKey: o = do B
- setBool:forKey: Bo = do v

NSProcessInfo < NSObject
+ processInfo = do o quietly
- isOperatingSystemAtLeastVersion: V = do B

NSXPCInterface < NSObject
+ interfaceWithProtocol: P = value

NSXPCConnection < NSObject
- initWithMachServiceName:options: oQ = self
- setRemoteObjectInterface: o = v
- setInterruptionHandler: o = v
- setInvalidationHandler: o = v
- resume = v
- invalidate = do v
- remoteObjectProxy = do o
- remoteObjectProxyWithErrorHandler: o = do o

AgentProxy < NSObject
- checkConnectionWithCallback: o = do v
- reportUsageEvent:eventInfo: oo = do v
- fetchAskingPermissionStatus: o = do v
- updateAllowedCustomerEmail:callback: oo = do v
- showReleaseNotesForAppWithCallback: o = do v

NSColorSpace < NSObject
+ genericRGBColorSpace = value quietly
+ sRGBColorSpace = value quietly

NSColor < NSObject
+ clearColor = value quietly
+ blackColor = value quietly
+ whiteColor = value quietly
+ colorWithRed:green:blue:alpha: dddd = value quietly
+ colorWithColorSpace:components:count: opq = do o quietly
- CGColor = value quietly

NSFont < NSObject
+ systemFontOfSize:weight: dd = value quietly
+ fontWithName:size: od = value quietly

NSImage < NSObject
+ imageNamed: o = value quietly
- initWithData: o = do o quietly
- size = do S quietly

NSAppearance < NSObject
- bestMatchFromAppearancesWithNames: o = do o

NSLayoutConstraint < NSObject
+ constraintsWithVisualFormat:options:metrics:views: oQoo = value quietly
+ constraintWithItem:attribute:relatedBy:toItem:attribute:multiplier:constant: oqqoqdd = value quietly

CALayer < NSObject
- setBackgroundColor: o = v
- setCornerRadius: d = v

NSResponder < NSObject

NSWindow < NSResponder
- initWithContentRect:styleMask:backing:defer: RQQB = self
- setReleasedWhenClosed: B = v
- setMovableByWindowBackground: B = v
- setOpaque: B = v
- setBackgroundColor: o = v
- setHasShadow: B = v
- setContentView: o = v
- contentView = get NSView quietly
- setAccessibilityTitle: o = v
- setAccessibilitySubrole: o = v
- setInitialFirstResponder: o = v weak
- addObserver:forKeyPath:options:context: ooQp = do v
- removeObserver:forKeyPath: oo = do v
- effectiveAppearance = get NSAppearance quietly
- center = v
- isVisible = do B
- makeKeyAndOrderFront: o = do v
- orderOut: o = do v

NSWindowController < NSResponder
- initWithWindow: o = do o
- window = get NSWindow quietly
- isWindowLoaded = do B
- showWindow: o = do v

NSView < NSResponder
- initWithFrame: R = do o
- frame = do R quietly
- setAutoresizingMask: Q = v
- setWantsLayer: B = v
- layer = get CALayer quietly
- superview = do o quietly
- addSubview: o = do v
- addConstraint: o = v
- addConstraints: o = v
- setTranslatesAutoresizingMaskIntoConstraints: B = v
- setUserInterfaceLayoutDirection: q = v
- setNextKeyView: o = v weak

NSCell < NSObject
- setLineBreakMode: Q = v
- setUsesSingleLineMode: B = v
- setAccessibilityLabel: o = v
- setAccessibilityElement: B = v

NSControl < NSView
- cell = get NSCell quietly
- setFont: o = v
- setAlignment: Q = v
- setStringValue: o = v
- stringValue = get NSString quietly
- setAccessibilityLabel: o = v
- setAccessibilityElement: B = v
- setTarget: o = do v
- setAction: s = do v
- setRefusesFirstResponder: B = v
- sizeToFit = v

NSTextField < NSControl
- setEditable: B = v
- setBordered: B = v
- setDrawsBackground: B = v
- setBackgroundColor: o = v
- setTextColor: o = v
- setPreferredMaxLayoutWidth: d = v

NSButton < NSControl
- setBordered: B = v
- setTransparent: B = v
- setBezelStyle: Q = v
- setTitle: o = v
- setImage: o = v
- setImagePosition: Q = v
- setKeyEquivalent: o = v
- setKeyEquivalentModifierMask: Q = v

NSImageView < NSControl
- setImage: o = v
"""

KEY_VALUE_OBSERVING_INITIAL = 4

# The pictures' sizes in points; resources/README.md.
PICTURE_SIZES = {'envelope-light.tiff': (214.0, 149.0), 'envelope-dark.tiff': (214.0, 149.0),
                 'close-light.tiff': (12.0, 12.0), 'close-dark.tiff': (12.0, 12.0)}

PICTURES = {hashlib.sha256(file.read_bytes()).hexdigest(): file.name
            for file in (Path(__file__).parents[3] / 'resources').glob('*.tiff')}


def make_string(process, text):
    return process.objc.make_autoreleased('NSString', f'@{quoted(text)}', text)


def make_array(process, objects):
    made = process.objc.make_autoreleased('NSArray', f'({", ".join(map(repr, objects))})', list(objects))
    for each in objects:
        process.objc.hold(made, each)
    return made


def format_text(process, template, reader):
    """What +stringWithFormat: makes of a format, for the placeholders that the bundle uses."""
    parts = template.split('%')
    text = parts[0]
    rest = iter(parts[1:])
    for part in rest:
        if part.startswith('@'):
            address = reader.next_variadic('p')
            found = process.objc.at(address)
            text += '(null)' if found is None else str(found.payload)
            text += part[1:]
        elif part.startswith('lu'):
            text += str(reader.next_variadic('Q')) + part[2:]
        elif part.startswith('s'):
            text += process.machine.read_text(reader.next_variadic('p')).decode() + part[1:]
        elif part == '':
            text += '%' + next(rest)
        else:
            raise Failure(f'the format {quoted(template)} has a placeholder of which the model has nothing')
    return text


class Behaviour:
    """What methods do: functions of the process, the receiver and the arguments.

    They are named after their selectors with _ for :, and with the class for a class method.
    """

    # --- NSObject ---------------------------------------------------------------------------------------

    def dealloc(process, target):
        process.objc.end(target)

    def copy(process, target):
        return process.objc.copy(target)

    def isKindOfClass_(process, target, kind):
        return kind in target.kind.lineage()

    # --- NSString ---------------------------------------------------------------------------------------

    def stringWithUTF8String_(process, target, address):
        return make_string(process, process.machine.read_text(address).decode())

    def stringWithFormat_(process, target, template, reader):
        return make_string(process, format_text(process, template.payload, reader))

    def initWithUTF8String_(process, target, address):
        target.payload = process.machine.read_text(address).decode()
        target.name = f'@{quoted(target.payload)}'
        return target

    def initWithFormat_(process, target, template, reader):
        target.payload = format_text(process, template.payload, reader)
        target.name = f'@{quoted(target.payload)}'
        return target

    def UTF8String(process, target):
        content = target.payload.encode() + b'\0'
        address = process.machine.allocate(len(content))
        process.machine.write(address, content)
        return address

    def length(process, target):
        return len(target.payload.encode('utf-16-le')) // 2

    def isEqualToString_(process, target, other):
        return other is not None and target.payload == other.payload

    def substringToIndex_(process, target, index):
        return make_string(process, target.payload.encode('utf-16-le')[:index * 2].decode('utf-16-le'))

    def stringByAppendingString_(process, target, other):
        return make_string(process, target.payload + other.payload)

    def rangeOfComposedCharacterSequenceAtIndex_(process, target, index):
        units = target.payload.encode('utf-16-le')
        # A surrogate pair is the only sequence that the cases have.
        is_second = 0xDC <= units[index * 2 + 1] <= 0xDF
        return (index - 1, 2) if is_second else (index, 1)

    # --- Collections and values -------------------------------------------------------------------------

    def arrayWithObjects_count_(process, target, address, count):
        return make_array(process, process.read_objects(address, count))

    def arrayWithArray_(process, target, other):
        return make_array(process, other.payload or [])

    def count(process, target):
        return len(target.payload or [])

    def addObject_(process, target, added):
        target.payload = [*(target.payload or []), added]
        process.objc.hold(target, added)

    def removeAllObjects(process, target):
        target.payload = []
        while target.held:
            process.objc.release(target.held.pop())

    def countByEnumeratingWithState_objects_count_(process, target, state, buffer, count):
        # NSFastEnumerationState: state, items, mutations. All is given at once.
        done, = struct.unpack('<Q', process.machine.read(state, 8))
        objects = target.payload or []
        if done:
            return 0
        items = process.machine.allocate(8 * len(objects) + 8, 8)
        for index, each in enumerate(objects):
            process.machine.write_pointer(items + index * 8, each.address)
        process.machine.write(state, struct.pack('<QQQ', 1, items, items + 8 * len(objects)))
        process.machine.write_pointer(items + 8 * len(objects), 0)
        return len(objects)

    def dictionaryWithObjects_forKeys_count_(process, target, objects, keys, count):
        objects, keys = process.read_objects(objects, count), process.read_objects(keys, count)
        text = ', '.join(f'{key}: {value}' for key, value in zip(keys, objects))
        made = process.objc.make_autoreleased('NSDictionary', f'{{{text}}}', dict(zip(keys, objects)))
        for each in (*objects, *keys):
            process.objc.hold(made, each)
        return made

    def numberWithDouble_(process, target, value):
        return process.objc.make_autoreleased('NSNumber', f'@{value:g}', value)

    def dataWithBytes_length_(process, target, address, length):
        digest = hashlib.sha256(process.machine.read(address, length)).hexdigest()
        name = PICTURES.get(digest, f'{length} bytes')
        return process.objc.make_autoreleased('NSData', f'NSData of {name}', name)

    # --- The application --------------------------------------------------------------------------------

    def NSBundle_mainBundle(process, target):
        return process.shared('NSBundle')

    def objectForInfoDictionaryKey_(process, target, key):
        return process.constant_string({'CFBundleName': 'Editor'}[key.payload])

    def localizedStringForKey_value_table_(process, target, key, value, table):
        return make_string(process, process.translations.get(key.payload, value.payload or key.payload))

    def NSUserDefaults_standardUserDefaults(process, target):
        return process.shared('NSUserDefaults')

    def boolForKey_(process, target, key):
        return process.defaults.get(key.payload, False)

    def setBool_forKey_(process, target, value, key):
        process.defaults[key.payload] = bool(value & 0xFF)

    def NSProcessInfo_processInfo(process, target):
        return process.shared('NSProcessInfo')

    def isOperatingSystemAtLeastVersion_(process, target, version):
        return process.system_version >= version

    # --- The connection and the agent -------------------------------------------------------------------

    def invalidate(process, target):
        process.agent.end(target)

    def remoteObjectProxy(process, target):
        proxy = process.objc.make_autoreleased('AgentProxy', 'the agent', (target, None))
        process.objc.hold(proxy, target)
        return proxy

    def remoteObjectProxyWithErrorHandler_(process, target, handler):
        kept = process.objc.copy(handler)
        proxy = process.objc.make_autoreleased('AgentProxy', 'the agent', (target, kept))
        proxy.held.append(kept)
        process.objc.hold(proxy, target)
        return proxy

    def checkConnectionWithCallback_(process, target, reply):
        process.agent.ask(target, 'check', reply)

    def reportUsageEvent_eventInfo_(process, target, event, info):
        process.agent.tell(target)

    def fetchAskingPermissionStatus_(process, target, reply):
        process.agent.ask(target, 'status', reply)

    def updateAllowedCustomerEmail_callback_(process, target, email, reply):
        process.agent.ask(target, 'update', reply)

    def showReleaseNotesForAppWithCallback_(process, target, reply):
        process.agent.ask(target, 'notes', reply)

    # --- AppKit -----------------------------------------------------------------------------------------

    def colorWithColorSpace_components_count_(process, target, space, components, count):
        values = struct.unpack(f'<{count}d', process.machine.read(components, 8 * count))
        # In 255ths, as colors are written.
        text = ' '.join(f'{value * 255:g}' for value in values)
        return process.objc.make_autoreleased('NSColor', f'NSColor {text} of {space}')

    def initWithData_(process, target, data):
        target.payload = data.payload
        target.name = f'NSImage {data.payload}'
        return target

    def size(process, target):
        return PICTURE_SIZES[target.payload]

    def bestMatchFromAppearancesWithNames_(process, target, names):
        return process.constant_string('NSAppearanceNameDarkAqua' if process.is_dark else 'NSAppearanceNameAqua')

    def addObserver_forKeyPath_options_context_(process, target, observer, path, options, context):
        target.observers = [*getattr(target, 'observers', []), (observer, path.payload)]
        if options & KEY_VALUE_OBSERVING_INITIAL:
            change = process.objc.make_autoreleased('NSDictionary', '{}', {})
            process.objc.send(observer, 'observeValueForKeyPath:ofObject:change:context:',
                              path.address, target.address, change.address, context)

    def removeObserver_forKeyPath_(process, target, observer, path):
        target.observers.remove((observer, path.payload))

    def isVisible(process, target):
        return getattr(target, 'is_visible', False)

    def makeKeyAndOrderFront_(process, target, sender):
        target.is_visible = True

    def orderOut_(process, target, sender):
        target.is_visible = False

    def initWithWindow_(process, target, window):
        target.properties['window'] = process.objc.retain(window)
        return target

    def isWindowLoaded(process, target):
        return 'window' in target.properties

    def showWindow_(process, target, sender):
        window = target.properties['window']
        for question in ('canBecomeKeyWindow', 'canBecomeMainWindow'):
            answer = process.objc.send(window, question) & 0xFF
            process.record(f'{question}: {"YES" if answer else "NO"}')
        window.is_visible = True

    def initWithFrame_(process, target, frame):
        target.payload = frame
        return target

    def frame(process, target):
        return target.payload

    def superview(process, target):
        return getattr(target, 'superview', None)

    def addSubview_(process, target, added):
        added.superview = target
        process.objc.hold(target, added)

    def setTarget_(process, target, receiver):
        # Not retained.
        target.target = receiver

    def setAction_(process, target, selector):
        target.action = process.objc.selector_name(selector)


def _property_name(selector):
    return selector[3].lower() + selector[4:-1]


def _set(selector, is_weak):
    def setter(process, target, *arguments):
        if is_weak or len(arguments) != 1 or not isinstance(arguments[0], Object):
            return
        if selector.startswith('set'):
            name = _property_name(selector)
            old = target.properties.get(name)
            target.properties[name] = process.objc.copy(arguments[0])
            process.objc.release(old)
        else:
            process.objc.hold(target, arguments[0])
    return setter


def _get(selector, class_name):
    def getter(process, target):
        if selector not in target.properties:
            target.properties[selector] = process.objc.make(class_name)
        return target.properties[selector]
    return getter


def _value(class_name):
    return lambda process, *arguments: process.objc.make_autoreleased(class_name, process.current_message)


def _return_self(process, target, *arguments):
    return target


@functools.cache
def read_classes(text=CLASSES):
    """(name, superclass, instance methods, class methods) of every class, superclasses first."""
    classes = []
    for line in filter(None, map(str.strip, text.splitlines())):
        if line[0] not in '+-':
            name, _, superclass = line.partition(' < ')
            classes.append((name, superclass or None, {}, {}))
            continue
        declaration, _, outcome = line[2:].partition(' = ')
        selector, *rest = declaration.split()
        is_variadic = rest[-1:] == ['...']
        kinds = ''.join(rest[:-1] if is_variadic else rest)
        if len(kinds) != selector.count(':'):
            raise ValueError(f'{line}: not one type for each argument')
        word, *details = outcome.split()
        is_quiet = 'quietly' in details
        name = classes[-1][0]
        if word == 'v':
            result, function = 'v', _set(selector, 'weak' in details)
        elif word == 'value':
            result, function = 'o', _value(name)
        elif word == 'self':
            result, function = 'o', _return_self
        elif word == 'get':
            result, function = 'o', _get(selector, details[0])
        else:
            behaviour = selector.replace(':', '_')
            result = details[0]
            function = getattr(Behaviour, f'{name}_{behaviour}', None) or getattr(Behaviour, behaviour)
        classes[-1][2 if line[0] == '-' else 3][selector] = Method(
            selector, kinds, result, function, not is_quiet, is_variadic)
    used = {method.function for _, _, *tables in classes for table in tables for method in table.values()}
    unused = [name for name, function in inspect.getmembers(Behaviour, inspect.isfunction) if function not in used]
    if unused:
        raise ValueError(f'no class declares {", ".join(unused)}')
    return classes
