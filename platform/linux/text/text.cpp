#include "platform/text.h"

#include <unicode/locid.h>
#include <unicode/normlzr.h>
#include <unicode/numberformatter.h>
#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/backend.h"
#include "platform/platform.h"

namespace tks::platform {
namespace {

using icu::number::LocalizedNumberFormatter;
using TimePoint = std::chrono::steady_clock::time_point;

/// The number format of the user who chose none.
constexpr const char* kDefaultLocale = "en_US";

bool isAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char byte) { return static_cast<unsigned char>(byte) < 0x80; });
}

/// ICU counts in 32 bits; what is longer is cut there.
std::int32_t icuLength(std::string_view text) {
  return static_cast<std::int32_t>(
      std::min(text.size(), static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())));
}

icu::StringPiece piece(std::string_view text) { return {text.data(), icuLength(text)}; }

icu::UnicodeString unicode(std::string_view text) { return icu::UnicodeString::fromUTF8(piece(text)); }

constexpr bool isDigit(char16_t unit) { return unit >= u'0' && unit <= u'9'; }

/// Takes a run of digits that begins at `position`, without the zeros that lead it.
icu::UnicodeString takeNumber(const icu::UnicodeString& text, std::int32_t& position) {
  while (position < text.length() && text[position] == u'0') ++position;
  const std::int32_t begin = position;
  while (position < text.length() && isDigit(text[position])) ++position;
  return text.tempSubStringBetween(begin, position);
}

/// Numbers of any length, as texts without leading zeros.
int compareNumbers(const icu::UnicodeString& left, const icu::UnicodeString& right) {
  return left.length() != right.length() ? left.length() - right.length() : left.compare(right);
}

/// The engine calls this now and then: whether it shall go on.
UBool beforeDeadline(const void* deadline, std::int32_t) {
  return std::chrono::steady_clock::now() < *static_cast<const TimePoint*>(deadline) ? 1 : 0;
}

UBool beforeDeadlineWhileSearching(const void* deadline, std::int64_t) { return beforeDeadline(deadline, 0); }

class IcuText final : public Text {
 public:
  std::string lowerCase(std::string_view text) override {
    std::string lower;
    lower.reserve(text.size());
    if (isAscii(text)) {
      for (const char byte : text) lower += byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
      return lower;
    }
    unicode(text).toLower(icu::Locale::getRoot()).toUTF8String(lower);
    return lower;
  }

  bool equalIgnoringCase(std::string_view left, std::string_view right) override {
    if (isAscii(left) && isAscii(right)) return lowerCase(left) == lowerCase(right);
    UErrorCode status = U_ZERO_ERROR;
    // A letter with its accent equals the letter followed by the accent.
    const std::int32_t order = icu::Normalizer::compare(unicode(left), unicode(right), U_COMPARE_IGNORE_CASE, status);
    return U_SUCCESS(status) && order == 0;
  }

  int compareNumerically(std::string_view left, std::string_view right) override {
    const icu::UnicodeString a = unicode(left);
    const icu::UnicodeString b = unicode(right);
    std::int32_t i = 0;
    std::int32_t k = 0;
    while (i < a.length() && k < b.length()) {
      if (isDigit(a[i]) && isDigit(b[k])) {
        const int order = compareNumbers(takeNumber(a, i), takeNumber(b, k));
        if (order != 0) return order;
      } else if (a[i] != b[k]) {
        return a[i] - b[k];
      } else {
        ++i;
        ++k;
      }
    }
    return (a.length() - i) - (b.length() - k);
  }

  Match findPattern(std::string_view pattern, std::string_view text, TimePoint deadline) override {
    if (pattern.empty()) return Match::badPattern;
    UErrorCode status = U_ZERO_ERROR;
    UParseError place{};
    const std::unique_ptr<icu::RegexPattern> compiled(
        icu::RegexPattern::compile(unicode(pattern), UREGEX_CASE_INSENSITIVE, place, status));
    if (U_FAILURE(status)) return Match::badPattern;
    const icu::UnicodeString input = unicode(text);
    const std::unique_ptr<icu::RegexMatcher> matcher(compiled->matcher(input, status));
    if (!beforeDeadline(&deadline, 0)) return Match::timeLimit;
    if (U_SUCCESS(status)) matcher->setMatchCallback(beforeDeadline, &deadline, status);
    if (U_SUCCESS(status)) matcher->setFindProgressCallback(beforeDeadlineWhileSearching, &deadline, status);
    const bool found = U_SUCCESS(status) && matcher->find(status);
    if (status == U_REGEX_STOPPED_BY_CALLER) return Match::timeLimit;
    // Any other failure: the search needed more memory than the engine allows itself.
    return U_SUCCESS(status) && found ? Match::matched : Match::notMatched;
  }

  std::size_t utf16Length(std::string_view text) override {
    return isAscii(text) ? text.size() : static_cast<std::size_t>(unicode(text).length());
  }

  std::string decimal(const TKSValue& number) override {
    if (!number.isNumber()) return {};
    UErrorCode status = U_ZERO_ERROR;
    const LocalizedNumberFormatter formatter = formatterForUser();
    const icu::number::FormattedNumber formatted = number.isReal() ? formatter.formatDouble(number.real(), status)
                                                   : number.isUnsignedInteger()
                                                       ? formatter.formatDecimal(piece(number.description()), status)
                                                       : formatter.formatInt(number.integer(), status);
    std::string text;
    const icu::UnicodeString digits = formatted.toString(status);
    return U_SUCCESS(status) ? digits.toUTF8String(text) : text;
  }

 private:
  /// Made on first use and kept until the user chooses another locale.
  LocalizedNumberFormatter formatterForUser() {
    const std::optional<std::string> chosen = preferences().value("AppleLocale").optionalText();
    const std::string name = chosen && !chosen->empty() ? *chosen : kDefaultLocale;
    const std::scoped_lock lock(mutex_);
    if (!formatter_ || name != locale_) {
      constexpr int kFractionDigits = 3;
      formatter_ = icu::number::NumberFormatter::withLocale(icu::Locale::createFromName(name.c_str()))
                       .precision(icu::number::Precision::maxFraction(kFractionDigits));
      locale_ = name;
    }
    return *formatter_;
  }

  std::mutex mutex_;
  std::string locale_;
  std::optional<LocalizedNumberFormatter> formatter_;
};

}  // namespace

template <>
Text& backend<Text>() {
  static auto& text = *new IcuText;
  return text;
}

}  // namespace tks::platform
