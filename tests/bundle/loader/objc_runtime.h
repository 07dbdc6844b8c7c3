// Puts what an image has of Objective-C into gcc's runtime.

#ifndef MACHO_OBJC_RUNTIME_H
#define MACHO_OBJC_RUNTIME_H

#include "objc_reader.h"

namespace macho {

/// Registers `read`, changes the image's references and constant strings to the runtime's own, and
/// sets the offsets of variables. What was read must stay as long as the image: its names are kept.
void RegisterObjectiveC(const ObjectiveC &read);

}  // namespace macho

#endif
