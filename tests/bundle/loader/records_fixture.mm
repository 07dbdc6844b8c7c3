// Compiled for a Mac while the tests run: a bundle with each kind of record that the loader
// understands. `check` tells what does not work as it does on a Mac.

#import <Foundation/Foundation.h>
#include <pthread.h>

@protocol FixtureNaming <NSObject>
@property (nonatomic, copy) NSString *name;
@optional
- (void)forget;
@end

@interface FixtureBase : NSObject {
  char first_;
  double second_;
  char third_;
}
- (double)sum;
+ (NSString *)family;
@end

@interface FixtureDerived : FixtureBase <FixtureNaming> {
  int fourth_;
}
@property (nonatomic, copy) NSString *name;
@property (nonatomic, retain) id partner;
- (NSRect)rectWithInset:(CGFloat)inset of:(NSRect)rect;
- (NSString *)join:(NSString *)first, ... NS_REQUIRES_NIL_TERMINATION;
@end

@interface NSString (Fixture)
- (NSString *)fixture_reversed;
+ (NSString *)fixture_empty;
@end

static int sInitialized;

@implementation FixtureBase
+ (void)initialize {
  if (self == [FixtureBase class]) {
    ++sInitialized;
  }
}
- (id)init {
  if ((self = [super init])) {
    first_ = 1;
    second_ = 2.5;
    third_ = 3;
  }
  return self;
}
- (double)sum {
  return first_ + second_ + third_;
}
+ (NSString *)family {
  return @"base";
}
@end

@implementation FixtureDerived
@synthesize name = _name, partner = _partner;
- (id)init {
  if ((self = [super init])) {
    fourth_ = 4;
  }
  return self;
}
- (void)dealloc {
  [_name release];
  [_partner release];
  [super dealloc];
}
- (double)sum {
  return [super sum] + fourth_;
}
+ (NSString *)family {
  return [[super family] stringByAppendingString:@", derived"];
}
- (NSRect)rectWithInset:(CGFloat)inset of:(NSRect)rect {
  return NSMakeRect(rect.origin.x + inset, rect.origin.y + inset, rect.size.width - 2 * inset,
                    rect.size.height - 2 * inset);
}
- (NSString *)join:(NSString *)first, ... {
  NSMutableArray *parts = [NSMutableArray array];
  va_list more;
  va_start(more, first);
  for (NSString *part = first; part; part = va_arg(more, NSString *)) {
    [parts addObject:part];
  }
  va_end(more);
  return [parts componentsJoinedByString:@"+"];
}
@end

@implementation NSString (Fixture)
- (NSString *)fixture_reversed {
  NSMutableString *reversed = [NSMutableString string];
  for (NSUInteger i = self.length; i > 0; --i) {
    [reversed appendFormat:@"%C", [self characterAtIndex:i - 1]];
  }
  return reversed;
}
+ (NSString *)fixture_empty {
  return @"";
}
@end

