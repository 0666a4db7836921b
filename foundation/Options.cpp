#include "foundation/Options.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <new>
#include <utility>

#include <tksinterface/TKSConstants.h>

#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"
#include "foundation/values/OutOfMemory.h"

namespace tks {
namespace {

/// Timers and tools take this much everywhere, and a frame announces no more than twice that.
constexpr std::int64_t kLongest = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t kLargest = std::numeric_limits<std::uint32_t>::max();

bool refuse(TKSError* error, std::string text) {
  TKSILog::logWithLevel(TKSILogLevelError, "Options are refused: %@", masked(text));
  if (error != nullptr) *error = makeError(TKSErrorReason::invalidArgument, TKSUtilErrorDomain, 0, std::move(text));
  return false;
}

const OptionRow* rowOf(std::string_view name) {
  const auto rows = optionRows();
  const auto found = std::ranges::find(rows, name, &OptionRow::name);
  return found == rows.end() ? nullptr : &*found;
}

// What a value has to be, in words.
constexpr std::string_view kindOf(const bool&) { return "true or false"; }
constexpr std::string_view kindOf(const std::int64_t&) { return "a whole number"; }
constexpr std::string_view kindOf(const std::string&) { return "a text"; }
constexpr std::string_view kindOf(const std::vector<std::string>&) { return "an array of texts"; }

// From a value, as JSON has it.

bool readValue(const TKSValue& value, bool& into) {
  into = value.boolean();
  return value.isBoolean();
}

bool readValue(const TKSValue& value, std::int64_t& into) {
  into = value.integer();
  return value.isInteger() && !value.isBoolean();
}

bool readValue(const TKSValue& value, std::string& into) {
  into = value.text();
  return value.isText();
}

bool readValue(const TKSValue& value, std::vector<std::string>& into) {
  into.clear();
  for (const TKSValue& one : value.array()) {
    if (!one.isText()) return false;
    into.emplace_back(one.text());
  }
  return value.isArray();
}

// From a text, as people write it.

bool readText(std::string_view text, bool& into) {
  into = text == "true";
  return into || text == "false";
}

bool readText(std::string_view text, std::int64_t& into) {
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), into);
  return failure == std::errc() && end == text.data() + text.size();
}

bool readText(std::string_view text, std::string& into) {
  into = text;
  return true;
}

bool readText(std::string_view text, std::vector<std::string>& into) {
  into.clear();
  while (!text.empty()) {
    const std::size_t comma = std::min(text.find(','), text.size());
    into.emplace_back(text.substr(0, comma));
    text.remove_prefix(std::min(comma + 1, text.size()));
  }
  return true;
}

bool fits(const OptionRow& row, std::int64_t number) {
  const std::int64_t most = row.unit == "ms" ? kLongest : row.unit == "bytes" ? kLargest : number;
  return number >= 0 && number <= most;
}

/// Names, paths and other texts go to the system, which ends them at a NUL.
bool fits(const OptionRow& row, const std::string& text) {
  constexpr std::size_t kDigits = 64;
  const auto isDigit = [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
  };
  if (row.unit == "SHA-256") return text.empty() || (text.size() == kDigits && std::ranges::all_of(text, isDigit));
  return text.find('\0') == std::string::npos;
}

bool fits(const OptionRow& row, const std::vector<std::string>& texts) {
  return std::ranges::all_of(texts, [&](const std::string& text) { return !text.empty() && fits(row, text); });
}

bool fits(const OptionRow&, bool) { return true; }

bool fitsWhole(const TKSOptions& options, TKSError* error) {
  for (const OptionRow& row : optionRows()) {
    const bool ok = std::visit([&](const auto field) { return fits(row, options.*field); }, row.field);
    if (!ok) return refuse(error, formatted("Option out of its range: %@", row.name));
  }
  return true;
}

