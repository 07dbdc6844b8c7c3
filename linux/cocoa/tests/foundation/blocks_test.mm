#include <gtest/gtest.h>

#import <Foundation/Foundation.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "BlockLayout.h"

typedef int (^IntBlock)(void);

// Made before `main`, by the constructor of a static object. The messages of this file cannot be
// sent that early, since the runtime reads the selectors of an image after such constructors.
struct EarlyBlocks {
  explicit EarlyBlocks(int value)
      : global(Block_copy(^{
          return 42;
        })),
        heap(Block_copy(^{
          return value;
        })) {}
  IntBlock global;
  IntBlock heap;
};
static EarlyBlocks sEarly(43);

static IntBlock sStaticBlock = ^{
  return 7;
};

/// Tells when it goes.
@interface Witness : NSObject {
 @public
  int *_gone;
}
@end

@implementation Witness
- (id)initWithCounter:(int *)gone {
  if ((self = [super init])) {
    _gone = gone;
  }
  return self;
}
- (void)dealloc {
  ++*_gone;
  [super dealloc];
}
@end

@interface BlockOwner : NSObject {
  IntBlock _copied;
  IntBlock _plain;
}
@property (copy) IntBlock copied;
@property (nonatomic, copy) IntBlock plain;
@end

@implementation BlockOwner
@synthesize copied = _copied;
@synthesize plain = _plain;
- (void)dealloc {
  [_copied release];
  [_plain release];
  [super dealloc];
}
@end

