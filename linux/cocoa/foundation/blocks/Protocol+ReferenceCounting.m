// gcc's protocols are objects that cannot be retained. They are never freed, so that the methods
// have nothing to do; they let a block capture a protocol and a property keep one.

#import <Foundation/NSObject.h>
#import <objc/Protocol.h>

@implementation Protocol (ReferenceCounting)

- (id)retain {
  return self;
}

- (oneway void)release {
}

- (id)autorelease {
  return self;
}

- (NSUInteger)retainCount {
  return NSUIntegerMax;
}

@end
