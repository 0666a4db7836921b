#include "tools/tksctl/frame/json_values.h"

#include <cmath>
#include <ctime>

#include "foundation/values/Base64.h"
#include "foundation/values/JsonWriter.h"
#include "foundation/values/Utf8.h"

namespace tks::ctl {
namespace {

TKSValue jsonableArray(const TKSArray& array) {
  TKSArray made;
  for (const TKSValue& value : array) made.append(jsonable(value));
  return made;
}

TKSValue jsonableDictionary(const TKSDictionary& dictionary) {
  std::vector<std::pair<std::string, TKSValue>> entries;
  for (const auto& [key, value] : dictionary) entries.emplace_back(validText(key), jsonable(value));
  return TKSDictionary(std::move(entries));
}

bool endsLine(char mark) { return mark == '{' || mark == '[' || mark == ','; }

}  // namespace

TKSValue jsonable(const TKSValue& value) {
  switch (value.kind()) {
    case TKSValue::Kind::nothing:
      return TKSNull();
    case TKSValue::Kind::real:
      return std::isfinite(value.real()) ? value : TKSValue(value.description());
    case TKSValue::Kind::text:
      return utf8::isValid(value.text()) ? value : TKSValue(validText(value.text()));
    case TKSValue::Kind::data:
      return base64::encode(value.data());
    case TKSValue::Kind::date:
      return momentText(value.date().secondsSince1970);
    case TKSValue::Kind::array:
      return jsonableArray(value.array());
    case TKSValue::Kind::dictionary:
      return jsonableDictionary(value.dictionary());
    default:
      return value;
  }
}

std::string momentText(double secondsSince1970) {
  constexpr double kLastYears = 253402300799;  // the end of the year 9999
  if (!(std::fabs(secondsSince1970) <= kLastYears)) return "beyond the year 9999";
  const auto seconds = static_cast<std::time_t>(std::floor(secondsSince1970));
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  char text[40];
  const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return {text, length};
}

TKSDictionary errorDocument(const TKSError& error) {
  return {{"message", error.localizedDescription},
          {"domain", error.domain},
          {"code", error.code},
          {"reason", TKSErrorReasonName(error.reason)},
          {"suggestion", error.recoverySuggestion}};
}

std::string oneLine(std::string_view text) {
  std::string line = validText(text);
  for (char& byte : line) {
    if (byte == '\n' || byte == '\t') byte = ' ';
    if (static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F) byte = '?';
  }
  return line;
}

std::string validText(std::string_view text) {
  std::string valid;
  while (!text.empty()) {
    const std::string_view before = text;
    if (utf8::takeCharacter(text)) {
      valid.append(before.substr(0, before.size() - text.size()));
    } else {
      utf8::append(valid, U'\uFFFD');
    }
  }
  return valid;
}

std::string prettyJson(const TKSValue& value) {
  const std::string compact = json::write(value).value_or("null");
  std::string pretty;
  std::size_t depth = 0;
  bool inText = false;
  const auto newLine = [&] { pretty.append("\n").append(2 * depth, ' '); };
  for (std::size_t at = 0; at < compact.size(); ++at) {
    const char byte = compact[at];
    if (inText) {
      pretty += byte;
      if (byte == '\\') pretty += compact[++at];
      if (byte == '"') inText = false;
      continue;
    }
    inText = byte == '"';
    const bool closes = byte == '}' || byte == ']';
    const bool isEmpty = closes && !pretty.empty() && (compact[at - 1] == '{' || compact[at - 1] == '[');
    if (closes && !isEmpty) --depth, newLine();
    pretty += byte;
    if (byte == ':') pretty += ' ';
    const bool opensEmpty = at + 1 < compact.size() && (compact[at + 1] == '}' || compact[at + 1] == ']');
    if (endsLine(byte) && !(byte != ',' && opensEmpty)) {
      if (byte != ',') ++depth;
      newLine();
    }
  }
  return pretty;
}

}  // namespace tks::ctl
