// The classes of blocks, named as on the platform they come from.

#include <Block.h>
#import <Foundation/NSAutoreleasePool.h>
#import <Foundation/NSException.h>
#import <Foundation/NSObject.h>
#import <Foundation/NSString.h>

#import "BlockLayout.h"

// A block's first word must be a class that the runtime knows. The runtime registers class records
// where the compiler placed them, so the symbols that compiled blocks refer to are second names of
// those records. Protected, since a program that copied them into itself at link time would refer
// to records nobody registered.
__asm__(".macro block_class symbol, class\n"
        ".globl \\symbol\n"
        ".protected \\symbol\n"
        ".type \\symbol, @object\n"
        ".set \\symbol, _OBJC_CLASS_\\class\n"
        ".endm\n"
        "block_class _NSConcreteStackBlock, __NSStackBlock__\n"
        "block_class _NSConcreteMallocBlock, __NSMallocBlock__\n"
        "block_class _NSConcreteGlobalBlock, __NSGlobalBlock__\n");

/// The root of the three: a block is an object that can be copied, kept in a collection and set as
/// a property. Its life is managed by the functions of <Block.h>, never by NSObject's counter: one
/// that lies in a frame or in the program's image counts no references.
@interface NSBlock : NSObject <NSCopying>
@end

@implementation NSBlock

+ (id)allocWithZone:(NSZone *)zone {
  (void)zone;
  [NSException raise:NSGenericException format:@"Blocks are made by the compiler only"];
  return nil;
}

- (id)copyWithZone:(NSZone *)zone {
  (void)zone;
  return _Block_copy(self);
}

- (id)copy {
  return _Block_copy(self);
}

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

- (NSString *)description {
  return [NSString stringWithFormat:@"<%@: %p>", [self class], self];
}

@end

/// A block whose captures still lie in a frame: it cannot be kept, only copied.
@interface __NSStackBlock__ : NSBlock
@end

@implementation __NSStackBlock__

- (NSUInteger)retainCount {
  return 1;
}

@end

@interface __NSMallocBlock__ : NSBlock
@end

@implementation __NSMallocBlock__

- (id)retain {
  return _Block_copy(self);
}

- (oneway void)release {
  _Block_release(self);
}

- (id)autorelease {
  [NSAutoreleasePool addObject:self];
  return self;
}

- (NSUInteger)retainCount {
  int32_t flags = __atomic_load_n(&((struct Block_layout *)self)->flags, __ATOMIC_RELAXED);
  return (flags & BLOCK_REFCOUNT_MASK) / 2;
}

@end

/// A block without captures: it lives in the program's image.
@interface __NSGlobalBlock__ : NSBlock
@end

@implementation __NSGlobalBlock__
@end
