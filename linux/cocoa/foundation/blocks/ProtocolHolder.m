#import <Foundation/NSObject.h>

/// Carries the protocols that the compiler's `@protocol(…)` expressions refer to: each image has a
/// category on a class of this name (the compiler's choice) that adopts them all, and the runtime
/// makes objects of them when it attaches the category. gcc's runtime lacks the class, without
/// which `@protocol(…)` is a record without a class and no message can be sent to it.
@interface __ObjC_Protocol_Holder_Ugly_Hack : NSObject
@end

@implementation __ObjC_Protocol_Holder_Ugly_Hack
@end
