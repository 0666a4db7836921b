#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/logging/Logging.h"
#include "foundation/values/Base64.h"
#include "foundation/values/Utf8.h"
#include "platform/platform.h"

// Texts in base64, and percent-encoded ones.

namespace {

/// Texts no longer than this are never taken for base64: too many ordinary words look like it.
constexpr std::size_t kLongestPlainText = 4;

bool isLetterOrDigit(char byte) {
  return (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
}

bool isBase64Character(char byte) { return isLetterOrDigit(byte) || byte == '+' || byte == '/'; }

/// Groups of four characters, of which the last one may end in one or two "=".
bool looksLikeBase64(std::string_view text) {
  if (text.size() % 4 != 0) return false;
  for (int padding = 0; padding < 2 && text.ends_with('='); ++padding) text.remove_suffix(1);
  return std::all_of(text.begin(), text.end(), isBase64Character);
}

/// The text that base64 stands for; nothing for what is no base64, or no text.
std::optional<std::string> decodedText(std::string_view base64) {
  const std::optional<TKSData> bytes = tks::base64::decode(base64);
  if (!bytes) return std::nullopt;
  std::string text(bytes->begin(), bytes->end());
  if (!tks::utf8::isValid(text)) return std::nullopt;
  return text;
}

/// Letters, digits and these stand for themselves (RFC 3986, section 2.3).
bool isUnreserved(char byte) {
  return isLetterOrDigit(byte) || std::string_view("-._~").find(byte) != std::string_view::npos;
}

}  // namespace

std::optional<std::string> TKSUtilBase::checkAndDecodeBase64(const TKSValue& origin) {
  const std::string_view text = origin.text();
  if (text.empty()) {
    TKSILog::logWithLevel(TKSILogLevelWarning,
                          "Origin is not string, or is empty or nil, no way to check base64 decode.");
    return std::nullopt;
  }
  if (tks::platform::text().utf16Length(text) <= kLongestPlainText) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Do not try decode string length no more than 4: %@", tks::masked(text));
    return std::string(text);
  }
  if (!looksLikeBase64(text)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "String format not match base64 format: %@", tks::masked(text));
    return std::string(text);
  }
  const std::optional<std::string> decoded = decodedText(text);
  return decoded && !decoded->empty() ? *decoded : std::string(text);
}

TKSValue TKSUtilBase::getParamsFromEncodedDic(const TKSDictionary& encodedDic, std::string_view paramKey,
                                              TKSError* error) {
  return JSONStringToObject(decodedText(encodedDic[paramKey].text()).value_or(""), error);
}

std::string TKSUtilBase::encodeURLString(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  // As many bytes as the text has UTF-16 units: of a text beyond ASCII the rest is left out, and receivers rely on it.
  const std::string_view visited = text.substr(0, tks::platform::text().utf16Length(text));
  std::string encoded;
  encoded.reserve(visited.size() * 3);
  for (const char byte : visited) {
    if (isUnreserved(byte)) {
      encoded += byte;
    } else if (byte == ' ') {
      encoded += '+';
    } else {
      const auto number = static_cast<unsigned char>(byte);
      encoded += {'%', kDigits[number >> 4], kDigits[number & 0x0F]};
    }
  }
  return encoded;
}
