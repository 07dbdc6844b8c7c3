#import "AppearanceChange.h"

#import <AppKit/AppKit.h>

#import "AttachedState.h"

static NSString *const kAppearance = @"appearance";
static NSString *const kObserved = @"appearance.observed";
static NSString *const kKey = @"effectiveAppearance";

NSAppearance *PlatformOwnAppearance(id owner) { return PlatformAttachedState(owner, kAppearance); }

void PlatformNoteAppearanceObserver(id owner, NSString *keyPath) {
  if ([keyPath isEqualToString:kKey] || [keyPath hasPrefix:@"effectiveAppearance."])
    PlatformSetAttachedState(owner, kObserved, [NSNull null]);
}

/// Has everything drawn again that may look different.
static void Redisplay(id owner) {
  if ([owner isKindOfClass:[NSView class]]) {
    [owner setNeedsDisplay:YES];
    return;
  }
  NSArray *windows = owner == NSApp ? [NSApp windows] : @[ owner ];
  for (NSWindow *window in windows) [[[window contentView] superview] setNeedsDisplay:YES];
}

void PlatformSetOwnAppearance(id owner, NSAppearance *appearance) {
  NSArray *observed = PlatformOwnersOfAttachedState(kObserved);
  NSAppearance *old = PlatformOwnAppearance(owner);
  NSMutableArray *before = [NSMutableArray array];
  for (id object in observed) [before addObject:[object effectiveAppearance]];

  // Observers that ask for the old value get it only if the change is announced before it happens,
  // and who is affected shows only after it.
  PlatformSetAttachedState(owner, kAppearance, appearance);
  NSMutableArray *affected = [NSMutableArray array];
  for (NSUInteger i = 0; i < [observed count]; i++) {
    id object = [observed objectAtIndex:i];
    if ([object effectiveAppearance] != [before objectAtIndex:i]) [affected addObject:object];
  }
  if ([affected count]) {
    PlatformSetAttachedState(owner, kAppearance, old);
    for (id object in affected) [object willChangeValueForKey:kKey];
    PlatformSetAttachedState(owner, kAppearance, appearance);
    for (id object in affected) [object didChangeValueForKey:kKey];
  }
  Redisplay(owner);
}

BOOL PlatformAppearanceIsDark(NSView *view) {
  NSString *match = [[view effectiveAppearance]
      bestMatchFromAppearancesWithNames:@[ NSAppearanceNameAqua, NSAppearanceNameDarkAqua ]];
  return [match isEqualToString:NSAppearanceNameDarkAqua];
}
