#include "platform/text.h"

#include <tksinterface/TKSILog.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/backend.h"
#include "platform/linux/processes/late_functions.h"
#include "platform/platform.h"

namespace tks::platform {
namespace {

using gnulinux::IcuCommonFunctions;
using gnulinux::IcuI18nFunctions;
using TimePoint = std::chrono::steady_clock::time_point;

/// The number format of the user who chose none.
constexpr const char* kDefaultLocale = "en_US";
constexpr UChar32 kReplacement = 0xFFFD;

/// The functions of ICU, which ASCII does without. Null where it is not installed, and for each library one line says
/// so.
template <class Functions>
const Functions* icu() {
  std::string reason;
  const Functions* const functions = gnulinux::lateFunctions<Functions>(reason);
  static std::atomic<bool> isReported = false;
  if (functions == nullptr && !isReported.exchange(true)) {
    TKSILog::logWithLevel(TKSILogLevelError, "Library cannot be opened, texts follow the rules of ASCII: %@", reason);
  }
  return functions;
}

bool isAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char byte) { return static_cast<unsigned char>(byte) < 0x80; });
}

std::string lowerCaseOfAscii(std::string_view text) {
  std::string lower(text);
  for (char& byte : lower) {
    if (byte >= 'A' && byte <= 'Z') byte = static_cast<char>(byte - 'A' + 'a');
  }
  return lower;
}

/// ICU counts in 32 bits; longer texts are cut.
std::int32_t icuLength(std::size_t length) {
  return static_cast<std::int32_t>(
      std::min(length, static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())));
}
template <class String>
std::int32_t icuLength(const String& text) {
  return icuLength(text.size());
}

/// In UTF-16, with replacement characters for broken sequences.
std::u16string utf16(const IcuCommonFunctions& icu, std::string_view text) {
  // No character has more units than bytes, and no broken sequence more replacement characters.
  std::u16string units(static_cast<std::size_t>(icuLength(text)), u'\0');
  UErrorCode status = U_ZERO_ERROR;
  std::int32_t length = 0;
  icu.u_strFromUTF8WithSub(units.data(), icuLength(units), &length, text.data(), icuLength(text), kReplacement, nullptr,
                           &status);
  units.resize(U_SUCCESS(status) ? static_cast<std::size_t>(length) : 0);
  return units;
}

std::string utf8(const IcuCommonFunctions& icu, std::u16string_view units) {
  constexpr std::size_t kMostBytesOfAUnit = 3;
  std::string text(static_cast<std::size_t>(icuLength(units.size() * kMostBytesOfAUnit)), '\0');
  UErrorCode status = U_ZERO_ERROR;
  std::int32_t length = 0;
  icu.u_strToUTF8WithSub(text.data(), icuLength(text), &length, units.data(), icuLength(units), kReplacement, nullptr,
                         &status);
  text.resize(U_SUCCESS(status) ? static_cast<std::size_t>(length) : 0);
  return text;
}

/// Calls `write` with room for units, and once more with as much as it wants. Nothing when it fails.
template <class Write>
std::optional<std::u16string> written(std::size_t expected, const Write& write) {
  std::u16string units(expected, u'\0');
  UErrorCode status = U_ZERO_ERROR;
  std::int32_t length = write(units.data(), icuLength(units), &status);
  if (status == U_BUFFER_OVERFLOW_ERROR) {
    status = U_ZERO_ERROR;
    units.resize(static_cast<std::size_t>(length));
    length = write(units.data(), length, &status);
  }
  if (U_FAILURE(status)) return std::nullopt;
  units.resize(static_cast<std::size_t>(length));
  return units;
}

template <class Unit>
constexpr bool isDigit(Unit unit) {
  return unit >= Unit{'0'} && unit <= Unit{'9'};
}

