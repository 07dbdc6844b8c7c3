// Objects to and from frames. Only the classes named here are ever made from what a peer sends.

#import <Foundation/Foundation.h>

#include "signature.h"
#include "wire.h"

namespace platform::xpc {

/// Writes `object` (nil too). Raises NSInvalidArgumentException for a class that cannot be sent, or
/// for objects nested too deeply; `writer` is then half written. Of an error's user info, what
/// cannot be sent is left out.
void EncodeObject(Writer *writer, id object);

/// Writes an argument of `type` that lies at `value`. A block becomes its mark.
void EncodeArgument(Writer *writer, const Type &type, const void *value);

/// Makes the object at `*item`, owned by the caller, and moves behind its items.
/// @param allowed  The classes of the objects that may be there, or nil for any.
/// @param problem  What is wrong, where something is; nil is returned then, and for a nil.
id DecodeObject(const Item **item, NSSet *allowed, const char **problem);

/// Reads one argument of `type` other than a block into `slot`. Returns nullptr or what is wrong.
/// An object is owned by the caller.
const char *DecodeArgument(const Item **item, const Type &type, NSSet *allowed, Slot *slot);

/// All classes that can be sent.
NSSet *CodableClasses();

}  // namespace platform::xpc
