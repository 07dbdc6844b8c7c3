// Alignment rectangle insets of controls.

#import <AppKit/NSCell.h>
#import <Foundation/NSGeometry.h>

#ifdef __cplusplus
extern "C" {
#endif

/// The insets of a push button or a label, which is a text that cannot be edited and has neither
/// border nor bezel; none for other cells. Constraints align what is inside.
NSEdgeInsets PlatformInsetsOfCell(NSCell *cell);

#ifdef __cplusplus
}
#endif