/// Fills one field by `fill`, which returns whether the value is of its kind.
template <class Fill>
bool setField(TKSOptions& options, std::string_view name, TKSError* error, Fill fill) {
  const OptionRow* const row = rowOf(name);
  if (row == nullptr) return refuse(error, formatted("Unknown option: %@", name));
  return std::visit(
      [&](const auto field) {
        auto& into = options.*field;
        if (fill(into)) return true;
        return refuse(error, formatted("Option of another kind: %@ has to be %@.", name, kindOf(into)));
      },
      row->field);
}

std::string shown(bool value) { return value ? "on" : "off"; }
std::string shown(std::int64_t value) { return std::to_string(value); }
std::string shown(const std::string& value) { return value; }
std::string shown(const std::vector<std::string>& values) {
  std::string text;
  for (const std::string& value : values) text.append(text.empty() ? "" : ",").append(value);
  return text;
}

TKSValue valueOf(bool value) { return value; }
TKSValue valueOf(std::int64_t value) { return value; }
TKSValue valueOf(const std::string& value) { return value; }
TKSValue valueOf(const std::vector<std::string>& values) {
  return TKSArray(std::vector<TKSValue>(values.begin(), values.end()));
}

}  // namespace

bool setOption(TKSOptions& options, std::string_view assignment, TKSError* error) {
  const std::size_t sign = assignment.find('=');
  if (sign == std::string_view::npos || sign == 0) {
    return refuse(error, formatted("No NAME=VALUE of an option: %@", assignment));
  }
  const std::string_view text = assignment.substr(sign + 1);
  const TKSOptions before = options;
  const auto fill = [&](auto& into) { return readText(text, into); };
  if (setField(options, assignment.substr(0, sign), error, fill) && fitsWhole(options, error)) return true;
  options = before;
  return false;
}

std::atomic<OptionsInForce*>& OptionsInForce::slot() {
  // Never destroyed: background work may outlive the program's own objects.
  static std::atomic<OptionsInForce*> slot = new OptionsInForce;
  return slot;
}

bool OptionsInForce::set(const TKSOptions& options, TKSError* error) {
  if (!fitsWhole(options, error)) return false;
  {
    const std::scoped_lock lock(mutex_);
    if (!isSettled_) {
      current_.store(&kept_.emplace_back(options), std::memory_order_release);
      return true;
    }
  }
  return refuse(error, "Options can be set only before the first start, launch, installation or list of updates.");
}

void OptionsInForce::settle() {
  if (isSettled_.load(std::memory_order_acquire)) return;
  {
    const std::scoped_lock lock(mutex_);
    if (isSettled_.exchange(true)) return;
  }
  const TKSOptions& options = get();
  for (const OptionRow& row : optionRows()) {
    if (!isOn(row, options)) continue;
    std::string value = std::visit([&](const auto field) { return shown(options.*field); }, row.field);
    if (!row.unit.empty()) value.append(" ").append(row.unit);
    TKSILog::logWithLevel(TKSILogLevelInfo, "Option %@: %@. %@", row.name, masked(value), row.effect);
  }
}

}  // namespace tks

std::optional<TKSOptions> TKSOptions::optionsFromDictionary(const TKSDictionary& values, TKSError* error) {
  TKSOptions options;
  for (const auto& [name, value] : values) {
    const TKSValue& given = value;
    if (!tks::setField(options, name, error, [&](auto& into) { return tks::readValue(given, into); }))
      return std::nullopt;
  }
  if (!tks::fitsWhole(options, error)) return std::nullopt;
  return options;
}

TKSDictionary TKSOptions::dictionary() const {
  TKSDictionary values;
  for (const tks::OptionRow& row : tks::optionRows()) {
    if (!tks::isOn(row, *this)) continue;
    values.set(row.name, std::visit([&](const auto field) { return tks::valueOf(this->*field); }, row.field));
  }
  return values;
}

bool TKSOptions::setOptions(const TKSOptions& options, TKSError* error) {
  try {
    return tks::OptionsInForce::slot().load()->set(options, error);
  } catch (const std::bad_alloc&) {
    if (error != nullptr) tks::setOutOfMemory(error);
    return false;
  }
}

TKSOptions TKSOptions::options() { return tks::options(); }
