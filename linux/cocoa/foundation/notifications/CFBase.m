#include <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>

CFTypeRef CFRetain(CFTypeRef object) { return [(id)object retain]; }

void CFRelease(CFTypeRef object) { [(id)object release]; }

CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8 *bytes, CFIndex length,
                                    CFStringEncoding encoding, Boolean isExternalRepresentation) {
  (void)allocator;
  (void)isExternalRepresentation;
  if (encoding != kCFStringEncodingUTF8 || length < 0) {
    return NULL;
  }
  return (CFStringRef)[[NSString alloc] initWithBytes:bytes
                                               length:(NSUInteger)length
                                             encoding:NSUTF8StringEncoding];
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char *text,
                                      CFStringEncoding encoding) {
  return CFStringCreateWithBytes(allocator, (const UInt8 *)text, (CFIndex)strlen(text), encoding,
                                 false);
}

const void *CFDictionaryGetValue(CFDictionaryRef dictionary, const void *key) {
  return [(NSDictionary *)dictionary objectForKey:(id)key];
}
