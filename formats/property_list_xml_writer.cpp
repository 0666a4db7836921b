#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "formats/byte_output.h"
#include "formats/property_list_xml.h"
#include "formats/property_list_xml_head.h"
#include "formats/xml_text.h"
#include "foundation/values/Base64.h"
#include "foundation/values/IntegerText.h"
#include "foundation/values/Sixteen.h"
#include "foundation/values/Utf8.h"
#include "foundation/values/ValueNodes.h"

namespace tks::formats::property_list {
namespace {

using Kind = TKSValue::Kind;
using value::Access;

/// The tags around what an element holds.
struct Tags {
  std::string_view opening;
  std::string_view closing;
};
constexpr Tags kKey{"<key>", "</key>\n"};
constexpr Tags kText{"<string>", "</string>\n"};
constexpr Tags kInteger{"<integer>", "</integer>\n"};
constexpr Tags kReal{"<real>", "</real>\n"};
constexpr Tags kDate{"<date>", "</date>\n"};

/// Writes a value without recursion: what is open stands in `open_`.
class XmlWriter {
 public:
  explicit XmlWriter(Problem& problem) : problem_(problem) {}

  std::optional<TKSData> write(const TKSValue& value);

 private:
  struct Open {
    bool isDictionary;
    /// Keys and values in turn for a dictionary.
    std::span<const TKSValue> rest;
  };

  bool fail(std::string_view what) { return problem_.say(what); }
  bool begin(const TKSValue& value);
  bool beginContainer(const TKSValue& value);
  bool advance();
  bool fits();
  char* indented();
  void line(std::string_view content);
  void element(const Tags& tags, std::string_view content);
  void integer(const TKSValue& value);
  void real(double number);
  bool textElement(const Tags& tags, const TKSValue& value);
  bool escapedText(std::string_view text);
  bool date(TKSDate date);
  void data(const TKSData& data);

