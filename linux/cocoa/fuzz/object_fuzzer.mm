// Arbitrary payloads as objects: what is made of them is of the classes that are allowed, and goes
// back into a frame.

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#import "object_coding.h"

using namespace platform::xpc;

namespace {

void Expect(BOOL condition, const char *what) {
  if (condition) {
    return;
  }
  fprintf(stderr, "object_fuzzer: %s\n", what);
  abort();
}

BOOL IsOf(id object, NSSet *allowed) {
  for (Class one in allowed) {
    if ([object isKindOfClass:one]) {
      return YES;
    }
  }
  return NO;
}

void CheckElements(id object, NSSet *allowed) {
  Expect(IsOf(object, allowed), "an object is of a class that is not allowed");
  if ([object isKindOfClass:[NSArray class]]) {
    for (id element in (NSArray *)object) {
      CheckElements(element, allowed);
    }
  } else if ([object isKindOfClass:[NSDictionary class]]) {
    for (id key in (NSDictionary *)object) {
      CheckElements(key, allowed);
      CheckElements([(NSDictionary *)object objectForKey:key], allowed);
    }
  }
}

/// Whether a URL is among them: one that the toolkit does not read again cannot be written.
BOOL HasURL(const Frame &frame) {
  for (const Item &item : frame.items) {
    if (item.tag == Tag::kURL) {
      return YES;
    }
  }
  return NO;
}

/// Every object written must be read again by the same rules.
void CheckAgain(id object, NSSet *allowed, BOOL hasURL) {
  Writer writer;
  writer.begin(FrameKind::kReply);
  writer.putNumber(1);
  writer.putNumber(1);
  @try {
    EncodeObject(&writer, object);
  } @catch (NSException *) {
    Expect(hasURL, "an object that was read cannot be written");
    return;
  }
  Expect(writer.finish(), "an object that was read is too large to be written");
  Frame frame;
  Expect(!DecodePayload(FrameKind::kReply, writer.data() + kHeaderSize, writer.size() - kHeaderSize,
                        &frame),
         "an object that was read cannot be written");
  const Item *item = frame.items.data();
  const char *problem = nullptr;
  id again = DecodeObject(&item, allowed, &problem);
  Expect(!problem && again, "an object that was written cannot be read");
  [again release];
}

}  // namespace

/// The first byte says which classes are allowed, the rest is a reply.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
  if (size == 0) {
    return 0;
  }
  @autoreleasepool {
    Frame frame;
    if (DecodePayload(FrameKind::kReply, bytes + 1, size - 1, &frame)) {
      return 0;
    }
    NSArray *classes = @[
      [NSString class], [NSNumber class], [NSArray class], [NSDictionary class], [NSError class],
      [NSData class], [NSDate class], [NSURL class], [NSNull class]
    ];
    NSMutableSet *allowed = [NSMutableSet set];
    for (NSUInteger i = 0; i < [classes count]; ++i) {
      if (bytes[0] == 0 || (bytes[0] >> (i % 8)) & 1) {
        [allowed addObject:[classes objectAtIndex:i]];
      }
    }
    const Item *item = frame.items.data();
    const Item *const end = item + frame.items.size();
    for (uint32_t i = 0; i < frame.argumentCount; ++i) {
      Expect(item < end, "the items end too early");
      const char *problem = nullptr;
      id object = DecodeObject(&item, allowed, &problem);
      Expect(!(object && problem), "an object is made in spite of a problem");
      if (problem) {
        break;
      }
      if (object) {
        CheckElements(object, allowed);
        CheckAgain(object, allowed, HasURL(frame));
      }
      [object release];
    }
  }
  return 0;
}
