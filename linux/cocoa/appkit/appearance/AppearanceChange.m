#import "appearance/AppearanceChange.h"

#import <AppKit/AppKit.h>

#import "runtime/AssociatedObjects.h"

static const char sAppearanceKey;
static NSString *const sEffectiveAppearance = @"effectiveAppearance";

NSAppearance *PlatformOwnAppearance(id owner) {
  return objc_getAssociatedObject(owner, &sAppearanceKey);
}

static void SetAppearance(id owner, NSAppearance *appearance) {
  objc_setAssociatedObject(owner, &sAppearanceKey, appearance, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
}

/// Adds the owner and everything in it that has an appearance.
static void Gather(id owner, NSMutableArray *gathered) {
  [gathered addObject:owner];
  if (owner == NSApp) {
    for (NSWindow *window in [NSApp windows]) {
      Gather(window, gathered);
    }
  } else if ([owner isKindOfClass:[NSWindow class]]) {
    NSView *frameView = [[owner contentView] superview];
    if (frameView) {
      Gather(frameView, gathered);
    }
  } else {
    for (NSView *view in [owner subviews]) {
      Gather(view, gathered);
    }
  }
}

/// Has everything drawn again that may look different.
static void Redisplay(id owner) {
  if ([owner isKindOfClass:[NSView class]]) {
    [owner setNeedsDisplay:YES];
    return;
  }
  NSArray *windows = owner == NSApp ? [NSApp windows] : @[ owner ];
  for (NSWindow *window in windows) {
    [[[window contentView] superview] setNeedsDisplay:YES];
  }
}

void PlatformSetOwnAppearance(id owner, NSAppearance *appearance) {
  NSMutableArray *members = [NSMutableArray array];
  NSMutableArray *before = [NSMutableArray array];
  Gather(owner, members);
  for (id member in members) {
    [before addObject:[member effectiveAppearance]];
  }

  // Observers that ask for the old value get it only if the change is announced before it happens,
  // and who is affected shows only after it.
  NSAppearance *old = [[PlatformOwnAppearance(owner) retain] autorelease];
  SetAppearance(owner, appearance);
  NSMutableArray *affected = [NSMutableArray array];
  for (NSUInteger i = 0; i < [members count]; i++) {
    id member = [members objectAtIndex:i];
    if ([member effectiveAppearance] != [before objectAtIndex:i]) {
      [affected addObject:member];
    }
  }
  SetAppearance(owner, old);
  for (id member in affected) {
    [member willChangeValueForKey:sEffectiveAppearance];
  }
  SetAppearance(owner, appearance);
  for (id member in affected) {
    [member didChangeValueForKey:sEffectiveAppearance];
  }
  Redisplay(owner);
}

BOOL PlatformAppearanceIsDark(NSView *view) {
  NSString *match = [[view effectiveAppearance]
      bestMatchFromAppearancesWithNames:@[ NSAppearanceNameAqua, NSAppearanceNameDarkAqua ]];
  return [match isEqualToString:NSAppearanceNameDarkAqua];
}
