#import <Foundation/Foundation.h>

#include "platform/apple/argument_domain.h"
#include "platform/apple/conversions.h"
#include "platform/backend.h"
#include "platform/preferences.h"

namespace tks::platform {
namespace {

class ApplePreferences final : public Preferences {
 public:
  TKSDictionary dictionaryRepresentation() override {
    @autoreleasepool {
      TKSDictionary all = apple::fromDictionary(NSUserDefaults.standardUserDefaults.dictionaryRepresentation);
      // The system takes values that look like property lists for such.
      for (const auto& [name, value] : apple::argumentDomain()) all.set(name, value);
      return all;
    }
  }

  TKSValue value(std::string_view key) override {
    if (TKSValue text = argument(key); !text.isNothing()) return text;
    @autoreleasepool {
      NSString* name = apple::toString(key);
      return name == nil ? TKSValue() : apple::fromObject([NSUserDefaults.standardUserDefaults objectForKey:name]);
    }
  }

  TKSValue argument(std::string_view key) override { return apple::argumentDomain()[key]; }

  bool set(std::string_view key, const TKSValue& value, TKSError* error) override {
    @autoreleasepool {
      NSString* name = apple::toString(key);
      // A value that shares its parts would be written out without bound.
      id object = apple::isBeyondBounds(value) ? nil : apple::toObject(value);
      if (name == nil || (object == nil && !value.isNothing())) {
        apple::store(error, nil, "store preference: the key is no text, or the value no preference");
        return false;
      }
      @try {
        if (object == nil) {
          [NSUserDefaults.standardUserDefaults removeObjectForKey:name];
        } else {
          [NSUserDefaults.standardUserDefaults setObject:object forKey:name];
        }
        return true;
      } @catch (NSException* exception) {
        apple::store(error, nil, "store preference: " + apple::fromString(exception.reason));
        return false;
      }
    }
  }
};

}  // namespace

template <>
Preferences& backend<Preferences>() {
  static auto& preferences = *new ApplePreferences;
  return preferences;
}

}  // namespace tks::platform
