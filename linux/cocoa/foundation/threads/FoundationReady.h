#ifndef PLATFORM_FOUNDATION_FOUNDATIONREADY_H
#define PLATFORM_FOUNDATION_FOUNDATIONREADY_H

#ifdef __cplusplus
extern "C" {
#endif

/// Has GNUstep set up, on the calling thread, what it would else set up at a first use. Called
/// before a thread of the layer's own can be started; cheap after the first time. Any thread.
///
/// libobjc holds its one lock while a class is initialized. Where that class asks for the defaults
/// or for the temporary folder, GNUstep takes locks of its own, and a thread that has one of those
/// and makes its first object of some class wants libobjc's: the two wait for each other for good.
void PlatformMakeFoundationReady(void);

#ifdef __cplusplus
}
#endif

#endif
