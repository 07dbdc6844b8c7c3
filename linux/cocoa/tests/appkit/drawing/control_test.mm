#include <CocoaTesting/LookTest.h>

using look::Near;
using look::Pixel;
using look::PumpUntil;
using look::WindowPixel;

class Controls : public look::LookTest {
 protected:
  void SetUp() override {
    look::LookTest::SetUp();
    window_ = [LookWindow windowWithSize:NSMakeSize(300, 200) white:249 / 255.0];
    [window_ center];
  }

  void TearDown() override {
    [window_ close];
    look::LookTest::TearDown();
  }

  NSButton *addButton(NSString *key) {
    NSButton *button = [[[NSButton alloc] initWithFrame:NSZeroRect] autorelease];
    [button setBezelStyle:NSBezelStyleRounded];
    [button setFrame:[button frameForAlignmentRect:NSMakeRect(100, 100, 110, 21)]];
    [button setTitle:@"Sure"];
    [button setFont:[NSFont systemFontOfSize:13 weight:NSFontWeightRegular]];
    if (key) {
      [button setKeyEquivalent:key];
    }
    [[window_ contentView] addSubview:button];
    return button;
  }

  void show() {
    [window_ makeKeyAndOrderFront:nil];
    ASSERT_TRUE(PumpUntil([=] {
      return Near(WindowPixel(window_, 40, 190), 249, 249, 249) &&
             Near(WindowPixel(window_, 260, 10), 249, 249, 249);
    }));
  }

  LookWindow *window_ = nil;
};

// The button is seen at x 100 … 210 and y 79 … 100 from the top; (108, 89) is inside its bezel left
// of the title.
static const int kInsideX = 108;
static const int kInsideY = 89;

TEST_F(Controls, OrdinaryPushButtonIsWhiteWithADarkTitleAndABorder) {
  addButton(nil);
  show();
  EXPECT_TRUE(
      PumpUntil([=] { return Near(WindowPixel(window_, kInsideX, kInsideY), 255, 255, 255); }));
  Pixel border = WindowPixel(window_, 100, kInsideY);
  EXPECT_LT(border.red, 240);
  EXPECT_GT(border.red, 150);
  int darkest = 255;
  for (int x = 130; x < 180; x++) {
    for (int y = 82; y < 97; y++) {
      darkest = MIN(darkest, WindowPixel(window_, x, y).red);
    }
  }
  EXPECT_LT(darkest, 120);
}

TEST_F(Controls, ButtonForReturnIsBlueWithAWhiteTitle) {
  addButton(@"\r");
  show();
  EXPECT_TRUE(PumpUntil([=] {
    Pixel pixel = WindowPixel(window_, kInsideX, kInsideY);
    return pixel.blue > 220 && pixel.red < 90 && pixel.green > 90 && pixel.green < 180;
  }));
  int lightest = 0;
  for (int x = 130; x < 180; x++) {
    for (int y = 82; y < 97; y++) {
      lightest = MAX(lightest, WindowPixel(window_, x, y).red);
    }
  }
  EXPECT_GT(lightest, 200);
}

TEST_F(Controls, ButtonForReturnHasNoPictureAndNoOtherSize) {
  NSButton *plain = addButton(nil);
  NSButton *button = addButton(@"\r");
  EXPECT_EQ([button image], nil);
  EXPECT_EQ([button alternateImage], nil);
  EXPECT_EQ([button imagePosition], NSNoImage);
  EXPECT_TRUE(NSEqualSizes([[button cell] cellSize], [[plain cell] cellSize]));
}

TEST_F(Controls, PushButtonSizesAreWholePoints) {
  NSSize size = [[addButton(nil) cell] cellSize];
  EXPECT_EQ(size.width, floor(size.width));
  EXPECT_EQ(size.height, 32);
}

TEST_F(Controls, PressedButtonIsDarker) {
  NSButton *button = addButton(@"\r");
  show();
  ASSERT_TRUE(PumpUntil([=] { return WindowPixel(window_, kInsideX, kInsideY).blue > 220; }));
  Pixel before = WindowPixel(window_, kInsideX, kInsideY);
  [[button cell] setHighlighted:YES];
  [button setNeedsDisplay:YES];
  EXPECT_TRUE(PumpUntil(
      [=] { return WindowPixel(window_, kInsideX, kInsideY).green < before.green - 10; }));
}

TEST_F(Controls, DarkAppearanceHasADarkButtonWithALightTitle) {
  addButton(nil);
  show();
  ASSERT_TRUE(
      PumpUntil([=] { return Near(WindowPixel(window_, kInsideX, kInsideY), 255, 255, 255); }));
  [NSApp setAppearance:[NSAppearance appearanceNamed:NSAppearanceNameDarkAqua]];
  EXPECT_TRUE(PumpUntil([=] {
    Pixel pixel = WindowPixel(window_, kInsideX, kInsideY);
    return pixel.red > 80 && pixel.red < 130;
  }));
  int lightest = 0;
  for (int x = 130; x < 180; x++) {
    for (int y = 82; y < 97; y++) {
      lightest = MAX(lightest, WindowPixel(window_, x, y).red);
    }
  }
  EXPECT_GT(lightest, 180);
  [NSApp setAppearance:nil];
  EXPECT_TRUE(
      PumpUntil([=] { return Near(WindowPixel(window_, kInsideX, kInsideY), 255, 255, 255); }));
}

