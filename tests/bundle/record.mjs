// The record by which an old-style add-on announces itself to Node: `node::node_module` of <node.h>.

const RECORD_SIZE = 64;

/** What the loader leaves in a pointer field: a text, the name of a section, or null. */
function describePointer(slice, address) {
  if (slice.bound.has(address)) {
    return slice.bound.get(address);
  }
  const target = slice.pointer(address);
  if (target === 0) {
    return null;
  }
  const section = slice.sectionAt(target)?.name;
  return section === '__cstring' ? slice.string(target) : section;
}

function readRecord(slice, address) {
  return {
    version: slice.int32(address),
    flags: slice.uint32(address + 4),
    handle: describePointer(slice, address + 8),
    file: describePointer(slice, address + 16),
    register: describePointer(slice, address + 24),
    registerInContext: describePointer(slice, address + 32),
    name: describePointer(slice, address + 40),
    privateData: describePointer(slice, address + 48),
    link: describePointer(slice, address + 56),
  };
}

/** Where `slice` has records of the module `name`, in memory that the runtime can chain them in. */
export function moduleRecordAddresses(slice, name) {
  const section = slice.section('__data');
  const addresses = [];
  for (let at = section.address; at + RECORD_SIZE <= section.address + section.size; at += 8) {
    if (describePointer(slice, at + 40) === name) {
      addresses.push(at);
    }
  }
  return addresses;
}

/** The records of the module `name`. */
export function readModuleRecords(slice, name) {
  return moduleRecordAddresses(slice, name).map((address) => readRecord(slice, address));
}
