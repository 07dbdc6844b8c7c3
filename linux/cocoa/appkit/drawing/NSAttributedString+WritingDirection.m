// Hebrew and Arabic, alone or with other scripts in one text. GNUstep places the characters of every
// text from left to right, and joins no letters: so such a text is handed to it as it is to look,
// line by line.

#import <AppKit/AppKit.h>
#include <fribidi.h>
#include <stdlib.h>

#import "runtime/MethodReplacement.h"
#import "runtime/NSApplication+Launch.h"

static NSSize (*sSize)(id, SEL);
static NSRect (*sBoundingRect)(id, SEL, NSSize, NSStringDrawingOptions);
static void (*sDraw)(id, SEL, NSRect);

/// Of a text that looks already as it is to.
static NSString *const sIsVisualAttribute = @"PlatformIsVisual";

static const CGFloat sUnlimited = 1e6;

/// The line from left to right, its Arabic letters in the shapes that join.
static NSString *VisualLine(NSString *line, FriBidiParType *direction) {
  NSData *data = [line dataUsingEncoding:NSUTF32LittleEndianStringEncoding];
  const FriBidiStrIndex length = (FriBidiStrIndex)([data length] / sizeof(FriBidiChar));
  FriBidiChar *visual = calloc((size_t)length + 1, sizeof(FriBidiChar));
  fribidi_log2vis([data bytes], length, direction, visual, NULL, NULL, NULL);
  // A mark comes before its letter, over which the font draws it.
  for (FriBidiStrIndex i = 1; i < length; i++) {
    if (fribidi_get_bidi_type(visual[i]) == FRIBIDI_TYPE_NSM) {
      const FriBidiChar mark = visual[i];
      visual[i] = visual[i - 1];
      visual[i - 1] = mark;
    }
  }
  NSString *text = [[[NSString alloc] initWithBytes:visual
                                             length:(NSUInteger)length * sizeof(FriBidiChar)
                                           encoding:NSUTF32LittleEndianStringEncoding] autorelease];
  free(visual);
  // What stands for the second letter of a ligature.
  return [text stringByReplacingOccurrencesOfString:@"\uFEFF" withString:@""];
}

static BOOL IsRightToLeft(NSString *text) {
  for (NSUInteger i = 0; i < [text length]; i++) {
    if (FRIBIDI_IS_RTL(fribidi_get_bidi_type([text characterAtIndex:i]))) {
      return YES;
    }
  }
  return NO;
}

/// `text` as GNUstep is to draw it in that width; itself, if nothing in it goes from right to left.
static NSAttributedString *VisualText(NSAttributedString *text, CGFloat width) {
  NSString *string = [text string];
  if (!IsRightToLeft(string) || [text attribute:sIsVisualAttribute atIndex:0 effectiveRange:NULL]) {
    return text;
  }
  NSMutableDictionary *attributes = [[[text attributesAtIndex:0
                                               effectiveRange:NULL] mutableCopy] autorelease];
  [attributes setObject:[NSNumber numberWithBool:YES] forKey:sIsVisualAttribute];
  NSAttributedString * (^styled)(NSString *) = ^(NSString *line) {
    return [[[NSAttributedString alloc] initWithString:line attributes:attributes] autorelease];
  };

  // The whole text decides on the direction of each of its lines.
  FriBidiParType direction = FRIBIDI_PAR_ON;
  (void)VisualLine(string, &direction);
  NSMutableArray *lines = [NSMutableArray array];
  NSString *line = nil;
  for (NSString *word in [string componentsSeparatedByString:@" "]) {
    NSString *longer = line ? [NSString stringWithFormat:@"%@ %@", line, word] : word;
    if (line && sSize(styled(VisualLine(longer, &direction)), @selector(size)).width > width) {
      [lines addObject:VisualLine(line, &direction)];
      longer = word;
    }
    line = longer;
  }
  [lines addObject:VisualLine(line, &direction)];
  return styled([lines componentsJoinedByString:@"\n"]);
}

static NSSize Size(NSAttributedString *self, SEL cmd) {
  return sSize(VisualText(self, sUnlimited), cmd);
}

static NSRect BoundingRect(NSAttributedString *self, SEL cmd, NSSize size,
                           NSStringDrawingOptions options) {
  return sBoundingRect(VisualText(self, size.width > 0 ? size.width : sUnlimited), cmd, size,
                       options);
}

static void Draw(NSAttributedString *self, SEL cmd, NSRect rect) {
  sDraw(VisualText(self, NSWidth(rect)), cmd, rect);
}

static void Install(void) {
  Class text = [NSAttributedString class];
  sSize = (NSSize(*)(id, SEL))PlatformReplaceMethod(text, @selector(size), (PlatformFunction)Size);
  sBoundingRect = (NSRect(*)(id, SEL, NSSize, NSStringDrawingOptions))PlatformReplaceMethod(
      text, @selector(boundingRectWithSize:options:), (PlatformFunction)BoundingRect);
  sDraw = (void (*)(id, SEL, NSRect))PlatformReplaceMethod(text, @selector(drawInRect:),
                                                           (PlatformFunction)Draw);
}

__attribute__((constructor)) static void Register(void) { PlatformInstallAtLaunch(Install); }