namespace {

struct Counted {
  explicit Counted(int *alive) : alive(alive) { ++*alive; }
  Counted(const Counted &other) : alive(other.alive) { ++*alive; }
  ~Counted() { --*alive; }
  int *alive;
};

class Blocks : public testing::Test {
 protected:
  void SetUp() override { pool_ = [NSAutoreleasePool new]; }
  void TearDown() override { [pool_ release]; }
  NSAutoreleasePool *pool_;
};

TEST_F(Blocks, AreObjectsOfTheClassForTheirPlace) {
  int captured = 1;
  IntBlock stack = ^{
    return captured;
  };
  IntBlock heap = [[stack copy] autorelease];
  EXPECT_STREQ("__NSStackBlock__", class_getName(object_getClass(stack)));
  EXPECT_STREQ("__NSMallocBlock__", class_getName(object_getClass(heap)));
  EXPECT_STREQ("__NSGlobalBlock__", class_getName(object_getClass(sStaticBlock)));
  EXPECT_TRUE([heap isKindOfClass:[NSObject class]]);
  EXPECT_TRUE([heap respondsToSelector:@selector(copyWithZone:)]);
  EXPECT_TRUE([heap conformsToProtocol:@protocol(NSCopying)]);
  EXPECT_NE(nil, [heap description]);
}

TEST_F(Blocks, WorkInStaticInitialisers) {
  NSArray *stored = [NSArray arrayWithObjects:sEarly.global, sEarly.heap, nil];
  EXPECT_EQ(42, ((IntBlock)[stored objectAtIndex:0])());
  EXPECT_EQ(43, ((IntBlock)[stored objectAtIndex:1])());
}

TEST_F(Blocks, CopyOfAHeapOrGlobalBlockIsTheBlockItself) {
  int captured = 3;
  IntBlock heap = Block_copy(^{
    return captured;
  });
  EXPECT_EQ(1u, [heap retainCount]);
  EXPECT_EQ((id)heap, [heap copy]);
  EXPECT_EQ(2u, [heap retainCount]);
  [heap release];
  EXPECT_EQ((id)sStaticBlock, [sStaticBlock copy]);
  [sStaticBlock release];
  EXPECT_EQ(7, sStaticBlock());
  Block_release(heap);
}

TEST_F(Blocks, RetainCapturedObjectsUntilTheLastReferenceGoes) {
  int gone = 0;
  Witness *witness = [[Witness alloc] initWithCounter:&gone];
  IntBlock heap = Block_copy(^{
    return *witness->_gone;
  });
  [witness release];
  [heap retain];
  Block_release(heap);
  EXPECT_EQ(0, gone);
  EXPECT_EQ(0, heap());
  [heap release];
  EXPECT_EQ(1, gone);
}

TEST_F(Blocks, RetainCapturedBlocks) {
  int gone = 0;
  Witness *witness = [[Witness alloc] initWithCounter:&gone];
  IntBlock inner = ^{
    return *witness->_gone + 5;
  };
  IntBlock outer = Block_copy(^{
    return inner();
  });
  [witness release];
  EXPECT_EQ(5, outer());
  [outer release];
  EXPECT_EQ(1, gone);
}

TEST_F(Blocks, CaptureProtocolsAndClasses) {
  Protocol *protocol = @protocol(NSCopying);
  Class cls = [NSString class];
  id (^block)(void) = [^{
    return [@"" conformsToProtocol:protocol] ? (id)cls : nil;
  } copy];
  EXPECT_EQ((id)cls, block());
  EXPECT_STREQ("NSCopying", protocol_getName(protocol));
  [block release];
}

TEST_F(Blocks, ShareBlockVariablesWithTheirFrame) {
  __block int count = 0;
  void (^add)(void) = [^{
    ++count;
  } copy];
  IntBlock read = [^{
    return count;
  } copy];
  add();
  count += 10;
  EXPECT_EQ(11, read());
  [add release];
  EXPECT_EQ(11, read());
  [read release];
  EXPECT_EQ(11, count);
}

TEST_F(Blocks, DoNotRetainObjectsInBlockVariables) {
  int gone = 0;
  __block Witness *witness = [[Witness alloc] initWithCounter:&gone];
  IntBlock heap = [^{
    return witness ? 1 : 0;
  } copy];
  [witness release];
  EXPECT_EQ(1, gone);
  witness = nil;
  EXPECT_EQ(0, heap());
  [heap release];
}

TEST_F(Blocks, CopyAndDestroyCapturedCxxObjects) {
  int alive = 0;
  {
    Counted counted(&alive);
    __block Counted boxed(&alive);
    IntBlock heap = [^{
      return *counted.alive + *boxed.alive;
    } copy];
    EXPECT_LT(2, alive);
    [heap release];
  }
  EXPECT_EQ(0, alive);
}

TEST_F(Blocks, SurviveTheirFrameInCollections) {
  NSMutableArray *array = [NSMutableArray array];
  NSMutableDictionary *dictionary = [NSMutableDictionary dictionary];
  NSMutableSet *set = [NSMutableSet set];
  for (int i = 0; i < 10; ++i) {
    IntBlock heap = [[^{
      return i;
    } copy] autorelease];
    [array addObject:heap];
    [dictionary setObject:heap forKey:[NSNumber numberWithInt:i]];
    [set addObject:heap];
  }
  EXPECT_EQ(10u, [set count]);
  for (int i = 0; i < 10; ++i) {
    IntBlock fromArray = [array objectAtIndex:i];
    EXPECT_EQ(i, fromArray());
    EXPECT_EQ((id)fromArray, [dictionary objectForKey:[NSNumber numberWithInt:i]]);
    EXPECT_TRUE([set containsObject:fromArray]);
  }
}

TEST_F(Blocks, AreReleasedByTheirAutoreleasePool) {
  int gone = 0;
  NSAutoreleasePool *inner = [NSAutoreleasePool new];
  Witness *witness = [[Witness alloc] initWithCounter:&gone];
  [[^{
    return *witness->_gone;
  } copy] autorelease];
  [witness release];
  EXPECT_EQ(0, gone);
  [inner release];
  EXPECT_EQ(1, gone);
}

TEST_F(Blocks, AreCopiedByCopyProperties) {
  int gone = 0;
  BlockOwner *owner = [BlockOwner new];
  {
    Witness *witness = [[Witness alloc] initWithCounter:&gone];
    owner.copied = ^{
      return *witness->_gone + 1;
    };
    owner.plain = ^{
      return *witness->_gone + 2;
    };
    [witness release];
  }
  EXPECT_EQ(1, owner.copied());
  EXPECT_EQ(2, owner.plain());
  NSAutoreleasePool *inner = [NSAutoreleasePool new];
  owner.copied = nil;
  owner.plain = nil;
  [inner release];
  [owner release];
  [pool_ release];
  pool_ = [NSAutoreleasePool new];
  EXPECT_EQ(1, gone);
}

TEST_F(Blocks, CountReferencesFromManyThreads) {
  int gone = 0;
  Witness *witness = [[Witness alloc] initWithCounter:&gone];
  IntBlock heap = [^{
    return *witness->_gone;
  } copy];
  [witness release];
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([heap] {
      for (int j = 0; j < 10000; ++j) {
        _Block_copy(heap);
        _Block_release(heap);
      }
    });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  EXPECT_EQ(0, gone);
  [heap release];
  EXPECT_EQ(1, gone);
}

TEST_F(Blocks, StayForEverOnceTheCountIsFull) {
  int captured = 5;
  IntBlock heap = [^{
    return captured;
  } copy];
  for (int i = 0; i < 40000; ++i) {
    [heap retain];
  }
  for (int i = 0; i < 40000; ++i) {
    [heap release];
  }
  EXPECT_EQ(5, heap());
  // Taken apart by hand, since no count leads there.
  ((Block_layout *)heap)->flags = (((Block_layout *)heap)->flags & ~BLOCK_REFCOUNT_MASK) | 2;
  [heap release];
}

TEST_F(Blocks, CarryTheirSignature) {
  NSObject *object = [[NSObject new] autorelease];
  void (^block)(BOOL, NSString *) = ^(BOOL flag, NSString *text) {
    NSLog(@"%d %@ %@", flag, text, object);
  };
  ASSERT_NE(nullptr, _Block_signature(block));
  std::string signature = _Block_signature(block);
  EXPECT_EQ('v', signature[0]);
  // The mark of a block is not known to the runtime's own parser.
  size_t mark = signature.find("@?");
  ASSERT_NE(std::string::npos, mark);
  signature.erase(mark + 1, 1);
  NSMethodSignature *parsed = [NSMethodSignature signatureWithObjCTypes:signature.c_str()];
  ASSERT_EQ(3u, [parsed numberOfArguments]);
  EXPECT_STREQ(@encode(BOOL), [parsed getArgumentTypeAtIndex:1]);
  EXPECT_STREQ(@encode(id), [parsed getArgumentTypeAtIndex:2]);
  EXPECT_EQ(nullptr, _Block_signature(nullptr));
}

TEST_F(Blocks, CanBePutTogetherAtRunTime) {
  static bool disposed;
  struct Built {
    Block_layout layout;
    int value;
  };
  static struct {
    Block_descriptor head;
    Block_descriptor_helpers helpers;
    Block_descriptor_signature signature;
  } descriptor = {
      {0, sizeof(Built)}, {nullptr, [](const void *) { disposed = true; }}, {"i8@?0", nullptr}};
  Built *built = static_cast<Built *>(calloc(1, sizeof(Built)));
  built->layout.isa = _NSConcreteMallocBlock;
  built->layout.flags = BLOCK_NEEDS_FREE | BLOCK_HAS_SIGNATURE | BLOCK_HAS_COPY_DISPOSE | 2;
  built->layout.invoke = reinterpret_cast<void (*)(void)>(+[](Built *self) { return self->value; });
  built->layout.descriptor = &descriptor.head;
  built->value = 99;
  IntBlock block = (IntBlock)(void *)built;
  EXPECT_STREQ("i8@?0", _Block_signature(block));
  EXPECT_EQ((id)block, [block copy]);
  [block release];
  EXPECT_EQ(99, block());
  EXPECT_FALSE(disposed);
  [block release];
  EXPECT_TRUE(disposed);
}

TEST_F(Blocks, DrivenByFoundationEnumeration) {
  __block NSUInteger sum = 0;
  NSArray *numbers = [NSArray arrayWithObjects:@1, @2, @3, nil];
  [numbers enumerateObjectsUsingBlock:^(id number, NSUInteger, BOOL *) {
    sum += [number unsignedIntegerValue];
  }];
  EXPECT_EQ(6u, sum);
}

}  // namespace
