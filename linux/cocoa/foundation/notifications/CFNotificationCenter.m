#include <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>

#import "DistributedCenter.h"

// The daemon cuts off a client that sends it 32 MiB in one piece.
static const NSUInteger kLongestArchive = 24 << 20;

/// GNUstep's own test for this says yes to everything.
static BOOL IsPropertyList(id value) {
  if ([value isKindOfClass:[NSArray class]]) {
    for (id element in value) {
      if (!IsPropertyList(element)) {
        return NO;
      }
    }
    return YES;
  }
  if ([value isKindOfClass:[NSDictionary class]]) {
    for (id key in value) {
      if (![key isKindOfClass:[NSString class]] || !IsPropertyList([value objectForKey:key])) {
        return NO;
      }
    }
    return YES;
  }
  return [value isKindOfClass:[NSString class]] || [value isKindOfClass:[NSNumber class]] ||
         [value isKindOfClass:[NSData class]] || [value isKindOfClass:[NSDate class]];
}

CFNotificationCenterRef CFNotificationCenterGetDistributedCenter(void) {
  return (CFNotificationCenterRef)[DistributedCenter center];
}

void CFNotificationCenterAddObserver(CFNotificationCenterRef center, const void *observer,
                                     CFNotificationCallback callback, CFStringRef name,
                                     const void *object,
                                     CFNotificationSuspensionBehavior suspensionBehavior) {
  if (!name && !object) {
    return;
  }
  [(DistributedCenter *)center addObserver:observer
                                  callback:callback
                                      name:(NSString *)name
                                    object:(NSString *)object
                                  behavior:suspensionBehavior];
}

void CFNotificationCenterRemoveObserver(CFNotificationCenterRef center, const void *observer,
                                        CFNotificationName name, const void *object) {
  [(DistributedCenter *)center removeObserver:observer
                                         name:(NSString *)name
                                       object:(NSString *)object];
}

void CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterRef center,
                                                     CFNotificationName name, const void *object,
                                                     CFDictionaryRef userInfo,
                                                     CFOptionFlags options) {
  NSAutoreleasePool *pool = [NSAutoreleasePool new];
  NSData *archive = nil;
  if (!userInfo || IsPropertyList((id)userInfo)) {
    archive = [NSArchiver archivedDataWithRootObject:(id)userInfo];
  }
  if (archive && [archive length] <= kLongestArchive) {
    [(DistributedCenter *)center postName:(NSString *)name
                                   object:(NSString *)object
                                 userInfo:archive
                       deliverImmediately:(options & kCFNotificationDeliverImmediately) != 0];
  }
  [pool release];
}

void CFNotificationCenterPostNotification(CFNotificationCenterRef center, CFNotificationName name,
                                          const void *object, CFDictionaryRef userInfo,
                                          Boolean deliverImmediately) {
  CFNotificationCenterPostNotificationWithOptions(
      center, name, object, userInfo, deliverImmediately ? kCFNotificationDeliverImmediately : 0);
}
