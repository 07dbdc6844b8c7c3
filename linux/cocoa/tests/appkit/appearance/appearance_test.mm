#include <CocoaTesting/LookTest.h>

using Appearances = look::LookTest;

static NSAppearance *Named(NSString *name) { return [NSAppearance appearanceNamed:name]; }

static NSString *Match(NSString *name, NSArray *names) {
  return [Named(name) bestMatchFromAppearancesWithNames:names];
}

/// Counts notifications and keeps the last new and old value.
@interface LookObserver : NSObject {
 @public
  int _count;
  NSString *_name;
  NSString *_oldName;
  id _lastObject;
}
@end

@implementation LookObserver

- (void)observeValueForKeyPath:(NSString *)keyPath
                      ofObject:(id)object
                        change:(NSDictionary *)change
                       context:(void *)context {
  (void)context;
  EXPECT_TRUE([keyPath isEqualToString:@"effectiveAppearance"]);
  _count++;
  _lastObject = object;
  _name = [[object effectiveAppearance] name];
  id newValue = [change objectForKey:NSKeyValueChangeNewKey];
  EXPECT_EQ([newValue name], _name);
  id oldValue = [change objectForKey:NSKeyValueChangeOldKey];
  _oldName = [oldValue isKindOfClass:[NSAppearance class]] ? [oldValue name] : nil;
}

@end

static const NSKeyValueObservingOptions kNewAndInitial =
    NSKeyValueObservingOptionNew | NSKeyValueObservingOptionInitial;

TEST_F(Appearances, NamesAreOneObjectEach) {
  EXPECT_EQ(Named(NSAppearanceNameAqua), Named(NSAppearanceNameAqua));
  EXPECT_TRUE([[Named(@"NSAppearanceNameDarkAqua") name] isEqual:NSAppearanceNameDarkAqua]);
  EXPECT_EQ(Named(@"NoSuchAppearance"), nil);
}

TEST_F(Appearances, MatchesItselfBeforeAnythingElse) {
  for (NSString *name in @[
         NSAppearanceNameAqua, NSAppearanceNameDarkAqua, NSAppearanceNameVibrantDark,
         NSAppearanceNameAccessibilityHighContrastAqua
       ]) {
    EXPECT_EQ(Match(name, @[ NSAppearanceNameAqua, NSAppearanceNameDarkAqua, name ]), name);
  }
}

TEST_F(Appearances, VariantsMatchLightOrDark) {
  NSArray *both = @[ NSAppearanceNameAqua, NSAppearanceNameDarkAqua ];
  for (NSString *name in @[
         NSAppearanceNameVibrantLight, NSAppearanceNameAccessibilityHighContrastAqua,
         NSAppearanceNameAccessibilityHighContrastVibrantLight
       ]) {
    EXPECT_EQ(Match(name, both), NSAppearanceNameAqua);
  }
  for (NSString *name in @[
         NSAppearanceNameVibrantDark, NSAppearanceNameAccessibilityHighContrastDarkAqua,
         NSAppearanceNameAccessibilityHighContrastVibrantDark
       ]) {
    EXPECT_EQ(Match(name, both), NSAppearanceNameDarkAqua);
  }
}

TEST_F(Appearances, ContrastMattersLessThanVibrancy) {
  EXPECT_EQ(Match(NSAppearanceNameAccessibilityHighContrastVibrantDark,
                  @[ NSAppearanceNameDarkAqua, NSAppearanceNameVibrantDark ]),
            NSAppearanceNameVibrantDark);
}

TEST_F(Appearances, NothingFitsGivesNil) {
  EXPECT_EQ(Match(NSAppearanceNameAqua, @[ NSAppearanceNameDarkAqua ]), nil);
  EXPECT_EQ(Match(NSAppearanceNameVibrantDark, @[ NSAppearanceNameAqua ]), nil);
  EXPECT_EQ(Match(NSAppearanceNameAqua, @[]), nil);
}

TEST_F(Appearances, IsInheritedFromApplicationToView) {
  LookWindow *window = [LookWindow windowWithSize:NSMakeSize(100, 100) white:1];
  NSView *view = [[[NSView alloc] initWithFrame:NSMakeRect(0, 0, 10, 10)] autorelease];
  [[window contentView] addSubview:view];
  EXPECT_EQ([NSApp appearance], nil);
  EXPECT_EQ([view effectiveAppearance], Named(NSAppearanceNameAqua));
  [NSApp setAppearance:Named(NSAppearanceNameDarkAqua)];
  EXPECT_EQ([view effectiveAppearance], Named(NSAppearanceNameDarkAqua));
  EXPECT_EQ([window effectiveAppearance], Named(NSAppearanceNameDarkAqua));
  [window setAppearance:Named(NSAppearanceNameVibrantLight)];
  EXPECT_EQ([view effectiveAppearance], Named(NSAppearanceNameVibrantLight));
  [view setAppearance:Named(NSAppearanceNameAqua)];
  EXPECT_EQ([view effectiveAppearance], Named(NSAppearanceNameAqua));
  EXPECT_EQ([NSApp effectiveAppearance], Named(NSAppearanceNameDarkAqua));
  [window close];
}

