#import <Foundation/NSObject.h>
#import <objc/Protocol.h>

/// gcc's protocols are objects that cannot be retained. They are never freed, so that the methods
/// have nothing to do; they let a block capture a protocol and a property keep one.
@interface Protocol (ReferenceCounting)
- (id)retain;
- (oneway void)release;
- (id)autorelease;
- (NSUInteger)retainCount;
@end