  Problem& problem_;
  ByteOutput out_;
  std::vector<Open> open_;
};

std::optional<TKSData> XmlWriter::write(const TKSValue& value) {
  for (const std::string_view head : {kXmlDeclaration, kXmlDoctype, kXmlOpening}) line(head);
  bool whole = begin(value) && fits();
  while (whole && !open_.empty()) whole = advance() && fits();
  if (!whole) return std::nullopt;
  line(kXmlClosing);
  return out_.take();
}

/// Asked after each step, so that values that share their parts cannot fill the memory.
bool XmlWriter::fits() {
  return out_.size() <= kLargestSize - kXmlClosing.size() - 1 || problem_.sayBeyondBounds("it is too large");
}

/// Where to go on after the tabs of a new line, with room for some tags.
char* XmlWriter::indented() {
  static_assert(kDeepestNesting <= ByteOutput::kMostAtOnce / 2);
  char* const out = out_.room();
  std::memset(out, '\t', open_.size());
  return out + open_.size();
}

void XmlWriter::line(std::string_view content) { out_.wroteTo(copied(copied(indented(), content), "\n")); }

/// Writes the next value of the innermost container, or closes it.
bool XmlWriter::advance() {
  Open& innermost = open_.back();
  if (innermost.rest.empty()) {
    const std::string_view closing = innermost.isDictionary ? "</dict>" : "</array>";
    open_.pop_back();
    line(closing);
    return true;
  }
  const TKSValue* const next = innermost.rest.data();
  innermost.rest = innermost.rest.subspan(innermost.isDictionary ? 2 : 1);
  if (!innermost.isDictionary) return begin(*next);
  return textElement(kKey, *next) && begin(next[1]);
}

bool XmlWriter::begin(const TKSValue& value) {
  switch (value.kind()) {
    case Kind::nothing:
    case Kind::null:
      return fail("property lists have no null");
    case Kind::boolean:
      line(value.boolean() ? "<true/>" : "<false/>");
      return true;
    case Kind::integer:
      integer(value);
      return true;
    case Kind::real:
      real(value.real());
      return true;
    case Kind::text:
      return textElement(kText, value);
    case Kind::date:
      return date(value.date());
    case Kind::data:
      data(value.data());
      return true;
    case Kind::array:
    case Kind::dictionary:
      return beginContainer(value);
  }
  return false;
}

bool XmlWriter::beginContainer(const TKSValue& value) {
  if (open_.size() == kDeepestNesting) return problem_.sayBeyondBounds("it is nested too deeply");
  const std::span<const TKSValue> values = Access::values(value);
  const bool isDictionary = value.isDictionary();
  if (values.empty()) {
    line(isDictionary ? "<dict/>" : "<array/>");
    return true;
  }
  line(isDictionary ? "<dict>" : "<array>");
  open_.push_back({isDictionary, values});
  return true;
}

/// For a short content.
void XmlWriter::element(const Tags& tags, std::string_view content) {
  out_.wroteTo(copied(copied(copied(indented(), tags.opening), content), tags.closing));
}

void XmlWriter::integer(const TKSValue& value) {
  char digits[32];
  element(kInteger, std::string_view(digits, writeInteger(digits, digits + sizeof digits, value)));
}

void XmlWriter::real(double number) {
  if (!std::isfinite(number)) {
    return element(kReal, std::isnan(number) ? "nan" : number > 0 ? "+infinity" : "-infinity");
  }
  char digits[32];
  element(kReal, std::string_view(digits, std::to_chars(digits, digits + sizeof digits, number).ptr));
}

/// Replacements of the characters that cannot stand for themselves. Many readers take a bare CR for LF.
std::string_view escapeOf(char character) {
  switch (character) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    default:
      return "&#13;";
  }
}

/// Copies a text as long as its bytes are ASCII and stand for themselves; after it, sixteen bytes can be read. Null
/// when there are others among them.
char* copyPlain(char* to, const char* from, std::size_t size) {
  static_assert(sizeof(Sixteen) <= value::kBytesBehind);
  for (;;) {
    const Sixteen bytes = sixteenAt(from);
    std::memcpy(to, &bytes, sizeof bytes);
    const auto isOther = (bytes < ' ') | (bytes > '~') | (bytes == '&') | (bytes == '<') | (bytes == '>');
    const std::size_t plain = firstMarked(marksOf(isOther));
    if (plain >= size) return to + size;
    if (plain < sizeof bytes) return nullptr;
    to += sizeof bytes;
    from += sizeof bytes;
    size -= sizeof bytes;
  }
}

/// Nearly all texts are short, and need no look at each of their characters.
bool XmlWriter::textElement(const Tags& tags, const TKSValue& value) {
  constexpr std::size_t kShort = ByteOutput::kMostAtOnce / 4;
  const std::string_view text = Access::bytes(value);
  char* const begin = copied(indented(), tags.opening);
  char* end = nullptr;
  if (Access::isShared(value)) {
    end = text.size() <= kShort ? copyPlain(begin, text.data(), text.size()) : nullptr;
  } else {
    static_assert(sizeof value == sizeof(Sixteen));
    end = copyPlain(begin, text.data(), text.size());
  }
  if (end != nullptr) {
    out_.wroteTo(copied(end, tags.closing));
    return true;
  }
  out_.wroteTo(begin);
  if (!escapedText(text)) return false;
  out_.append(tags.closing);
  return true;
}

bool XmlWriter::escapedText(std::string_view text) {
  if (!utf8::isValid(text)) return fail("a text is not UTF-8");
  if (!hasOnlyXmlCharacters(text)) return fail("a text holds a character that XML does not have");
  while (!text.empty()) {
    const std::size_t plain = std::min(text.find_first_of("&<>\r"), text.size());
    out_.append(text.substr(0, plain));
    if (plain == text.size()) break;
    out_.append(escapeOf(text[plain]));
    text.remove_prefix(plain + 1);
  }
  return true;
}

bool XmlWriter::date(TKSDate date) {
  constexpr double kFirst = -62135596800;  // 0001-01-01
  constexpr double kLast = 253402300800;   // 10000-01-01
  if (!(date.secondsSince1970 >= kFirst && date.secondsSince1970 < kLast)) {
    return fail("a date lies beyond what XML can hold");
  }
  const std::chrono::sys_seconds moment{
      std::chrono::seconds(static_cast<std::int64_t>(std::floor(date.secondsSince1970)))};
  const auto day = std::chrono::floor<std::chrono::days>(moment);
  const std::chrono::year_month_day calendar{day};
  const std::chrono::hh_mm_ss time{moment - day};
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(calendar.year()),
                static_cast<unsigned>(calendar.month()), static_cast<unsigned>(calendar.day()),
                static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                static_cast<int>(time.seconds().count()));
  element(kDate, text);
  return true;
}

void XmlWriter::data(const TKSData& data) {
  constexpr std::size_t kLine = 76;
  line("<data>");
  const std::string text = base64::encode(data);
  for (std::size_t i = 0; i < text.size(); i += kLine) line(std::string_view(text).substr(i, kLine));
  line("</data>");
}

}  // namespace

std::optional<TKSData> writeXml(const TKSValue& value, Problem& problem) { return XmlWriter(problem).write(value); }

}  // namespace tks::formats::property_list