/// Takes a run of digits that begins at `position`, without the zeros that lead it.
template <class Unit>
std::basic_string_view<Unit> takeNumber(std::basic_string_view<Unit> text, std::size_t& position) {
  while (position < text.size() && text[position] == Unit{'0'}) ++position;
  const std::size_t begin = position;
  while (position < text.size() && isDigit(text[position])) ++position;
  return text.substr(begin, position - begin);
}

/// Numbers of any length, as texts without leading zeros.
template <class Unit>
int compareNumbers(std::basic_string_view<Unit> left, std::basic_string_view<Unit> right) {
  if (left.size() != right.size()) return left.size() < right.size() ? -1 : 1;
  return left.compare(right);
}

template <class Unit>
int compareUnits(std::basic_string_view<Unit> a, std::basic_string_view<Unit> b) {
  std::size_t i = 0;
  std::size_t k = 0;
  while (i < a.size() && k < b.size()) {
    if (isDigit(a[i]) && isDigit(b[k])) {
      const int order = compareNumbers(takeNumber(a, i), takeNumber(b, k));
      if (order != 0) return order;
    } else if (a[i] != b[k]) {
      return a[i] < b[k] ? -1 : 1;
    } else {
      ++i;
      ++k;
    }
  }
  return static_cast<int>(i < a.size()) - static_cast<int>(k < b.size());
}

/// The engine calls this now and then: whether it shall go on.
UBool beforeDeadline(const void* deadline, std::int32_t) {
  return std::chrono::steady_clock::now() < *static_cast<const TimePoint*>(deadline) ? 1 : 0;
}

UBool beforeDeadlineWhileSearching(const void* deadline, std::int64_t) { return beforeDeadline(deadline, 0); }

class IcuText final : public Text {
 public:
  std::string lowerCase(std::string_view text) override {
    const IcuCommonFunctions* const icu = isAscii(text) ? nullptr : platform::icu<IcuCommonFunctions>();
    if (icu == nullptr) return lowerCaseOfAscii(text);
    const std::u16string units = utf16(*icu, text);
    const auto lower = written(units.size() + units.size() / 2, [&](UChar* to, std::int32_t room, UErrorCode* status) {
      return icu->u_strToLower(to, room, units.data(), icuLength(units), "", status);
    });
    return lower ? utf8(*icu, *lower) : std::string();
  }

  bool equalIgnoringCase(std::string_view left, std::string_view right) override {
    const bool areAscii = isAscii(left) && isAscii(right);
    const IcuCommonFunctions* const icu = areAscii ? nullptr : platform::icu<IcuCommonFunctions>();
    if (icu == nullptr) return lowerCaseOfAscii(left) == lowerCaseOfAscii(right);
    const std::u16string a = utf16(*icu, left);
    const std::u16string b = utf16(*icu, right);
    UErrorCode status = U_ZERO_ERROR;
    // A letter with its accent equals the letter followed by the accent.
    const std::int32_t order =
        icu->unorm_compare(a.data(), icuLength(a), b.data(), icuLength(b), U_COMPARE_IGNORE_CASE, &status);
    return U_SUCCESS(status) && order == 0;
  }

  int compareNumerically(std::string_view left, std::string_view right) override {
    const bool areAscii = isAscii(left) && isAscii(right);
    const IcuCommonFunctions* const icu = areAscii ? nullptr : platform::icu<IcuCommonFunctions>();
    if (icu == nullptr) return compareUnits(left, right);
    return compareUnits<char16_t>(utf16(*icu, left), utf16(*icu, right));
  }

