#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "foundation/RealText.h"
#include "foundation/ValueNodes.h"

namespace tks::value {
namespace {

using Kind = TKSValue::Kind;

constexpr std::string_view kHexDigits = "0123456789abcdef";
constexpr std::size_t kBlanksPerLevel = 4;
/// Beyond this depth lines are not indented any further: the length of a text must not grow with the square of the
/// depth.
constexpr std::size_t kDeepestIndent = 64;

void appendUnit(std::string& out, std::uint32_t unit) {
  out += "\\\\U";
  for (int shift = 12; shift >= 0; shift -= 4) out += kHexDigits[unit >> shift & 0xF];
}

void appendCodePoint(std::string& out, std::uint32_t codePoint) {
  if (codePoint < 0x10000) {
    appendUnit(out, codePoint);
    return;
  }
  appendUnit(out, 0xD800 + ((codePoint - 0x10000) >> 10));
  appendUnit(out, 0xDC00 + ((codePoint - 0x10000) & 0x3FF));
}

/// Takes one character off the front of a text; a byte that is no part of a UTF-8 character reads as U+FFFD.
std::uint32_t takeCodePoint(std::string_view& text) {
  constexpr std::uint32_t kReplacement = 0xFFFD;
  constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const auto byteAt = [&](std::size_t i) { return static_cast<std::uint32_t>(static_cast<unsigned char>(text[i])); };
  const std::uint32_t first = byteAt(0);
  const std::size_t length = first < 0x80         ? 1
                             : first >> 5 == 0x6  ? 2
                             : first >> 4 == 0xE  ? 3
                             : first >> 3 == 0x1E ? 4
                                                  : 0;
  std::uint32_t codePoint = length == 1 ? first : length == 0 ? 0 : first & (0x7Fu >> length);
  bool valid = length != 0 && length <= text.size();
  for (std::size_t i = 1; valid && i < length; ++i) {
    valid = byteAt(i) >> 6 == 0x2;
    codePoint = codePoint << 6 | (byteAt(i) & 0x3F);
  }
  valid =
      valid && codePoint >= kSmallest[length] && codePoint <= 0x10FFFF && (codePoint < 0xD800 || codePoint > 0xDFFF);
  text.remove_prefix(valid ? length : 1);
  return valid ? codePoint : kReplacement;
}

char escapeLetter(char c) {
  constexpr std::string_view kEscaped = "\"\\\a\b\t\n\v\f\r";
  constexpr std::string_view kLetters = "\"\\abtnvfr";
  const std::size_t index = kEscaped.find(c);
  return index == std::string_view::npos ? '\0' : kLetters[index];
}

bool isPlain(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
  });
}

void appendInnerText(std::string& out, std::string_view text) {
  if (isPlain(text)) {
    out += text;
    return;
  }
  out += '"';
  while (!text.empty()) {
    const char c = text.front();
    if (const char letter = escapeLetter(c)) {
      out += '\\';
      out += letter;
      text.remove_prefix(1);
    } else if (c >= ' ' && c < '\x7F') {
      out += c;
      text.remove_prefix(1);
    } else {
      appendCodePoint(out, takeCodePoint(text));
    }
  }
  out += '"';
}

void appendData(std::string& out, std::string_view bytes) {
  out += '<';
  for (const char c : bytes) {
    out += kHexDigits[static_cast<unsigned char>(c) >> 4];
    out += kHexDigits[static_cast<unsigned char>(c) & 0xF];
  }
  out += '>';
}

void appendPadded(std::string& out, std::int64_t number, std::size_t digits) {
  const std::string text = std::to_string(number);
  out.append(digits - std::min(digits, text.size()), '0');
  out += text;
}

