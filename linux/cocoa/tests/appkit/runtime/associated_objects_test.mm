#import "runtime/AssociatedObjects.h"

#include <CocoaTesting/LookTest.h>

using AssociatedObjects = look::LookTest;

static const char sKey = 0;
static const char sOtherKey = 0;
static int sLiving;

@interface AssociatedValue : NSObject {
 @public
  id _owner;
}
@end

@implementation AssociatedValue

- (id)init {
  sLiving++;
  return [super init];
}

- (void)dealloc {
  // A value that goes with its object may still ask for what that object has.
  EXPECT_EQ(objc_getAssociatedObject(_owner, &sKey), nil);
  sLiving--;
  [super dealloc];
}

@end

static void Associate(id object, const char *key) {
  AssociatedValue *value = [[AssociatedValue alloc] init];
  value->_owner = object;
  objc_setAssociatedObject(object, key, value, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
  [value release];
}

TEST_F(AssociatedObjects, AreKeptByKeyUntilTheyAreReplaced) {
  NSView *view = [[[NSView alloc] initWithFrame:NSZeroRect] autorelease];
  EXPECT_EQ(objc_getAssociatedObject(view, &sKey), nil);
  objc_setAssociatedObject(view, &sKey, @"one", OBJC_ASSOCIATION_RETAIN_NONATOMIC);
  objc_setAssociatedObject(view, &sOtherKey, @"other", OBJC_ASSOCIATION_RETAIN_NONATOMIC);
  EXPECT_EQ(objc_getAssociatedObject(view, &sKey), @"one");
  EXPECT_EQ(objc_getAssociatedObject(view, &sOtherKey), @"other");
  objc_setAssociatedObject(view, &sKey, nil, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
  EXPECT_EQ(objc_getAssociatedObject(view, &sKey), nil);
  EXPECT_EQ(objc_getAssociatedObject(view, &sOtherKey), @"other");
  EXPECT_EQ(objc_getAssociatedObject(nil, &sKey), nil);
}

TEST_F(AssociatedObjects, CopyPolicyCopies) {
  NSView *view = [[[NSView alloc] initWithFrame:NSZeroRect] autorelease];
  NSMutableString *text = [NSMutableString stringWithString:@"before"];
  objc_setAssociatedObject(view, &sKey, text, OBJC_ASSOCIATION_COPY_NONATOMIC);
  [text setString:@"after"];
  EXPECT_TRUE([objc_getAssociatedObject(view, &sKey) isEqual:@"before"]);
}

TEST_F(AssociatedObjects, GoWithTheirObjectOfAnyClass) {
  sLiving = 0;
  NSFormatter *formatter = [[NSNumberFormatter alloc] init];
  for (id object in @[
         [[[NSButton alloc] initWithFrame:NSZeroRect] autorelease],
         [[[NSTextFieldCell alloc] initTextCell:@""] autorelease], formatter
       ]) {
    Associate(object, &sKey);
    Associate(object, &sOtherKey);
  }
  EXPECT_EQ(sLiving, 6);
  [formatter release];
  TearDown();
  EXPECT_EQ(sLiving, 0);
  SetUp();
}

TEST_F(AssociatedObjects, ACopyStartsWithout) {
  NSCell *cell = [[[NSTextFieldCell alloc] initTextCell:@""] autorelease];
  objc_setAssociatedObject(cell, &sKey, @"cell's", OBJC_ASSOCIATION_RETAIN_NONATOMIC);
  EXPECT_EQ(objc_getAssociatedObject([[cell copy] autorelease], &sKey), nil);
}