TEST_F(Controls, FocusShowsOnlyOnceTheTabKeyWasUsed) {
  NSButton *button = addButton(nil);
  NSButton *other = addButton(nil);
  [other setFrameOrigin:NSMakePoint(NSMinX([other frame]), NSMinY([other frame]) - 60)];
  [button setNextKeyView:other];
  [other setNextKeyView:button];
  [window_ makeFirstResponder:button];
  show();
  auto ringAt = [=](int x, int y) {
    Pixel pixel = WindowPixel(window_, x, y);
    return pixel.blue > pixel.red + 40;
  };
  ASSERT_TRUE(
      PumpUntil([=] { return Near(WindowPixel(window_, kInsideX, kInsideY), 255, 255, 255); }));
  EXPECT_FALSE(ringAt(101, kInsideY));
  [window_ selectNextKeyView:nil];
  EXPECT_EQ([window_ firstResponder], other);
  EXPECT_TRUE(PumpUntil([=] { return ringAt(101, kInsideY + 60); }));
  EXPECT_FALSE(ringAt(101, kInsideY));
}

TEST_F(Controls, ImageButtonWithoutBorderIsItsImage) {
  NSImage *image = [[[NSImage alloc] initWithSize:NSMakeSize(12, 12)] autorelease];
  [image lockFocus];
  [[NSColor redColor] setFill];
  NSRectFill(NSMakeRect(0, 0, 12, 12));
  [image unlockFocus];
  NSButton *button = [[[NSButton alloc] initWithFrame:NSMakeRect(50, 100, 12, 12)] autorelease];
  [button setBordered:NO];
  [button setImage:image];
  [button setKeyEquivalent:@"\x1b"];
  [[window_ contentView] addSubview:button];
  show();
  EXPECT_TRUE(PumpUntil([=] {
    return Near(WindowPixel(window_, 50, 88), 255, 0, 0) &&
           Near(WindowPixel(window_, 61, 99), 255, 0, 0);
  }));
  EXPECT_TRUE(Near(WindowPixel(window_, 49, 94), 249, 249, 249));
  EXPECT_TRUE(Near(WindowPixel(window_, 62, 94), 249, 249, 249));
}

TEST_F(Controls, EmptyButtonOfNoSizeDrawsNothing) {
  NSButton *button = [[[NSButton alloc] initWithFrame:NSZeroRect] autorelease];
  [button setKeyEquivalent:@"w"];
  [[window_ contentView] addSubview:button];
  show();
  EXPECT_TRUE(PumpUntil([=] { return Near(WindowPixel(window_, 40, 199), 249, 249, 249); }));
  EXPECT_TRUE(Near(WindowPixel(window_, 25, 195), 249, 249, 249));
}

TEST_F(Controls, TextFieldWithoutBorderHasNoBezelEither) {
  NSTextField *field =
      [[[NSTextField alloc] initWithFrame:NSMakeRect(50, 50, 200, 30)] autorelease];
  EXPECT_TRUE([field isBezeled]);
  [field setEditable:NO];
  [field setBordered:NO];
  [field setDrawsBackground:NO];
  [field setSelectable:NO];
  EXPECT_FALSE([field isBezeled]);
  EXPECT_FALSE([field isBordered]);
  [field setFont:[NSFont systemFontOfSize:14 weight:NSFontWeightLight]];
  [field setStringValue:@"invites you"];
  [[window_ contentView] addSubview:field];
  show();
  auto darkest = [=] {
    int value = 255;
    for (int x = 52; x < 130; x++) {
      for (int y = 122; y < 148; y++) {
        value = MIN(value, WindowPixel(window_, x, y).red);
      }
    }
    return value;
  };
  EXPECT_TRUE(PumpUntil([=] { return darkest() < 150; }));
  for (int x = 50; x < 250; x += 10) {
    EXPECT_TRUE(Near(WindowPixel(window_, x, 120), 249, 249, 249)) << x;
    EXPECT_TRUE(Near(WindowPixel(window_, x, 149), 249, 249, 249)) << x;
  }
}

TEST_F(Controls, TextIsSmoothAndGray) {
  NSTextField *field =
      [[[NSTextField alloc] initWithFrame:NSMakeRect(50, 50, 200, 30)] autorelease];
  [field setEditable:NO];
  [field setBordered:NO];
  [field setDrawsBackground:NO];
  [field setSelectable:NO];
  [field setStringValue:@"Sava & Co"];
  [[window_ contentView] addSubview:field];
  show();
  auto shades = [=] {
    int between = 0;
    for (int x = 52; x < 130; x++) {
      for (int y = 122; y < 148; y++) {
        Pixel pixel = WindowPixel(window_, x, y);
        EXPECT_LE(std::abs(pixel.red - pixel.blue), 2) << "no color fringes";
        if (pixel.red > 40 && pixel.red < 220) {
          between++;
        }
      }
    }
    return between;
  };
  EXPECT_TRUE(PumpUntil([=] { return shades() > 40; }));
}
