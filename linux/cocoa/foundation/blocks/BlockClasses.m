#import "BlockClasses.h"

#include <Block.h>
#import <Foundation/NSAutoreleasePool.h>
#import <Foundation/NSException.h>
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

- (NSString *)description {
  return [NSString stringWithFormat:@"<%@: %p>", [self class], self];
}

@end

@implementation __NSStackBlock__

- (id)retain {
  return self;
}

- (oneway void)release {
}

- (id)autorelease {
  return self;
}

- (NSUInteger)retainCount {
  return 1;
}

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

@implementation __NSGlobalBlock__

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
