#include <CocoaTesting/LookTest.h>
#import "runtime/MethodReplacement.h"

using MethodReplacement = look::LookTest;

@interface LookParent : NSObject
- (int)number;
- (int)other;
@end

@interface LookChild : LookParent
@end

@interface LookSibling : LookParent
@end

@implementation LookParent
- (int)number {
  return 1;
}
- (int)other {
  return 10;
}
@end

@implementation LookChild
@end

@implementation LookSibling
@end

using NumberMethod = int (*)(id, SEL);

static NumberMethod sNumber;
static NumberMethod sOther;

static int Number(id self, SEL selector) { return sNumber(self, selector) + 1; }

static int Other(id self, SEL selector) { return sOther(self, selector) + 5; }

TEST_F(MethodReplacement, ReachesSubclassesThatAreInUseAndKeepsTheOriginal) {
  LookChild *child = [[[LookChild alloc] init] autorelease];
  ASSERT_EQ([child number], 1);
  sNumber = (NumberMethod)PlatformReplaceMethod([LookParent class], @selector(number),
                                                (PlatformFunction)Number);
  EXPECT_EQ([child number], 2);
  EXPECT_EQ([[[[LookParent alloc] init] autorelease] number], 2);
}

TEST_F(MethodReplacement, OfAnInheritedMethodLeavesTheSuperclassAlone) {
  LookSibling *sibling = [[[LookSibling alloc] init] autorelease];
  LookChild *child = [[[LookChild alloc] init] autorelease];
  ASSERT_EQ([sibling other], 10);
  sOther = (NumberMethod)PlatformReplaceMethod([LookSibling class], @selector(other),
                                               (PlatformFunction)Other);
  EXPECT_EQ([sibling other], 15);
  EXPECT_EQ([child other], 10);
  EXPECT_EQ([[[[LookParent alloc] init] autorelease] other], 10);
}
