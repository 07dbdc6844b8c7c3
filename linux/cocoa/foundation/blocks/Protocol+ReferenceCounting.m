#import "Protocol+ReferenceCounting.h"

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
