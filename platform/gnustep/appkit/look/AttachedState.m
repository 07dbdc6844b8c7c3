#import "AttachedState.h"

#import <AppKit/NSCell.h>
#import <AppKit/NSView.h>
#import <AppKit/NSWindow.h>
#import <Foundation/NSDictionary.h>
#import <Foundation/NSLock.h>
#import <Foundation/NSMapTable.h>

#import "MethodReplacement.h"

static NSLock *sLock;
// An NSMutableDictionary by owner.
static NSMapTable *sStates;

static void (*sViewDealloc)(id, SEL);
static void (*sWindowDealloc)(id, SEL);
static void (*sCellDealloc)(id, SEL);

/// The values are released outside the lock: a dealloc of theirs may come back here.
static void Forget(id owner) {
  [sLock lock];
  NSMutableDictionary *state = [(id)NSMapGet(sStates, owner) retain];
  if (state) NSMapRemove(sStates, owner);
  [sLock unlock];
  [state release];
}

static void ViewDealloc(id view, SEL selector) {
  Forget(view);
  sViewDealloc(view, selector);
}

static void WindowDealloc(id window, SEL selector) {
  Forget(window);
  sWindowDealloc(window, selector);
}

static void CellDealloc(id cell, SEL selector) {
  Forget(cell);
  sCellDealloc(cell, selector);
}

/// The first owner exists, so the toolkit is up; an earlier view, window or cell had nothing to
/// forget.
static void InstallOnce(void) {
  if (sViewDealloc) return;
  sViewDealloc = (void (*)(id, SEL))PlatformReplaceMethod([NSView class], @selector(dealloc),
                                                          (PlatformFunction)ViewDealloc);
  sWindowDealloc = (void (*)(id, SEL))PlatformReplaceMethod([NSWindow class], @selector(dealloc),
                                                            (PlatformFunction)WindowDealloc);
  sCellDealloc = (void (*)(id, SEL))PlatformReplaceMethod([NSCell class], @selector(dealloc),
                                                          (PlatformFunction)CellDealloc);
}

@interface PlatformAttachedStates : NSObject
@end

@implementation PlatformAttachedStates

+ (void)load {
  sLock = [[NSLock alloc] init];
  sStates = NSCreateMapTable(NSNonOwnedPointerMapKeyCallBacks, NSObjectMapValueCallBacks, 64);
}

@end

id PlatformAttachedState(id owner, NSString *key) {
  [sLock lock];
  id value = [[(id)NSMapGet(sStates, owner) objectForKey:key] retain];
  [sLock unlock];
  return [value autorelease];
}

void PlatformSetAttachedState(id owner, NSString *key, id value) {
  [sLock lock];
  InstallOnce();
  NSMutableDictionary *state = (id)NSMapGet(sStates, owner);
  if (!state && value) {
    state = [NSMutableDictionary dictionary];
    NSMapInsert(sStates, owner, state);
  }
  id old = [[state objectForKey:key] retain];
  if (value)
    [state setObject:value forKey:key];
  else
    [state removeObjectForKey:key];
  [sLock unlock];
  [old release];
}

NSArray *PlatformOwnersOfAttachedState(NSString *key) {
  NSMutableArray *owners = [NSMutableArray array];
  [sLock lock];
  NSMapEnumerator all = NSEnumerateMapTable(sStates);
  void *owner;
  void *state;
  while (NSNextMapEnumeratorPair(&all, &owner, &state))
    if ([(id)state objectForKey:key]) [owners addObject:(id)owner];
  NSEndMapTableEnumeration(&all);
  [sLock unlock];
  return owners;
}
