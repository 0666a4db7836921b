#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <string>

#include "foundation/values/IntegerText.h"
#include "foundation/values/RealText.h"
#include "foundation/values/Utf8.h"
#include "foundation/values/ValueNodes.h"
#include "foundation/values/WorkList.h"

namespace tks::value {
namespace {

using Kind = TKSValue::Kind;

constexpr std::string_view kHexDigits = "0123456789abcdef";
constexpr char32_t kReplacement = 0xFFFD;
constexpr std::size_t kBlanksPerLevel = 4;
/// Beyond this depth lines are not indented any further: the length of a text must not grow with the square of the
/// depth.
constexpr std::size_t kDeepestIndent = 64;

void appendUnit(std::string& out, char32_t unit) {
  out += "\\\\U";
  for (int shift = 12; shift >= 0; shift -= 4) out += kHexDigits[unit >> shift & 0xF];
}

void appendCharacter(std::string& out, char32_t character) {
  if (character < 0x10000) {
    appendUnit(out, character);
    return;
  }
  appendUnit(out, 0xD800 + ((character - 0x10000) >> 10));
  appendUnit(out, 0xDC00 + ((character - 0x10000) & 0x3FF));
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
      appendCharacter(out, utf8::takeCharacter(text).value_or(kReplacement));
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
      out.append(digits, writeInteger(digits, digits + sizeof digits, value));
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
      Level& level = levels_.top();
      if (level.next == level.end) {
        close();
      } else {
        printNext(level);
      }
    }
    return std::move(out_);
  }

 private:
  struct Level {
    const TKSValue* next;
    const TKSValue* end;
    Kind kind;
    bool isFirst;
  };

  void indent(std::size_t levels) { out_.append(kBlanksPerLevel * std::min(levels, kDeepestIndent), ' '); }

  void open(Kind kind, std::span<const TKSValue> values) {
    out_ += kind == Kind::array ? "(\n" : "{\n";
    levels_.push({values.data(), values.data() + values.size(), kind, true});
  }

  void close() {
    const Level closed = levels_.top();
    levels_.pop();
    if (closed.kind == Kind::array && !closed.isFirst) out_ += '\n';
    indent(levels_.size());
    out_ += closed.kind == Kind::array ? ')' : '}';
    endValue();
  }

  /// A dictionary's values end with a semicolon and their line; in an array the next one or the end completes the line.
  void endValue() {
    if (!levels_.empty() && levels_.top().kind == Kind::dictionary) out_ += ";\n";
  }

  void printNext(Level& level) {
    if (level.kind == Kind::array && !level.isFirst) out_ += ",\n";
    level.isFirst = false;
    indent(levels_.size());
    if (level.kind == Kind::dictionary) {
      appendInnerText(out_, level.next++->text());
      out_ += " = ";
    }
    const TKSValue& value = *level.next++;
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
  WorkList<Level> levels_;
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
