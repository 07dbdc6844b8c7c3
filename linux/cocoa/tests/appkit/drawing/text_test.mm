// Texts of scripts that the system font lacks, and of those that are written from right to left.

#import <AppKit/AppKit.h>
#import <CocoaTesting/LookTest.h>

namespace {

using namespace look;

class LookText : public LookTest {
 protected:
  static NSAttributedString *make(NSString *text) {
    return [[[NSAttributedString alloc]
        initWithString:text
            attributes:@{NSFontAttributeName : [NSFont systemFontOfSize:20]}] autorelease];
  }

  static CGFloat widthOf(NSString *text) { return [make(text) size].width; }

  static CGFloat heightIn(CGFloat width, NSString *text) {
    return [make(text) boundingRectWithSize:NSMakeSize(width, 1000)
                                    options:NSStringDrawingUsesLineFragmentOrigin]
        .size.height;
  }

  /// How many of 300 pixels are dark from x to x + 75, in points from the field's left. Each is a
  /// round trip to the display.
  static int inkOf(NSTextField *field, int x) {
    int ink = 0;
    for (int column = x; column < x + 75; column += 3) {
      for (int row = 0; row < 36; row += 3) {
        ink += WindowPixel([field window], column, row).red < 100;
      }
    }
    return ink;
  }
};

}  // namespace

TEST_F(LookText, IsDrawnInAFontThatHasItsCharacters) {
  for (NSString *text in @[ @"語", @"한", @"简", @"繁", @"ש", @"ش" ]) {
    NSMutableAttributedString *fixed = [[make(text) mutableCopy] autorelease];
    [fixed fixFontAttributeInRange:NSMakeRange(0, 1)];
    NSFont *font = [fixed attribute:NSFontAttributeName atIndex:0 effectiveRange:NULL];
    EXPECT_TRUE([[font coveredCharacterSet] characterIsMember:[text characterAtIndex:0]])
        << [text UTF8String];
    EXPECT_EQ([font pointSize], 20);
  }
}

TEST_F(LookText, GoesFromRightToLeftInHebrew) {
  LookWindow *window = [LookWindow windowWithSize:NSMakeSize(200, 40) white:1];
  NSTextField *field = [[[NSTextField alloc] initWithFrame:NSMakeRect(0, 0, 200, 40)] autorelease];
  [field setSelectable:NO];
  [field setBordered:NO];
  [field setDrawsBackground:NO];
  [field setFont:[NSFont systemFontOfSize:20]];
  [field setAlignment:NSTextAlignmentCenter];
  [field setStringValue:@"ששששש          ."];
  [[window contentView] addSubview:field];
  [window makeKeyAndOrderFront:nil];
  // All of it is dark until the window is on the screen.
  EXPECT_TRUE(PumpUntil([&] {
    const int right = inkOf(field, 100);
    return right > 0 && right < 100 && right > 4 * inkOf(field, 25);
  }));
  [window orderOut:nil];
}

TEST_F(LookText, JoinsArabicLetters) {
  EXPECT_LT(widthOf(@"ببب"), 3 * widthOf(@"ب"));
  // A ligature of two letters.
  EXPECT_LT(widthOf(@"لا"), widthOf(@"ل") + widthOf(@"ا"));
}

TEST_F(LookText, OfBothDirectionsWraps) {
  NSString *text = @"כתובת jane@example.com של Editor";
  const CGFloat line = [make(text) size].height;
  EXPECT_EQ(heightIn(widthOf(text) + 1, text), line);
  EXPECT_GT(heightIn(widthOf(text) / 2, text), 1.5 * line);
}
