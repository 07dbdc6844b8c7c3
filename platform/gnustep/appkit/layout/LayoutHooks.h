#ifndef PLATFORM_LAYOUT_LAYOUTHOOKS_H
#define PLATFORM_LAYOUT_LAYOUTHOOKS_H

namespace platform::layout {

/// Puts Auto Layout in the way of those methods of NSView and NSWindow that change frames,
/// hierarchy and display; what was there runs as before. The first call does it, so a process that
/// uses no constraints has GNUstep as it is.
void installHooks();

}  // namespace platform::layout

#endif