namespace {

int sDestroyed;

struct Witness {
  ~Witness() { ++sDestroyed; }
};

__attribute__((noinline)) void Raise() {
  Witness witness;
  [NSException raise:@"name" format:@"reason"];
}

__attribute__((noinline)) void Throw(int value) {
  Witness witness;
  throw value;
}

__attribute__((noinline)) NSString *CaughtByClass() {
  @try {
    Raise();
  } @catch (NSException *exception) {
    return exception.reason;
  }
  return nil;
}

/// One of C++, which a handler for a class passes on.
__attribute__((noinline)) bool EndsInObjectiveC() {
  @try {
    @try {
      Throw(1);
    } @catch (NSException *) {
      return false;
    }
  } @catch (...) {
    return true;
  }
  return false;
}

pthread_mutex_t sMutex = PTHREAD_MUTEX_INITIALIZER;

NSMutableString *sProblems;

void Expect(bool holds, NSString *what) {
  if (!holds) {
    [sProblems appendFormat:@"%@\n", what];
  }
}

void CheckClasses() {
  FixtureDerived *object = [[[FixtureDerived alloc] init] autorelease];
  Expect(sInitialized == 1, @"+initialize");
  Expect([object sum] == 10.5, @"variables and super");
  Expect([[FixtureDerived family] isEqualToString:@"base, derived"], @"super of the metaclass");
  const NSRect rect = [object rectWithInset:1 of:NSMakeRect(1, 2, 30, 40)];
  Expect(NSEqualRects(rect, NSMakeRect(2, 3, 28, 38)), @"a returned structure");
  NSString *joined = [object join:@"1", @"2", @"3", @"4", @"5", @"6", nil];
  Expect([joined isEqualToString:@"1+2+3+4+5+6"], @"variable arguments");
  NSString *formatted = [NSString stringWithFormat:@"%.1f %d %.2f", 0.5, 1, 0.25];
  Expect([formatted isEqualToString:@"0.5 1 0.25"], @"variable arguments of two kinds");
  FixtureDerived *none = nil;
  Expect([none sum] == 0 && none.name == nil, @"messages to nil");
}

void CheckProperties() {
  FixtureDerived *object = [[[FixtureDerived alloc] init] autorelease];
  NSMutableString *name = [NSMutableString stringWithString:@"name"];
  object.name = name;
  [name appendString:@"!"];
  Expect([object.name isEqualToString:@"name"], @"a copied property");
  const NSUInteger count = [name retainCount];
  object.partner = name;
  Expect(object.partner == name && [name retainCount] == count + 1, @"a retained property");
}

void CheckProtocolsAndCategories() {
  Expect([FixtureDerived conformsToProtocol:@protocol(FixtureNaming)], @"a protocol of its own");
  Expect([FixtureDerived conformsToProtocol:@protocol(NSObject)], @"an adopted protocol");
  Expect(![FixtureBase conformsToProtocol:@protocol(FixtureNaming)], @"a protocol not adopted");
  Expect([[@"abc" fixture_reversed] isEqualToString:@"cba"], @"a category");
  Expect([[NSString fixture_empty] length] == 0, @"a category's class method");
}

void CheckStrings() {
  NSString *const text = @"Grüße, 世界 🎉";
  Expect(text.length == 12 && [text characterAtIndex:2] == 0xfc, @"a string of UTF-16");
  const char *bytes = "Gr\xc3\xbc\xc3\x9f"
                      "e, \xe4\xb8\x96\xe7\x95\x8c \xf0\x9f\x8e\x89";
  Expect([text isEqualToString:[NSString stringWithUTF8String:bytes]], @"its characters");
  Expect([@"key" isEqualToString:[NSString stringWithUTF8String:"key"]], @"a string of bytes");
}

void CheckExceptions() {
  Expect([CaughtByClass() isEqualToString:@"reason"], @"@catch by the class");
  Expect(EndsInObjectiveC(), @"@catch (...)");
  Expect(sDestroyed == 2, @"destructors on the way");
}

void CheckSystem() {
  Expect(pthread_mutex_lock(&sMutex) == 0 && pthread_mutex_unlock(&sMutex) == 0, @"a static mutex");
  __block int sum = 0;
  void (^add)(int) = [[^(int value) {
    sum += value;
  } copy] autorelease];
  add(3);
  add(4);
  Expect(sum == 7, @"a block");
}

/// As of node's node_module; what makes the exports object has nothing to add.
struct Module {
  int version;
  unsigned flags;
  void *handle;
  const char *file;
  void (*fill)(void *exports, void *module, void *data);
  void *fillInContext;
  const char *name;
  void *data;
  Module *link;
} sModule = {MODULE_VERSION, 0,         nullptr, "fixture", [](void *, void *, void *) {},
             nullptr,        "fixture", nullptr, nullptr};

extern "C" void node_module_register(Module *);
__attribute__((constructor)) void RegisterFixture() { node_module_register(&sModule); }

}  // namespace

/// What is wrong, a line each.
extern "C" __attribute__((visibility("default"))) const char *check() {
  @autoreleasepool {
    sProblems = [[NSMutableString alloc] init];
    CheckClasses();
    CheckProperties();
    CheckProtocolsAndCategories();
    CheckStrings();
    CheckExceptions();
    CheckSystem();
    return [sProblems UTF8String];
  }
}
