#include "tools/tksctl/parts/typed_values.h"

#include <tksinterface/TKSUtilBase.h>

#include <charconv>
#include <ctime>
#include <optional>
#include <stdexcept>

#include "foundation/values/Base64.h"
#include "tools/tksctl/frame/json_values.h"

namespace tks::ctl {
namespace {

template <class Number>
std::optional<Number> number(std::string_view word) {
  Number value{};
  const auto [end, problem] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (word.empty() || problem != std::errc() || end != word.data() + word.size()) return std::nullopt;
  return value;
}

[[noreturn]] void refuse(const std::string& word, std::string_view what) {
  throw std::runtime_error("\"" + word + "\" is no " + std::string(what));
}

TKSValue readText(const std::string& word) { return word; }

TKSValue readBoolean(const std::string& word) {
  if (word == "true" || word == "yes" || word == "1") return true;
  if (word == "false" || word == "no" || word == "0") return false;
  refuse(word, "boolean (true or false)");
}

TKSValue readInteger(const std::string& word) {
  if (const auto value = number<std::int64_t>(word)) return *value;
  refuse(word, "integer");
}

TKSValue readReal(const std::string& word) {
  if (const auto value = number<double>(word)) return *value;
  refuse(word, "number");
}

TKSValue readData(const std::string& word) {
  if (auto data = base64::decode(word)) return std::move(*data);
  refuse(word, "base64 text");
}

TKSValue readDate(const std::string& word) {
  std::tm parts{};
  const char* end = ::strptime(word.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  if (end == nullptr || *end != '\0') refuse(word, "moment (2026-01-31T12:00:00Z)");
  return TKSDate{static_cast<double>(::timegm(&parts))};
}

TKSValue readJson(const std::string& word) {
  TKSError error;
  // The reader takes objects and arrays alone; in an array any value can stand.
  const TKSValue read = TKSUtilBase::JSONStringToObject("[" + word + "]", &error);
  if (!read.isArray() || read.array().size() != 1) refuse(word, "JSON value");
  return read[0];
}

struct Type {
  std::string name;
  TKSValue (*read)(const std::string& word);
};
const Type kTypes[] = {{"text", readText}, {"boolean", readBoolean}, {"integer", readInteger}, {"real", readReal},
                       {"data", readData}, {"date", readDate},       {"json", readJson}};

}  // namespace

const std::vector<std::string>& valueTypes() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> made;
    for (const Type& type : kTypes) made.push_back(type.name);
    return made;
  }();
  return names;
}

TKSValue readTyped(const std::string& word, const std::string& type) {
  for (const Type& known : kTypes) {
    if (known.name == type) return known.read(word);
  }
  refuse(type, "type of values");
}

void showValue(Output& out, const TKSValue& value) {
  const TKSValue shown = jsonable(value);
  out.set("value", shown);
  if (shown.isArray() || shown.isDictionary()) return out.line(prettyJson(shown));
  out.line(value.isBoolean() ? (value.boolean() ? "true" : "false") : shown.description());
}

TKSValue valueAt(TKSValue value, const std::vector<std::string>& keys) {
  for (const std::string& key : keys) {
    const auto index = number<std::size_t>(key);
    TKSValue below = value.isArray() && index ? value[*index] : value[key];
    value = std::move(below);
  }
  return value;
}

}  // namespace tks::ctl
