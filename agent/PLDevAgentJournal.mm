#import "agent/PLDevAgentJournal.h"

#include <cstdio>

/// `value` with everything that JSON does not know replaced by its description.
static id PLJSONValue(id value) {
  if ([value isKindOfClass:NSString.class] || [value isKindOfClass:NSNumber.class] ||
      value == NSNull.null) {
    return value;
  }
  if ([value isKindOfClass:NSArray.class]) {
    NSMutableArray *array = [NSMutableArray array];
    for (id element in value) {
      [array addObject:PLJSONValue(element)];
    }
    return array;
  }
  if ([value isKindOfClass:NSDictionary.class]) {
    NSMutableDictionary *dictionary = [NSMutableDictionary dictionary];
    for (id key in value) {
      [dictionary setObject:PLJSONValue([value objectForKey:key]) forKey:[key description]];
    }
    return dictionary;
  }
  return [value description];
}

/// The JSON text of one value. The serializer takes only containers, so the value goes in one.
static NSString *PLJSONText(id value) {
  NSData *data = [NSJSONSerialization dataWithJSONObject:@[ PLJSONValue(value) ]
                                                 options:0
                                                   error:NULL];
  NSString *text = [[[NSString alloc] initWithData:data encoding:NSUTF8StringEncoding] autorelease];
  return [text substringWithRange:NSMakeRange(1, text.length - 2)];
}

@implementation PLDevAgentJournal

- (void)recordListeningForService:(NSString *)service {
  [self writeLine:[NSString stringWithFormat:@"{\"event\":\"listening\",\"service\":%@,\"pid\":%d}",
                                             PLJSONText(service),
                                             NSProcessInfo.processInfo.processIdentifier]];
}

- (void)recordRequest:(SEL)selector arguments:(NSArray *)arguments {
  [self writeLine:[NSString
                      stringWithFormat:@"{\"event\":\"request\",\"method\":%@,\"arguments\":%@}",
                                       PLJSONText(NSStringFromSelector(selector)),
                                       PLJSONText(arguments)]];
}

- (void)writeLine:(NSString *)line {
  NSMutableData *data = [[[line dataUsingEncoding:NSUTF8StringEncoding] mutableCopy] autorelease];
  [data appendBytes:"\n" length:1];
  // One call under the stream's own lock, so that lines of several threads do not mix.
  flockfile(stdout);
  fwrite(data.bytes, 1, data.length, stdout);
  fflush(stdout);
  funlockfile(stdout);
}

@end
