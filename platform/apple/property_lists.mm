#import <Foundation/Foundation.h>

#include <cerrno>

#include "platform/apple/conversions.h"
#include "platform/apple/property_list_bounds.h"
#include "platform/backend.h"
#include "platform/files.h"
#include "platform/platform.h"
#include "platform/posix/error_reasons.h"
#include "platform/posix/paths.h"
#include "platform/posix/whole_files.h"
#include "platform/property_lists.h"

namespace tks::platform {
namespace {

void fail(TKSError* error, std::int64_t code, std::string_view step, std::string_view reason) {
  if (error != nullptr) *error = apple::formatError(code, step, reason);
}

void failToRead(TKSError* error, std::string_view reason) {
  fail(error, NSPropertyListReadCorruptError, "read a property list", reason);
}

void failToWrite(TKSError* error, std::string_view reason) {
  fail(error, NSPropertyListWriteInvalidError, "write a property list", reason);
}

/// The error that PropertyLists::isBeyondBounds knows.
TKSError beyondBounds(std::string_view what) {
  return posix::systemError("NSPOSIXErrorDomain", EFBIG,
                            "property list: too large or too deep to be " + std::string(what));
}

class ApplePropertyLists final : public PropertyLists {
 public:
  TKSValue parse(std::span<const std::uint8_t> content, TKSError* error) override {
    const apple::PropertyListLook look = apple::lookAtPropertyList(content);
    if (look == apple::PropertyListLook::beyondBounds) {
      if (error != nullptr) *error = beyondBounds("read");
      return {};
    }
    @autoreleasepool {
      NSError* failure = nil;
      id object = nil;
      @try {
        if (look == apple::PropertyListLook::sound) {
          object = [NSPropertyListSerialization propertyListWithData:apple::toData(content)
                                                             options:NSPropertyListImmutable
                                                              format:nullptr
                                                               error:&failure];
        }
      } @catch (NSException* exception) {
        failToRead(error, apple::fromString(exception.reason));
        return {};
      }
      if (object == nil) failToRead(error, apple::reasonOf(failure, "it is none"));
      return apple::fromObject(object);
    }
  }

  std::optional<TKSData> serialize(const TKSValue& value, Format format, TKSError* error) override {
    if (apple::isBeyondBounds(value)) {
      if (error != nullptr) *error = beyondBounds("written");
      return std::nullopt;
    }
    @autoreleasepool {
      NSError* failure = nil;
      NSPropertyListFormat as =
          format == Format::binary ? NSPropertyListBinaryFormat_v1_0 : NSPropertyListXMLFormat_v1_0;
      id object = apple::toObject(value);
      NSData* data = nil;
      @try {
        if (object != nil) {
          data = [NSPropertyListSerialization dataWithPropertyList:object format:as options:0 error:&failure];
        }
      } @catch (NSException* exception) {
        failToWrite(error, apple::fromString(exception.reason));
        return std::nullopt;
      }
      if (data.length > apple::kLargestPropertyList) {
        if (error != nullptr) *error = beyondBounds("written");
        return std::nullopt;
      }
      if (data != nil) return apple::fromData(data);
      failToWrite(error, apple::reasonOf(failure, "the value has no place in one"));
      return std::nullopt;
    }
  }

  std::optional<TKSDictionary> readDictionary(std::string_view path, TKSError* error) override {
    const std::optional<TKSData> content = files().read(path, apple::kLargestPropertyList, error);
    if (!content) return std::nullopt;
    const TKSValue value = parse(*content, error);
    if (value.isDictionary()) return value.dictionary();
    if (!value.isNothing()) failToRead(error, "its outermost value is no dictionary");
    return std::nullopt;
  }

  bool writeDictionary(const TKSDictionary& dictionary, std::string_view path, TKSError* error) override {
    // What XML does not have makes the writer fail, or write what its own reader refuses.
    std::optional<TKSData> content = serialize(dictionary, Format::xml, error);
    if (!content || !parse(*content, nullptr).isDictionary()) content = serialize(dictionary, Format::binary, error);
    return content && posix::replaceFile(posix::behindLinks(path), *content, error);
  }
};

}  // namespace

template <>
PropertyLists& backend<PropertyLists>() {
  static auto& lists = *new ApplePropertyLists;
  return lists;
}

}  // namespace tks::platform