  Match findPattern(std::string_view pattern, std::string_view text, TimePoint deadline) override {
    if (pattern.empty()) return Match::badPattern;
    const IcuCommonFunctions* const common = icu<IcuCommonFunctions>();
    const IcuI18nFunctions* const engine = icu<IcuI18nFunctions>();
    if (common == nullptr || engine == nullptr) return Match::notMatched;
    UErrorCode status = U_ZERO_ERROR;
    UParseError place{};
    const std::u16string units = utf16(*common, pattern);
    const std::unique_ptr<URegularExpression, decltype(engine->uregex_close)> search(
        engine->uregex_open(units.data(), icuLength(units), UREGEX_CASE_INSENSITIVE, &place, &status),
        engine->uregex_close);
    if (U_FAILURE(status)) return Match::badPattern;
    const std::u16string input = utf16(*common, text);
    if (!beforeDeadline(&deadline, 0)) return Match::timeLimit;
    engine->uregex_setText(search.get(), input.data(), icuLength(input), &status);
    engine->uregex_setMatchCallback(search.get(), beforeDeadline, &deadline, &status);
    engine->uregex_setFindProgressCallback(search.get(), beforeDeadlineWhileSearching, &deadline, &status);
    constexpr std::int32_t kFromTheBeginning = -1;
    const bool found = engine->uregex_find(search.get(), kFromTheBeginning, &status) != 0;
    if (status == U_REGEX_STOPPED_BY_CALLER) return Match::timeLimit;
    // Any other failure: the search needed more memory than the engine allows itself.
    return U_SUCCESS(status) && found ? Match::matched : Match::notMatched;
  }

  std::size_t utf16Length(std::string_view text) override {
    const IcuCommonFunctions* const icu = isAscii(text) ? nullptr : platform::icu<IcuCommonFunctions>();
    return icu == nullptr ? text.size() : utf16(*icu, text).size();
  }

  std::string decimal(const TKSValue& number) override {
    if (!number.isNumber()) return {};
    const IcuCommonFunctions* const common = icu<IcuCommonFunctions>();
    const IcuI18nFunctions* const icu = platform::icu<IcuI18nFunctions>();
    if (common == nullptr || icu == nullptr) return number.description();
    UErrorCode status = U_ZERO_ERROR;
    const std::shared_ptr<const UNumberFormatter> formatter = formatterForUser(*icu, status);
    const std::unique_ptr<UFormattedNumber, decltype(icu->unumf_closeResult)> formatted(icu->unumf_openResult(&status),
                                                                                        icu->unumf_closeResult);
    const std::string digits = number.description();
    if (number.isReal()) {
      icu->unumf_formatDouble(formatter.get(), number.real(), formatted.get(), &status);
    } else if (number.isUnsignedInteger()) {
      icu->unumf_formatDecimal(formatter.get(), digits.data(), icuLength(digits), formatted.get(), &status);
    } else {
      icu->unumf_formatInt(formatter.get(), number.integer(), formatted.get(), &status);
    }
    if (U_FAILURE(status)) return {};
    constexpr std::size_t kUsualLength = 32;
    const auto text = written(kUsualLength, [&](UChar* to, std::int32_t room, UErrorCode* failure) {
      return icu->unumf_resultToString(formatted.get(), to, room, failure);
    });
    return text ? utf8(*common, *text) : std::string();
  }

 private:
  /// Made on first use and kept until the user chooses another locale.
  std::shared_ptr<const UNumberFormatter> formatterForUser(const IcuI18nFunctions& icu, UErrorCode& status) {
    const std::optional<std::string> chosen = preferences().value("AppleLocale").optionalText();
    const std::string name = chosen && !chosen->empty() ? *chosen : kDefaultLocale;
    const std::scoped_lock lock(mutex_);
    if (!formatter_ || name != locale_) {
      constexpr std::u16string_view kUpToThreeFractionDigits = u".###";
      formatter_.reset(icu.unumf_openForSkeletonAndLocale(kUpToThreeFractionDigits.data(),
                                                          icuLength(kUpToThreeFractionDigits), name.c_str(), &status),
                       icu.unumf_close);
      locale_ = name;
    }
    return formatter_;
  }

  std::mutex mutex_;
  std::string locale_;
  std::shared_ptr<UNumberFormatter> formatter_;
};

}  // namespace

template <>
Text& backend<Text>() {
  static auto& text = *new IcuText;
  return text;
}

}  // namespace tks::platform