/// 2026-11-21 10:00:00 +0000
void appendDate(std::string& out, double secondsSince1970) {
  using namespace std::chrono;
  // The calendar of <chrono> ends at the year 32767; the moment that is no number counts as its beginning.
  constexpr double kBound = 9.0e11;
  const double bounded = std::isnan(secondsSince1970) ? 0 : std::clamp(secondsSince1970, -kBound, kBound);
  const sys_seconds moment{seconds{static_cast<std::int64_t>(std::floor(bounded))}};
  const sys_days day = floor<days>(moment);
  const year_month_day date(day);
  const hh_mm_ss time(moment - day);
  appendPadded(out, static_cast<int>(date.year()), 4);
  out += '-';
  appendPadded(out, static_cast<unsigned>(date.month()), 2);
  out += '-';
  appendPadded(out, static_cast<unsigned>(date.day()), 2);
  out += ' ';
  appendPadded(out, time.hours().count(), 2);
  out += ':';
  appendPadded(out, time.minutes().count(), 2);
  out += ':';
  appendPadded(out, time.seconds().count(), 2);
  out += " +0000";
}

/// Everything but arrays and dictionaries, as it stands on its own.
void appendScalar(std::string& out, const TKSValue& value) {
  char digits[kRealTextCapacity];
  switch (value.kind()) {
    case Kind::nothing:
      out += "(null)";
      return;
    case Kind::null:
      out += "<null>";
      return;
    case Kind::boolean:
      out += value.boolean() ? '1' : '0';
      return;
    case Kind::integer:
      out.append(digits, std::to_chars(digits, digits + sizeof digits, value.integer()).ptr);
      return;
    case Kind::real:
      out.append(digits, writeReal(digits, value.real()));
      return;
    case Kind::text:
      out += value.text();
      return;
    case Kind::data:
      appendData(out, Access::bytes(value));
      return;
    case Kind::date:
      appendDate(out, value.date().secondsSince1970);
      return;
    case Kind::array:
    case Kind::dictionary:
      return;
  }
}

/// Prints lists inside lists without recursion.
class ListPrinter {
 public:
  std::string print(Kind kind, const Node* node) {
    open(kind, Access::values(node));
    while (!levels_.empty()) {
      Level& level = levels_.back();
      if (level.rest.empty()) {
        close();
      } else {
        printNext(level);
      }
    }
    return std::move(out_);
  }

 private:
  struct Level {
    std::span<const TKSValue> rest;
    Kind kind;
    bool isFirst = true;
  };

  void indent(std::size_t levels) { out_.append(kBlanksPerLevel * std::min(levels, kDeepestIndent), ' '); }

  void open(Kind kind, std::span<const TKSValue> values) {
    out_ += kind == Kind::array ? "(\n" : "{\n";
    levels_.push_back({values, kind});
  }

  void close() {
    const Level closed = levels_.back();
    levels_.pop_back();
    if (closed.kind == Kind::array && !closed.isFirst) out_ += '\n';
    indent(levels_.size());
    out_ += closed.kind == Kind::array ? ')' : '}';
    endValue();
  }

  /// A dictionary's values end with a semicolon and their line; in an array the next one or the end completes the line.
  void endValue() {
    if (!levels_.empty() && levels_.back().kind == Kind::dictionary) out_ += ";\n";
  }

  void printNext(Level& level) {
    if (level.kind == Kind::array && !level.isFirst) out_ += ",\n";
    level.isFirst = false;
    indent(levels_.size());
    if (level.kind == Kind::dictionary) {
      appendInnerText(out_, level.rest.front().text());
      out_ += " = ";
      level.rest = level.rest.subspan(1);
    }
    const TKSValue& value = level.rest.front();
    level.rest = level.rest.subspan(1);
    if (value.isArray() || value.isDictionary()) {
      indent(levels_.size());
      open(value.kind(), Access::values(value));
      return;
    }
    if (value.isText()) {
      appendInnerText(out_, value.text());
    } else {
      appendScalar(out_, value);
    }
    endValue();
  }

  std::string out_;
  std::vector<Level> levels_;
};

}  // namespace

std::string describeList(Kind kind, const Node* node) { return ListPrinter().print(kind, node); }

}  // namespace tks::value

std::string TKSValue::description() const {
  if (isArray() || isDictionary()) return tks::value::describeList(kind_, tks::value::Access::node(*this));
  std::string out;
  tks::value::appendScalar(out, *this);
  return out;
}
