#import <AppKit/AppKit.h>
#import <AppKit/NSViewAccessibility.h>

#import "AttachedState.h"

static NSString *const kElement = @"accessibility.element";
static NSString *const kLabel = @"accessibility.label";

@implementation NSCell (PlatformAccessibility)

- (BOOL)isAccessibilityElement {
  NSNumber *element = PlatformAttachedState(self, kElement);
  return element ? [element boolValue] : YES;
}

- (void)setAccessibilityElement:(BOOL)element {
  PlatformSetAttachedState(self, kElement, [NSNumber numberWithBool:element]);
}

- (NSString *)accessibilityLabel {
  NSString *label = PlatformAttachedState(self, kLabel);
  if (label || ![self isKindOfClass:[NSButtonCell class]]) return label;
  NSString *title = [(NSButtonCell *)self title];
  return [title length] ? title : nil;
}

- (void)setAccessibilityLabel:(NSString *)label {
  PlatformSetAttachedState(self, kLabel, [[label copy] autorelease]);
}

@end
