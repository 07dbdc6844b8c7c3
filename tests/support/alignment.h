#ifndef TESTS_UNIT_ALIGNMENT_H
#define TESTS_UNIT_ALIGNMENT_H

#import <AppKit/AppKit.h>

/// What constraints place of a view, in the coordinates of its window. Frames of controls are
/// larger by what is drawn around them, which is different from one system to the next.
inline NSRect AlignmentOf(NSView *view) {
  return [view.superview convertRect:[view alignmentRectForFrame:view.frame] toView:nil];
}

#endif
