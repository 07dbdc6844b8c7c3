#import "object_coding.h"

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

namespace platform::xpc {

namespace {

[[noreturn]] void RaiseNotCodable(id object) {
  [NSException raise:NSInvalidArgumentException
              format:@"An object of class %@ cannot be sent over a connection", [object class]];
  abort();
}

void PutString(Writer *writer, NSString *string) {
  std::vector<unichar> units([string length]);
  [string getCharacters:units.data() range:NSMakeRange(0, units.size())];
  writer->putUtF16(units.data(), units.size());
}

void PutNumberObject(Writer *writer, NSNumber *number) {
  if ([number class] == [[NSNumber numberWithBool:YES] class]) {
    writer->putTag([number boolValue] ? Tag::kTrue : Tag::kFalse);
    return;
  }
  switch ([number objCType][0]) {
    case 'f':
    case 'd':
      writer->putTag(Tag::kFloatingNumber);
      writer->putDouble([number doubleValue]);
      return;
    case 'C':
    case 'S':
    case 'I':
    case 'L':
    case 'Q':
      writer->putTag(Tag::kUnsignedNumber);
      writer->putNumber([number unsignedLongLongValue]);
      return;
    default:
      writer->putTag(Tag::kSignedNumber);
      writer->putSigned([number longLongValue]);
  }
}

void Put(Writer *writer, id object, unsigned depth);

void PutPair(Writer *writer, NSDictionary *dictionary, id key, unsigned depth) {
  id value = [dictionary objectForKey:key];
  // A number that is none is never found again.
  if (!value) {
    RaiseNotCodable(key);
  }
  Put(writer, key, depth);
  Put(writer, value, depth);
}

void PutError(Writer *writer, NSError *error, unsigned depth) {
  writer->putTag(Tag::kError);
  NSString *domain = [error domain];
  Put(writer, domain ? domain : @"", depth + 1);
  writer->putTag(Tag::kSigned);
  writer->putSigned([error code]);
  NSDictionary *info = [error userInfo];
  Writer pairs;
  unsigned count = 0;
  for (id key in info) {
    Writer pair;
    @try {
      PutPair(&pair, info, key, depth + 2);
    } @catch (NSException *) {
      continue;
    }
    pairs.putAll(pair);
    ++count;
  }
  if (count == 0) {
    writer->putTag(Tag::kNil);
    return;
  }
  writer->putTag(Tag::kDictionary);
  writer->putNumber(count);
  writer->putAll(pairs);
}

void Put(Writer *writer, id object, unsigned depth) {
  if (!object) {
    writer->putTag(Tag::kNil);
    return;
  }
  if (depth > kMaximumDepth) {
    [NSException raise:NSInvalidArgumentException
                format:@"Objects are nested too deeply to be sent over a connection"];
  }
  if ([object isKindOfClass:[NSString class]]) {
    writer->putTag(Tag::kString);
    PutString(writer, object);
  } else if ([object isKindOfClass:[NSNumber class]]) {
    PutNumberObject(writer, object);
  } else if ([object isKindOfClass:[NSArray class]]) {
    writer->putTag(Tag::kArray);
    writer->putNumber([object count]);
    for (id element in (NSArray *)object) {
      Put(writer, element, depth + 1);
    }
  } else if ([object isKindOfClass:[NSDictionary class]]) {
    writer->putTag(Tag::kDictionary);
    writer->putNumber([object count]);
    for (id key in (NSDictionary *)object) {
      PutPair(writer, object, key, depth + 1);
    }
  } else if ([object isKindOfClass:[NSError class]]) {
    PutError(writer, object, depth);
  } else if ([object isKindOfClass:[NSData class]]) {
    writer->putTag(Tag::kData);
    writer->putText({static_cast<const char *>([object bytes]), [(NSData *)object length]});
  } else if ([object isKindOfClass:[NSNull class]]) {
    writer->putTag(Tag::kNull);
  } else if ([object isKindOfClass:[NSDate class]] &&
             std::isfinite([object timeIntervalSinceReferenceDate])) {
    writer->putTag(Tag::kDate);
    writer->putDouble([object timeIntervalSinceReferenceDate]);
  } else if ([object isKindOfClass:[NSURL class]] &&
             [NSURL URLWithString:[object absoluteString]]) {
    writer->putTag(Tag::kURL);
    PutString(writer, [object absoluteString]);
  } else {
    RaiseNotCodable(object);
  }
}

bool IsAllowed(NSSet *allowed, id object) {
  for (Class each in allowed) {
    if ([object isKindOfClass:each]) {
      return true;
    }
  }
  return allowed == nil;
}

NSString *MakeString(const Item &item) {
  if (item.text().substr(0, 3) != "\xef\xbb\xbf") {
    return [[NSString alloc] initWithBytes:item.bytes
                                    length:item.size
                                  encoding:NSUTF8StringEncoding];
  }
  // GNUstep takes U+FEFF at the beginning for a mark of the byte order and drops it.
  const std::string text = "." + std::string(item.text());
  NSString *behind = [[[NSString alloc] initWithBytes:text.data()
                                               length:text.size()
                                             encoding:NSUTF8StringEncoding] autorelease];
  return [[behind substringFromIndex:1] retain];
}

id DecodeArray(const Item **item, uint32_t count, NSSet *allowed, const char **problem) {
  NSMutableArray *array = [[NSMutableArray alloc] initWithCapacity:count];
  for (uint32_t i = 0; i < count; ++i) {
    id element = DecodeObject(item, allowed, problem);
    if (!element) {
      [array release];
      return nil;
    }
    [array addObject:element];
    [element release];
  }
  return array;
}

id DecodeDictionary(const Item **item, uint32_t count, NSSet *allowed, const char **problem) {
  NSMutableDictionary *dictionary = [[NSMutableDictionary alloc] initWithCapacity:count];
  for (uint32_t i = 0; i < count; ++i) {
    id key = DecodeObject(item, allowed, problem);
    id value = key ? DecodeObject(item, allowed, problem) : nil;
    if (value) {
      [dictionary setObject:value forKey:key];
      if (![dictionary objectForKey:key]) {
        *problem = "a dictionary has a key that is no value";
      }
    }
    [key release];
    [value release];
    if (!value || *problem) {
      [dictionary release];
      return nil;
    }
  }
  return dictionary;
}

id DecodeError(const Item **item, const char **problem) {
  id domain = DecodeObject(item, nil, problem);
  NSInteger code = static_cast<NSInteger>((*item)++->asSigned);
  id info = *problem ? nil : DecodeObject(item, nil, problem);
  id error = nil;
  if (!*problem) {
    error = [[NSError alloc] initWithDomain:domain code:code userInfo:info];
  }
  [domain release];
  [info release];
  return error;
}

}  // namespace

void EncodeObject(Writer *writer, id object) { Put(writer, object, 0); }

void EncodeArgument(Writer *writer, const Type &type, const void *value) {
  switch (type.kind) {
    case TypeKind::kObject:
      Put(writer, *static_cast<const id *>(value), 0);
      return;
    case TypeKind::kFloating:
      writer->putTag(Tag::kFloating);
      writer->putDouble(type.size == 4 ? *static_cast<const float *>(value)
                                       : *static_cast<const double *>(value));
      return;
    case TypeKind::kSigned: {
      const unsigned unused = 64 - 8 * type.size;
      uint64_t bits = 0;
      std::memcpy(&bits, value, type.size);
      writer->putTag(Tag::kSigned);
      writer->putSigned(static_cast<int64_t>(bits << unused) >> unused);
      return;
    }
    case TypeKind::kBool:
    case TypeKind::kUnsigned: {
      uint64_t positive = 0;
      std::memcpy(&positive, value, type.size);
      writer->putTag(Tag::kUnsigned);
      writer->putNumber(positive);
      return;
    }
    case TypeKind::kBlock:
      writer->putTag(Tag::kBlock);
      return;
    case TypeKind::kVoid:
      return;
  }
}

id DecodeObject(const Item **item, NSSet *allowed, const char **problem) {
  const Item &here = *(*item)++;
  if (here.tag == Tag::kNil) {
    return nil;
  }
  id object = nil;
  switch (here.tag) {
    case Tag::kString:
      object = MakeString(here);
      break;
    case Tag::kData:
      object = [[NSData alloc] initWithBytes:here.bytes length:here.size];
      break;
    case Tag::kArray:
      object = DecodeArray(item, here.size, allowed, problem);
      break;
    case Tag::kDictionary:
      object = DecodeDictionary(item, here.size, allowed, problem);
      break;
    case Tag::kError:
      object = DecodeError(item, problem);
      break;
    case Tag::kNull:
      object = [[NSNull null] retain];
      break;
    case Tag::kDate:
      if (std::isfinite(here.asFloating)) {
        object = [[NSDate alloc] initWithTimeIntervalSinceReferenceDate:here.asFloating];
      }
      break;
    case Tag::kURL: {
      NSString *text = MakeString(here);
      object = text ? [[NSURL alloc] initWithString:text] : nil;
      [text release];
      break;
    }
    case Tag::kFalse:
      object = [[NSNumber alloc] initWithBool:NO];
      break;
    case Tag::kTrue:
      object = [[NSNumber alloc] initWithBool:YES];
      break;
    case Tag::kSignedNumber:
      object = [[NSNumber alloc] initWithLongLong:here.asSigned];
      break;
    case Tag::kUnsignedNumber:
      object = [[NSNumber alloc] initWithUnsignedLongLong:here.asUnsigned];
      break;
    case Tag::kFloatingNumber:
      object = [[NSNumber alloc] initWithDouble:here.asFloating];
      break;
    default:
      *problem = "an object was expected";
  }
  if (!object && !*problem) {
    *problem = "an object cannot be made";
  }
  if (object && !IsAllowed(allowed, object)) {
    *problem = "an object is of a class that is not allowed here";
    [object release];
    return nil;
  }
  return object;
}

const char *DecodeArgument(const Item **item, const Type &type, NSSet *allowed, Slot *slot) {
  const char *problem = nullptr;
  slot->asUnsigned = 0;
  if (type.kind == TypeKind::kObject) {
    slot->pointer = DecodeObject(item, allowed, &problem);
    return problem;
  }
  const Item &here = *(*item)++;
  bool stored = false;
  if (here.tag == Tag::kSigned) {
    stored = StoreSigned(type, here.asSigned, slot);
  }
  if (here.tag == Tag::kUnsigned) {
    stored = StoreUnsigned(type, here.asUnsigned, slot);
  }
  if (here.tag == Tag::kFloating) {
    stored = StoreFloating(type, here.asFloating, slot);
  }
  return stored ? nullptr : "a scalar does not fit its type";
}

NSSet *CodableClasses() {
  return [NSSet setWithObjects:[NSString class], [NSNumber class], [NSArray class],
                               [NSDictionary class], [NSError class], [NSData class],
                               [NSDate class], [NSURL class], [NSNull class], nil];
}

}  // namespace platform::xpc
