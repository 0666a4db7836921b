#import "platform/apple/conversions.h"

#include <xlocale.h>

#include <cerrno>
#include <utility>
#include <vector>

#include "foundation/values/Utf8.h"
#include "platform/apple/property_list_bounds.h"
#include "platform/posix/error_reasons.h"
#include "platform/posix/posix_error.h"

namespace tks::platform::apple {
namespace {

bool isBoolean(NSNumber* number) { return CFGetTypeID((__bridge CFTypeRef)number) == CFBooleanGetTypeID(); }

/// A number that was written with more digits than the usual ones hold. Its own conversion to a double is not exact.
TKSValue fromDecimal(NSDecimalNumber* number) {
  const std::string text = fromString(number.stringValue);
  if (text.find_first_of(".eE") == std::string::npos && [number isEqual:@(number.longLongValue)]) {
    return TKSValue(static_cast<std::int64_t>(number.longLongValue));
  }
  if (text.find_first_of(".eE") == std::string::npos && [number isEqual:@(number.unsignedLongLongValue)]) {
    return TKSValue(static_cast<std::uint64_t>(number.unsignedLongLongValue));
  }
  return TKSValue(strtod_l(text.c_str(), nullptr, LC_C_LOCALE));
}

TKSValue fromNumber(NSNumber* number) {
  if (isBoolean(number)) return TKSValue(static_cast<bool>(number.boolValue));
  if ([number isKindOfClass:NSDecimalNumber.class]) return fromDecimal(static_cast<NSDecimalNumber*>(number));
  if (CFNumberIsFloatType((__bridge CFNumberRef)number)) return TKSValue(number.doubleValue);
  if (number.objCType[0] == 'Q') return TKSValue(static_cast<std::uint64_t>(number.unsignedLongLongValue));
  return TKSValue(static_cast<std::int64_t>(number.longLongValue));
}

/// Everything that has no members.
TKSValue fromLeaf(id object) {
  if (object == nil) return TKSValue();
  if ([object isKindOfClass:NSString.class]) return TKSValue(fromString(object));
  if ([object isKindOfClass:NSNumber.class]) return fromNumber(object);
  if ([object isKindOfClass:NSNull.class]) return TKSValue(TKSNull());
  if ([object isKindOfClass:NSDate.class]) return TKSValue(TKSDate{[object timeIntervalSince1970]});
  if ([object isKindOfClass:NSData.class]) return TKSValue(fromData(object));
  return TKSValue(fromString([object description]));
}

/// A container under construction: its members, how far the walk has come, and what was converted so far.
struct OpenContainer {
  NSArray* keys = nil;
  NSArray* members = nil;
  NSUInteger next = 0;
  std::vector<std::pair<std::string, TKSValue>> entries;
  std::vector<TKSValue> elements;
};

bool open(id object, std::vector<OpenContainer>& stack) {
  if ([object isKindOfClass:NSDictionary.class]) {
    OpenContainer container;
    container.keys = [object allKeys];
    container.members = [object objectsForKeys:container.keys notFoundMarker:NSNull.null];
    stack.push_back(std::move(container));
    return true;
  }
  if ([object isKindOfClass:NSArray.class]) {
    OpenContainer container;
    container.members = object;
    stack.push_back(std::move(container));
    return true;
  }
  return false;
}

void add(OpenContainer& container, TKSValue value) {
  const NSUInteger index = container.next++;
  if (container.keys == nil) {
    container.elements.push_back(std::move(value));
  } else {
    container.entries.emplace_back(fromString([[container.keys objectAtIndex:index] description]), std::move(value));
  }
}

TKSValue close(OpenContainer& container) {
  if (container.keys == nil) return TKSArray(std::move(container.elements));
  return TKSDictionary(std::move(container.entries));
}

/// A value under conversion to objects: the values still to come and the object they go into.
struct OpenValue {
  TKSValue value;
  std::vector<std::pair<std::string_view, const TKSValue*>> members;
  std::size_t next = 0;
  NSMutableDictionary* dictionary = nil;
  NSMutableArray* array = nil;
};

id toLeaf(const TKSValue& value) {
  switch (value.kind()) {
    case TKSValue::Kind::nothing:
      return nil;
    case TKSValue::Kind::null:
      return NSNull.null;
    case TKSValue::Kind::boolean:
      return @(value.boolean());
    case TKSValue::Kind::integer:
      return value.isUnsignedInteger() ? @(value.unsignedInteger()) : @(value.integer());
    case TKSValue::Kind::real:
      return @(value.real());
    case TKSValue::Kind::text:
      return toString(value.text());
    case TKSValue::Kind::data:
      return toData(value.data());
    case TKSValue::Kind::date:
      return [NSDate dateWithTimeIntervalSince1970:value.date().secondsSince1970];
    case TKSValue::Kind::array:
    case TKSValue::Kind::dictionary:
      break;
  }
  return nil;
}

bool open(const TKSValue& value, std::vector<OpenValue>& stack) {
  OpenValue container;
  container.value = value;
  if (value.isDictionary()) {
    container.dictionary = [NSMutableDictionary dictionary];
    for (const auto& [key, member] : value.dictionary()) container.members.emplace_back(key, &member);
  } else if (value.isArray()) {
    container.array = [NSMutableArray array];
    for (const TKSValue& member : value.array()) container.members.emplace_back(std::string_view(), &member);
  } else {
    return false;
  }
  stack.push_back(std::move(container));
  return true;
}

/// Nothing, and text that is none, have no object: null stands for them, which no property list takes.
void add(OpenValue& container, id object) {
  const std::string_view key = container.members[container.next++].first;
  id member = object != nil ? object : NSNull.null;
  if (container.array != nil) {
    [container.array addObject:member];
  } else if (NSString* name = toString(key)) {
    [container.dictionary setObject:member forKey:name];
  } else {
    [container.dictionary setObject:member forKey:NSNull.null];
  }
}

/// UTF-16 units to UTF-8, with replacement characters for lone surrogates.
std::string repaired(NSString* text) {
  std::string result;
  const NSUInteger length = text.length;
  for (NSUInteger i = 0; i < length; ++i) {
    char32_t character = [text characterAtIndex:i];
    const bool isFirstHalf = character >= 0xD800 && character < 0xDC00;
    const char32_t second = isFirstHalf && i + 1 < length ? [text characterAtIndex:i + 1] : 0;
    if (second >= 0xDC00 && second < 0xE000) {
      character = 0x10000 + ((character - 0xD800) << 10) + (second - 0xDC00);
      ++i;
    } else if (character >= 0xD800 && character < 0xE000) {
      character = 0xFFFD;
    }
    utf8::append(result, character);
  }
  return result;
}

/// The frameworks' own numbers for what system calls say as well.
int systemNumberOfCode(NSInteger code) {
  switch (code) {
    case NSFileNoSuchFileError:
    case NSFileReadNoSuchFileError:
      return ENOENT;
    case NSFileReadNoPermissionError:
    case NSFileWriteNoPermissionError:
      return EACCES;
    case NSFileWriteFileExistsError:
      return EEXIST;
    case NSFileWriteOutOfSpaceError:
      return ENOSPC;
    default:
      return 0;
  }
}

/// The number of errno that an error or what lies beneath it comes from; 0 when there is none.
int systemNumberOf(NSError* error) {
  for (NSError* cause = error; cause != nil; cause = [cause.userInfo objectForKey:NSUnderlyingErrorKey]) {
    if ([cause.domain isEqualToString:NSPOSIXErrorDomain]) return static_cast<int>(cause.code);
  }
  return [error.domain isEqualToString:NSCocoaErrorDomain] ? systemNumberOfCode(error.code) : 0;
}

}  // namespace

NSString* toString(std::string_view text) {
  return [[NSString alloc] initWithBytes:text.data() length:text.size() encoding:NSUTF8StringEncoding];
}

std::string fromString(NSString* text) {
  if (text == nil) return {};
  NSData* bytes = [text dataUsingEncoding:NSUTF8StringEncoding];
  if (bytes == nil) return repaired(text);
  return std::string(static_cast<const char*>(bytes.bytes), bytes.length);
}

NSString* toRepairedString(std::string_view text) {
  if (NSString* exact = toString(text)) return exact;
  std::string result;
  while (!text.empty()) utf8::append(result, utf8::takeCharacter(text).value_or(0xFFFD));
  return toString(result);
}

NSString* toPath(std::string_view path) {
  if (path.empty()) return @"";
  NSString* text = [NSFileManager.defaultManager stringWithFileSystemRepresentation:path.data() length:path.size()];
  return text != nil ? text : @"";
}

NSURL* toFileURL(std::string_view path) { return [NSURL fileURLWithPath:toPath(path)]; }

NSArray<NSString*>* toArguments(std::span<const std::string> arguments) {
  NSMutableArray<NSString*>* result = [NSMutableArray array];
  for (const std::string& argument : arguments) {
    const bool hasNul = argument.find('\0') != std::string::npos;
    NSString* text = hasNul ? nil : toString(argument);
    errno = hasNul ? EINVAL : EILSEQ;
    if (text == nil) return nil;
    [result addObject:text];
  }
  return result;
}

NSData* toData(std::span<const std::uint8_t> bytes) { return [NSData dataWithBytes:bytes.data() length:bytes.size()]; }

TKSData fromData(NSData* data) {
  const auto* bytes = static_cast<const std::uint8_t*>(data.bytes);
  return TKSData(bytes, bytes + data.length);
}

TKSValue fromObject(id object) {
  std::vector<OpenContainer> stack;
  if (!open(object, stack)) return fromLeaf(object);
  for (;;) {
    OpenContainer& top = stack.back();
    if (top.next < top.members.count) {
      id member = [top.members objectAtIndex:top.next];
      if (!open(member, stack)) add(top, fromLeaf(member));
      continue;
    }
    TKSValue done = close(top);
    stack.pop_back();
    if (stack.empty()) return done;
    add(stack.back(), std::move(done));
  }
}

id toObject(const TKSValue& value) {
  std::vector<OpenValue> stack;
  if (!open(value, stack)) return toLeaf(value);
  for (;;) {
    OpenValue& top = stack.back();
    if (top.next < top.members.size()) {
      const TKSValue& member = *top.members[top.next].second;
      if (!open(member, stack)) add(top, toLeaf(member));
      continue;
    }
    id done = top.array != nil ? static_cast<id>(top.array) : static_cast<id>(top.dictionary);
    stack.pop_back();
    if (stack.empty()) return done;
    add(stack.back(), done);
  }
}

bool isBeyondBounds(const TKSValue& value) {
  // The containers of one level after those of the other. A value may share its parts, which are written out each time.
  std::vector<const TKSValue*> level;
  std::size_t members = 0;
  const auto add = [&](std::vector<const TKSValue*>& to, const TKSValue& member) {
    ++members;
    if (member.isArray() || member.isDictionary()) to.push_back(&member);
  };
  add(level, value);
  for (std::size_t depth = 1; !level.empty(); ++depth) {
    if (depth > kDeepestNesting) return true;
    std::vector<const TKSValue*> next;
    for (const TKSValue* container : level) {
      if (members > kMostObjects) return true;
      for (const TKSValue& member : container->array()) add(next, member);
      for (const auto& [key, member] : container->dictionary()) add(next, member);
    }
    level = std::move(next);
  }
  return members > kMostObjects;
}

TKSDictionary fromDictionary(NSDictionary* dictionary) { return fromObject(dictionary).dictionary(); }

TKSError fromError(NSError* error, std::string_view step) {
  if (error == nil) return posix::systemError("NSCocoaErrorDomain", 0, std::string(step));
  return posix::systemError(fromString(error.domain), static_cast<std::int64_t>(error.code),
                            fromString(error.localizedDescription));
}

TKSError fromError(NSError* error, std::string_view step, std::string_view path) {
  if (const int number = systemNumberOf(error)) return posix::posixError(number, step, path);
  TKSError result = fromError(error, step);
  result.localizedDescription = std::string(step) + " \"" + std::string(path) +
                                "\": " + (error != nil ? result.localizedDescription : std::string("failed"));
  return result;
}

TKSError formatError(std::int64_t code, std::string_view step, std::string_view reason) {
  return posix::systemError("NSCocoaErrorDomain", code, std::string(step).append(": ").append(reason));
}

std::string reasonOf(NSError* error, std::string_view otherwise) {
  if (error == nil) return std::string(otherwise);
  id reason = [error.userInfo objectForKey:NSDebugDescriptionErrorKey];
  return fromString([reason isKindOfClass:NSString.class] ? reason : error.localizedDescription);
}

void store(TKSError* slot, NSError* error, std::string_view step) {
  if (slot != nullptr) *slot = fromError(error, step);
}

}  // namespace tks::platform::apple