TEST_F(Appearances, ObserverGetsTheInitialValueAndEachChangeBeforeTheSetterReturns) {
  LookWindow *window = [LookWindow windowWithSize:NSMakeSize(100, 100) white:1];
  LookObserver *observer = [[[LookObserver alloc] init] autorelease];
  [window addObserver:observer
           forKeyPath:@"effectiveAppearance"
              options:kNewAndInitial
              context:nullptr];
  EXPECT_EQ(observer->_count, 1);
  EXPECT_EQ(observer->_name, NSAppearanceNameAqua);
  EXPECT_EQ(observer->_lastObject, window);
  [NSApp setAppearance:Named(NSAppearanceNameDarkAqua)];
  EXPECT_EQ(observer->_count, 2);
  EXPECT_EQ(observer->_name, NSAppearanceNameDarkAqua);
  [NSApp setAppearance:nil];
  EXPECT_EQ(observer->_count, 3);
  EXPECT_EQ(observer->_name, NSAppearanceNameAqua);
  [NSApp setAppearance:Named(NSAppearanceNameAqua)];
  EXPECT_EQ(observer->_count, 3) << "the same appearance under another owner is no change";
  [window removeObserver:observer forKeyPath:@"effectiveAppearance"];
  [NSApp setAppearance:Named(NSAppearanceNameDarkAqua)];
  EXPECT_EQ(observer->_count, 3);
  [window close];
}

TEST_F(Appearances, ObserverThatAsksForTheOldValueGetsIt) {
  LookWindow *window = [LookWindow windowWithSize:NSMakeSize(100, 100) white:1];
  LookObserver *observer = [[[LookObserver alloc] init] autorelease];
  [window addObserver:observer
           forKeyPath:@"effectiveAppearance"
              options:NSKeyValueObservingOptionNew | NSKeyValueObservingOptionOld
              context:nullptr];
  [window setAppearance:Named(NSAppearanceNameDarkAqua)];
  EXPECT_EQ(observer->_count, 1);
  EXPECT_EQ(observer->_oldName, NSAppearanceNameAqua);
  [window removeObserver:observer forKeyPath:@"effectiveAppearance"];
  [window close];
}

TEST_F(Appearances, WindowsOwnAppearanceShieldsItFromTheApplications) {
  LookWindow *window = [LookWindow windowWithSize:NSMakeSize(100, 100) white:1];
  [window setAppearance:Named(NSAppearanceNameAqua)];
  LookObserver *observer = [[[LookObserver alloc] init] autorelease];
  [window addObserver:observer
           forKeyPath:@"effectiveAppearance"
              options:kNewAndInitial
              context:nullptr];
  [NSApp setAppearance:Named(NSAppearanceNameDarkAqua)];
  EXPECT_EQ(observer->_count, 1);
  [window setAppearance:nil];
  EXPECT_EQ(observer->_count, 2);
  EXPECT_EQ(observer->_name, NSAppearanceNameDarkAqua);
  [window removeObserver:observer forKeyPath:@"effectiveAppearance"];
  [window close];
}

TEST_F(Appearances, ViewAndApplicationCanBeObservedToo) {
  LookWindow *window = [LookWindow windowWithSize:NSMakeSize(100, 100) white:1];
  LookObserver *observer = [[[LookObserver alloc] init] autorelease];
  for (id object in @[ [window contentView], NSApp ]) {
    [object addObserver:observer
             forKeyPath:@"effectiveAppearance"
                options:kNewAndInitial
                context:nullptr];
  }
  EXPECT_EQ(observer->_count, 2);
  [NSApp setAppearance:Named(NSAppearanceNameDarkAqua)];
  EXPECT_EQ(observer->_count, 4);
  for (id object in @[ [window contentView], NSApp ]) {
    [object removeObserver:observer forKeyPath:@"effectiveAppearance"];
  }
  [window close];
}

TEST_F(Appearances, TwoHundredWindowsComeAndGoAcrossSwitches) {
  LookObserver *observer = [[[LookObserver alloc] init] autorelease];
  NSUInteger windows = [[NSApp windows] count];
  for (int i = 0; i < 200; i++) {
    NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
    LookWindow *window = [LookWindow windowWithSize:NSMakeSize(50, 50) white:1];
    [window addObserver:observer
             forKeyPath:@"effectiveAppearance"
                options:NSKeyValueObservingOptionNew
                context:nullptr];
    [NSApp setAppearance:i % 2 ? nil : Named(NSAppearanceNameDarkAqua)];
    [window removeObserver:observer forKeyPath:@"effectiveAppearance"];
    [window close];
    [pool release];
  }
  EXPECT_EQ(observer->_count, 200);
  EXPECT_EQ([[NSApp windows] count], windows);
}

TEST_F(Appearances, WindowThatGoesAwayObservedIsLoggedAndHarmsNothing) {
  LookObserver *observer = [[[LookObserver alloc] init] autorelease];
  testing::internal::CaptureStderr();
  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
  LookWindow *window = [LookWindow windowWithSize:NSMakeSize(50, 50) white:1];
  [window addObserver:observer
           forKeyPath:@"effectiveAppearance"
              options:NSKeyValueObservingOptionNew
              context:nullptr];
  [window close];
  [pool release];
  std::string log = testing::internal::GetCapturedStderr();
  EXPECT_NE(log.find("class LookWindow was deallocated while key value observers were still "
                     "registered with it"),
            std::string::npos)
      << log;
  [NSApp setAppearance:Named(NSAppearanceNameDarkAqua)];
  EXPECT_EQ(observer->_count, 0);
}

TEST_F(Appearances, WindowWithoutObserversGoesAwaySilently) {
  LookObserver *observer = [[[LookObserver alloc] init] autorelease];
  testing::internal::CaptureStderr();
  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
  LookWindow *window = [LookWindow windowWithSize:NSMakeSize(50, 50) white:1];
  [window addObserver:observer
           forKeyPath:@"effectiveAppearance"
              options:NSKeyValueObservingOptionNew
              context:nullptr];
  [window removeObserver:observer forKeyPath:@"effectiveAppearance"];
  [window close];
  [pool release];
  std::string log = testing::internal::GetCapturedStderr();
  EXPECT_EQ(log.find("deallocated while"), std::string::npos) << log;
}
