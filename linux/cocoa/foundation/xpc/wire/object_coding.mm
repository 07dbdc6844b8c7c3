#include "object_coding.h"

#include <objc/runtime.h>

#include <atomic>
#include <cmath>
#include <cstring>

namespace platform::xpc {

namespace {

constexpr NSUInteger kStackUnits = 1024;

struct Classes {
  Class string, number, boolean, array, dictionary, error, data, date, url, null;
};

const Classes &Known() {
  static const Classes known = {
      [NSString class], [NSNumber class],     [[NSNumber numberWithBool:YES] class],
      [NSArray class],  [NSDictionary class], [NSError class],
      [NSData class],   [NSDate class],       [NSURL class],
      [NSNull class]};
  return known;
}

[[noreturn]] void RaiseNotCodable(id object) {
  [NSException raise:NSInvalidArgumentException
              format:@"An object of class %@ cannot be sent over a connection", [object class]];
  abort();
}

bool IsString(id object) {
  // Most objects are strings, and those are mostly of one class.
  static std::atomic<void *> known{nullptr};
  Class type = object_getClass(object);
  if ((void *)type == known.load(std::memory_order_relaxed)) {
    return true;
  }
  if (![object isKindOfClass:Known().string]) {
    return false;
  }
  // A proxy is what it stands for at the moment.
  if ([type isSubclassOfClass:Known().string]) {
    known.store((void *)type, std::memory_order_relaxed);
  }
  return true;
}

void PutString(Writer *writer, NSString *string) {
  NSUInteger length = [string length];
  if (length <= kStackUnits) {
    unichar units[kStackUnits];
    [string getCharacters:units range:NSMakeRange(0, length)];
    writer->PutUTF16(units, length);
  } else {
    std::unique_ptr<unichar[]> units(new unichar[length]);
    [string getCharacters:units.get() range:NSMakeRange(0, length)];
    writer->PutUTF16(units.get(), length);
  }
}

void PutNumberObject(Writer *writer, NSNumber *number) {
  if ([number class] == Known().boolean) {
    writer->PutTag([number boolValue] ? Tag::kTrue : Tag::kFalse);
    return;
  }
  switch ([number objCType][0]) {
    case 'f':
    case 'd':
      writer->PutTag(Tag::kFloatingNumber);
      writer->PutDouble([number doubleValue]);
      return;
    case 'C':
    case 'S':
    case 'I':
    case 'L':
    case 'Q':
      writer->PutTag(Tag::kUnsignedNumber);
      writer->PutNumber([number unsignedLongLongValue]);
      return;
    default:
      writer->PutTag(Tag::kSignedNumber);
      writer->PutSigned([number longLongValue]);
  }
}

bool IsCodable(id object, unsigned depth) {
  const Classes &known = Known();
  if (depth > kMaximumDepth) {
    return false;
  }
  if ([object isKindOfClass:known.array]) {
    for (id element in (NSArray *)object) {
      if (!IsCodable(element, depth + 1)) {
        return false;
      }
    }
    return true;
  }
  if ([object isKindOfClass:known.dictionary]) {
    for (id key in (NSDictionary *)object) {
      if (!IsCodable(key, depth + 1) ||
          !IsCodable([(NSDictionary *)object objectForKey:key], depth + 1)) {
        return false;
      }
    }
    return true;
  }
  return [object isKindOfClass:known.string] || [object isKindOfClass:known.number] ||
         [object isKindOfClass:known.error] || [object isKindOfClass:known.data] ||
         [object isKindOfClass:known.date] || [object isKindOfClass:known.url] ||
         [object isKindOfClass:known.null];
}

void Put(Writer *writer, id object, unsigned depth);

void PutError(Writer *writer, NSError *error, unsigned depth) {
  writer->PutTag(Tag::kError);
  writer->PutTag(Tag::kString);
  PutString(writer, [error domain]);
  writer->PutTag(Tag::kSigned);
  writer->PutSigned([error code]);
  NSDictionary *info = [error userInfo];
  NSMutableDictionary *codable = [[NSMutableDictionary alloc] init];
  for (id key in info) {
    id value = [info objectForKey:key];
    if (IsCodable(key, depth + 2) && IsCodable(value, depth + 2)) {
      [codable setObject:value forKey:key];
    }
  }
  if ([codable count] == 0) {
    writer->PutTag(Tag::kNil);
  } else {
    Put(writer, codable, depth + 1);
  }
  [codable release];
}

void Put(Writer *writer, id object, unsigned depth) {
  const Classes &known = Known();
  if (!object) {
    writer->PutTag(Tag::kNil);
    return;
  }
  if (depth > kMaximumDepth) {
    [NSException raise:NSInvalidArgumentException
                format:@"Objects are nested too deeply to be sent over a connection"];
  }
  if (IsString(object)) {
    writer->PutTag(Tag::kString);
    PutString(writer, object);
  } else if ([object isKindOfClass:known.number]) {
    PutNumberObject(writer, object);
  } else if ([object isKindOfClass:known.array]) {
    writer->PutTag(Tag::kArray);
    writer->PutNumber([object count]);
    for (id element in (NSArray *)object) {
      Put(writer, element, depth + 1);
    }
  } else if ([object isKindOfClass:known.dictionary]) {
    writer->PutTag(Tag::kDictionary);
    writer->PutNumber([object count]);
    for (id key in (NSDictionary *)object) {
      id value = [(NSDictionary *)object objectForKey:key];
      // A number that is none is never found again.
      if (!value) {
        RaiseNotCodable(key);
      }
      Put(writer, key, depth + 1);
      Put(writer, value, depth + 1);
    }
  } else if ([object isKindOfClass:known.error]) {
    PutError(writer, object, depth);
  } else if ([object isKindOfClass:known.data]) {
    writer->PutTag(Tag::kData);
    writer->PutText({static_cast<const char *>([object bytes]), [(NSData *)object length]});
  } else if ([object isKindOfClass:known.null]) {
    writer->PutTag(Tag::kNull);
  } else if ([object isKindOfClass:known.date]) {
    writer->PutTag(Tag::kDate);
    writer->PutDouble([object timeIntervalSinceReferenceDate]);
  } else if ([object isKindOfClass:known.url]) {
    writer->PutTag(Tag::kURL);
    PutString(writer, [object absoluteString]);
  } else {
    RaiseNotCodable(object);
  }
}

bool IsAllowed(NSSet *allowed, Class type) {
  if (!allowed) {
    return true;
  }
  for (Class one in allowed) {
    if (type == one || [type isSubclassOfClass:one]) {
      return true;
    }
  }
  return false;
}

Class PublicClass(Tag tag) {
  const Classes &known = Known();
  switch (tag) {
    case Tag::kString:
      return known.string;
    case Tag::kData:
      return known.data;
    case Tag::kArray:
      return known.array;
    case Tag::kDictionary:
      return known.dictionary;
    case Tag::kError:
      return known.error;
    case Tag::kNull:
      return known.null;
    case Tag::kDate:
      return known.date;
    case Tag::kURL:
      return known.url;
    case Tag::kFalse:
    case Tag::kTrue:
    case Tag::kSignedNumber:
    case Tag::kUnsignedNumber:
    case Tag::kFloatingNumber:
      return known.number;
    default:
      return Nil;
  }
}

NSString *MakeString(const Item &item) {
  return [[NSString alloc] initWithBytes:item.bytes length:item.size encoding:NSUTF8StringEncoding];
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
    if (value && [dictionary objectForKey:key]) {
      *problem = "a dictionary has a key twice";
    }
    if (value && !*problem) {
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
  int64_t number = 0;
  switch (type.kind) {
    case TypeKind::kObject:
      Put(writer, *static_cast<const id *>(value), 0);
      return;
    case TypeKind::kFloating:
      writer->PutTag(Tag::kFloating);
      writer->PutDouble(type.size == 4 ? *static_cast<const float *>(value)
                                       : *static_cast<const double *>(value));
      return;
    case TypeKind::kSigned:
      switch (type.size) {
        case 1:
          number = *static_cast<const int8_t *>(value);
          break;
        case 2:
          number = *static_cast<const int16_t *>(value);
          break;
        case 4:
          number = *static_cast<const int32_t *>(value);
          break;
        default:
          number = *static_cast<const int64_t *>(value);
          break;
      }
      writer->PutTag(Tag::kSigned);
      writer->PutSigned(number);
      return;
    case TypeKind::kBool:
    case TypeKind::kUnsigned: {
      uint64_t positive = 0;
      std::memcpy(&positive, value, type.size);
      writer->PutTag(Tag::kUnsigned);
      writer->PutNumber(positive);
      return;
    }
    case TypeKind::kBlock:
      writer->PutTag(Tag::kBlock);
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
  Class type = PublicClass(here.tag);
  if (!type) {
    *problem = "an object was expected";
    return nil;
  }
  if (!IsAllowed(allowed, type)) {
    *problem = "an object is of a class that is not allowed here";
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
      break;
  }
  if (!object && !*problem) {
    *problem = "an object cannot be made";
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
  const Classes &known = Known();
  return [NSSet setWithObjects:known.string, known.number, known.array, known.dictionary,
                               known.error, known.data, known.date, known.url, known.null, nil];
}

}  // namespace platform::xpc
