#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include <tksinterface/TKSValue.h>

namespace tks::platform {

/// Text by Unicode's rules and the user's locale. macOS: NSString, NSRegularExpression, NSNumberFormatter. Linux: ICU,
/// which is opened when it is needed; without it the rules of ASCII hold, patterns match nothing and numbers stay
/// plain. Any thread. Texts are UTF-8; broken sequences count as replacement characters.
class Text {
 public:
  enum class Match {
    matched,     ///< the pattern stands in the text
    notMatched,  ///< it does not
    badPattern,  ///< the pattern does not compile
    timeLimit,   ///< the time was over before there was a result
  };

  virtual ~Text() = default;
  /// In lower case, by the rules that hold in every language.
  virtual std::string lowerCase(std::string_view text) = 0;
  /// Whether two texts are equal when case is ignored.
  virtual bool equalIgnoringCase(std::string_view left, std::string_view right) = 0;
  /// Order of two texts in which runs of digits count as numbers ("44.10" after "44.9"): negative, 0 or positive.
  virtual int compareNumerically(std::string_view left, std::string_view right) = 0;
  /// Looks for a pattern anywhere in a text, ignoring case. "^" and "$" stand for the whole text's ends; an empty
  /// pattern is a bad one. A search is given up at the deadline.
  virtual Match findPattern(std::string_view pattern, std::string_view text,
                            std::chrono::steady_clock::time_point deadline) = 0;
  /// Number of UTF-16 units of a text.
  virtual std::size_t utf16Length(std::string_view text) = 0;
  /// A number in decimal style with the grouping of the user's locale; empty for a value that is no number.
  virtual std::string decimal(const TKSValue& number) = 0;
};

}  // namespace tks::platform
