// The Objective-C classes, categories and protocols of a slice, read from the records that the runtime
// reads (layouts: <objc/runtime.h> and the runtime's published objc-runtime-new.h).

const RELATIVE_METHODS = 0x80000000;
const ENTRY_SIZE_MASK = 0xfffc;

/** Where a method list's entry has its selector and its type encoding. */
function readMethod(slice, entry, isRelative) {
  if (!isRelative) {
    return {
      selector: slice.string(slice.pointer(entry)),
      types: slice.string(slice.pointer(entry + 8)),
    };
  }
  // Each field is the distance from itself; the selector's leads to a reference to the name.
  return {
    selector: slice.string(slice.pointer(entry + slice.int32(entry))),
    types: slice.string(entry + 4 + slice.int32(entry + 4)),
  };
}

function readMethods(slice, list) {
  if (list === 0) {
    return [];
  }
  const head = slice.uint32(list);
  const isRelative = (head & RELATIVE_METHODS) !== 0;
  return Array.from({ length: slice.uint32(list + 4) }, (_, index) =>
    readMethod(slice, list + 8 + index * (head & ENTRY_SIZE_MASK), isRelative),
  );
}

function readProperties(slice, list) {
  if (list === 0) {
    return [];
  }
  return Array.from({ length: slice.uint32(list + 4) }, (_, index) => ({
    name: slice.string(slice.pointer(list + 8 + index * 16)),
    attributes: slice.string(slice.pointer(list + 16 + index * 16)),
  }));
}

function readProtocolList(slice, list) {
  if (list === 0) {
    return [];
  }
  return Array.from({ length: Number(slice.uint64(list)) }, (_, index) =>
    slice.pointer(list + 8 + index * 8),
  );
}

function protocolName(slice, protocol) {
  return slice.string(slice.pointer(protocol + 8));
}

function readProtocol(slice, protocol) {
  const methods = readMethods(slice, slice.pointer(protocol + 24));
  const extendedTypes = slice.pointer(protocol + 72);
  return {
    name: protocolName(slice, protocol),
    adopts: readProtocolList(slice, slice.pointer(protocol + 16)).map((adopted) =>
      protocolName(slice, adopted),
    ),
    // The extended encoding tells the arguments of a block; a connection builds replies from it.
    methods: methods.map((method, index) => ({
      ...method,
      extendedTypes: slice.string(slice.pointer(extendedTypes + index * 8)),
    })),
    hasOther: [32, 40, 48, 56].some((member) => slice.pointer(protocol + member) !== 0),
  };
}

/** Name of the class that the reference at `address` means, of this image or another. */
function className(slice, address) {
  const symbol = slice.bound.get(address);
  if (symbol !== undefined) {
    return symbol.replace(/^_OBJC_(META)?CLASS_\$_/, '');
  }
  const target = slice.pointer(address);
  return slice.string(slice.pointer(classData(slice, target) + 24));
}

/** Address of a class's read-only part. */
function classData(slice, address) {
  return slice.pointer(address + 32) & ~7;
}

function readClass(slice, address) {
  const data = classData(slice, address);
  const metaData = classData(slice, slice.pointer(address));
  return {
    name: slice.string(slice.pointer(data + 24)),
    superclass: className(slice, address + 8),
    instanceMethods: readMethods(slice, slice.pointer(data + 32)),
    classMethods: readMethods(slice, slice.pointer(metaData + 32)),
    adopts: readProtocolList(slice, slice.pointer(data + 40)).map((protocol) =>
      protocolName(slice, protocol),
    ),
    properties: readProperties(slice, slice.pointer(data + 64)),
  };
}

function readCategory(slice, address) {
  return {
    name: slice.string(slice.pointer(address)),
    class: className(slice, address + 8),
    instanceMethods: readMethods(slice, slice.pointer(address + 16)),
    classMethods: readMethods(slice, slice.pointer(address + 24)),
    adopts: readProtocolList(slice, slice.pointer(address + 32)).map((protocol) =>
      protocolName(slice, protocol),
    ),
    properties: readProperties(slice, slice.pointer(address + 40)),
  };
}

export function readClasses(slice) {
  return slice.pointerList('__objc_classlist').map((address) => readClass(slice, address));
}

export function readCategories(slice) {
  return slice.pointerList('__objc_catlist').map((address) => readCategory(slice, address));
}

export function readProtocols(slice) {
  return slice.pointerList('__objc_protolist').map((address) => readProtocol(slice, address));
}

function findProtocol(slice, name) {
  return slice
    .pointerList('__objc_protolist')
    .find((address) => protocolName(slice, address) === name);
}

/** Where the list of a protocol's required instance methods begins. */
export function protocolMethodList(slice, name) {
  return slice.pointer(findProtocol(slice, name) + 24);
}

/** Where the list of the protocols that a protocol adopts begins. */
export function adoptedProtocolList(slice, name) {
  return slice.pointer(findProtocol(slice, name) + 16);
}

/** Where a category refers to its properties. */
export function categoryPropertyField(slice, className, categoryName) {
  const category = slice.pointerList('__objc_catlist').find((address) => {
    const { class: extended, name } = readCategory(slice, address);
    return extended === className && name === categoryName;
  });
  return category + 40;
}

/** Where the list of a class's properties begins. */
export function classPropertyList(slice, name) {
  const address = slice
    .pointerList('__objc_classlist')
    .find((candidate) => readClass(slice, candidate).name === name);
  return slice.pointer(classData(slice, address) + 64);
}
