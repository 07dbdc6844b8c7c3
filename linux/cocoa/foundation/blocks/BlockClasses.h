// The classes of blocks, named as on the platform they come from.

#import <Foundation/NSObject.h>

/// The root of the three: a block is an object that can be copied, kept in a collection and set as
/// a property. Its life is managed by the functions of <Block.h>, never by NSObject's counter.
@interface NSBlock : NSObject <NSCopying>
@end

/// A block whose captures still lie in a frame: it cannot be kept, only copied.
@interface __NSStackBlock__ : NSBlock
@end

@interface __NSMallocBlock__ : NSBlock
@end

/// A block without captures: it lives in the program's image.
@interface __NSGlobalBlock__ : NSBlock
@end
