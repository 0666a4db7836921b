#import <Foundation/Foundation.h>

#include <atomic>
#include <chrono>

#include "platform/apple/conversions.h"
#include "platform/backend.h"
#include "platform/text.h"

namespace tks::platform {
namespace {

using TimePoint = std::chrono::steady_clock::time_point;

class AppleText final : public Text {
 public:
  std::string lowerCase(std::string_view text) override {
    @autoreleasepool {
      return apple::fromString(apple::toRepairedString(text).lowercaseString);
    }
  }

  bool equalIgnoringCase(std::string_view left, std::string_view right) override {
    @autoreleasepool {
      return [apple::toRepairedString(left) caseInsensitiveCompare:apple::toRepairedString(right)] == NSOrderedSame;
    }
  }

  int compareNumerically(std::string_view left, std::string_view right) override {
    @autoreleasepool {
      return static_cast<int>([apple::toRepairedString(left) compare:apple::toRepairedString(right)
                                                             options:NSNumericSearch]);
    }
  }

  Match findPattern(std::string_view pattern, std::string_view text, TimePoint deadline) override {
    if (pattern.empty()) return Match::badPattern;
    @autoreleasepool {
      NSRegularExpression* expression =
          [NSRegularExpression regularExpressionWithPattern:apple::toRepairedString(pattern)
                                                    options:NSRegularExpressionCaseInsensitive
                                                      error:nullptr];
      if (expression == nil) return Match::badPattern;
      if (std::chrono::steady_clock::now() >= deadline) return Match::timeLimit;
      return find(expression, apple::toRepairedString(text), deadline);
    }
  }

  std::size_t utf16Length(std::string_view text) override {
    @autoreleasepool {
      return apple::toRepairedString(text).length;
    }
  }

  std::string decimal(const TKSValue& number) override {
    if (!number.isNumber()) return {};
    @autoreleasepool {
      // One formatter for the process, as long as it lives; the formatter is safe to share since macOS 10.9.
      static NSNumberFormatter* formatter = [] {
        NSNumberFormatter* made = [[NSNumberFormatter alloc] init];
        made.formatterBehavior = NSNumberFormatterBehavior10_4;
        made.numberStyle = NSNumberFormatterDecimalStyle;
        return made;
      }();
      return apple::fromString([formatter stringFromNumber:apple::toObject(number)]);
    }
  }

 private:
  static Match find(NSRegularExpression* expression, NSString* text, TimePoint deadline) {
    __block Match result = Match::notMatched;
    // Reporting progress makes the engine call back now and then, so that a runaway search can be stopped.
    [expression enumerateMatchesInString:text
                                 options:NSMatchingReportProgress
                                   range:NSMakeRange(0, text.length)
                              usingBlock:^(NSTextCheckingResult* found, NSMatchingFlags, BOOL* stop) {
                                if (found != nil) {
                                  result = Match::matched;
                                  *stop = YES;
                                } else if (std::chrono::steady_clock::now() > deadline) {
                                  result = Match::timeLimit;
                                  *stop = YES;
                                }
                              }];
    return result;
  }
};

}  // namespace

template <>
Text& backend<Text>() {
  static auto& text = *new AppleText;
  return text;
}

}  // namespace tks::platform
