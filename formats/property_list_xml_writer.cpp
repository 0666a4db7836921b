#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "formats/property_list_xml.h"
#include "formats/xml_text.h"
#include "foundation/values/Base64.h"
#include "foundation/values/Utf8.h"
#include "foundation/values/ValueNodes.h"

namespace tks::formats::property_list {
namespace {

using Kind = TKSValue::Kind;

constexpr std::string_view kHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
constexpr std::string_view kFoot = "</plist>\n";

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
  void indent() { out_.append(open_.size(), '\t'); }
  void element(std::string_view name, std::string_view content);
  bool textElement(std::string_view name, std::string_view text);
  bool date(TKSDate date);
  void data(const TKSData& data);

  Problem& problem_;
  std::string out_;
  std::vector<Open> open_;
};

std::optional<TKSData> XmlWriter::write(const TKSValue& value) {
  out_ = kHead;
  bool whole = begin(value) && fits();
  while (whole && !open_.empty()) whole = advance() && fits();
  if (!whole) return std::nullopt;
  out_ += kFoot;
  return TKSData(out_.begin(), out_.end());
}

/// Asked after each step, so that values that share their parts cannot fill the memory.
bool XmlWriter::fits() {
  return out_.size() <= kLargestSize - kFoot.size() || problem_.sayBeyondBounds("it is too large");
}

/// Writes the next value of the innermost container, or closes it.
bool XmlWriter::advance() {
  Open& innermost = open_.back();
  if (innermost.rest.empty()) {
    const std::string_view closing = innermost.isDictionary ? "</dict>\n" : "</array>\n";
    open_.pop_back();
    indent();
    out_ += closing;
    return true;
  }
  const TKSValue* const next = innermost.rest.data();
  innermost.rest = innermost.rest.subspan(innermost.isDictionary ? 2 : 1);
  if (!innermost.isDictionary) return begin(*next);
  return textElement("key", next->text()) && begin(next[1]);
}

bool XmlWriter::begin(const TKSValue& value) {
  switch (value.kind()) {
    case Kind::nothing:
    case Kind::null:
      return fail("property lists have no null");
    case Kind::boolean:
      indent();
      out_ += value.boolean() ? "<true/>\n" : "<false/>\n";
      return true;
    case Kind::integer:
      element("integer", value.description());
      return true;
    case Kind::real: {
      const double number = value.real();
      char digits[32];
      const char* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
      if (std::isfinite(number)) {
        element("real", std::string_view(digits, end));
      } else {
        element("real", std::isnan(number) ? "nan" : number > 0 ? "+infinity" : "-infinity");
      }
      return true;
    }
    case Kind::text:
      return textElement("string", value.text());
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
  const std::span<const TKSValue> values = value::Access::values(value);
  const bool isDictionary = value.isDictionary();
  indent();
  if (values.empty()) {
    out_ += isDictionary ? "<dict/>\n" : "<array/>\n";
    return true;
  }
  out_ += isDictionary ? "<dict>\n" : "<array>\n";
  open_.push_back({isDictionary, values});
  return true;
}

void XmlWriter::element(std::string_view name, std::string_view content) {
  indent();
  out_.append("<").append(name).append(">").append(content).append("</").append(name).append(">\n");
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

bool XmlWriter::textElement(std::string_view name, std::string_view text) {
  if (!utf8::isValid(text)) return fail("a text is not UTF-8");
  if (!hasOnlyXmlCharacters(text)) return fail("a text holds a character that XML does not have");
  indent();
  out_.append("<").append(name).append(">");
  while (!text.empty()) {
    const std::size_t plain = std::min(text.find_first_of("&<>\r"), text.size());
    out_.append(text.substr(0, plain));
    if (plain == text.size()) break;
    out_.append(escapeOf(text[plain]));
    text.remove_prefix(plain + 1);
  }
  out_.append("</").append(name).append(">\n");
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
  element("date", text);
  return true;
}

void XmlWriter::data(const TKSData& data) {
  constexpr std::size_t kLine = 76;
  indent();
  out_ += "<data>\n";
  const std::string text = base64::encode(data);
  for (std::size_t i = 0; i < text.size(); i += kLine) {
    indent();
    out_.append(text, i, kLine).append("\n");
  }
  indent();
  out_ += "</data>\n";
}

}  // namespace

std::optional<TKSData> writeXml(const TKSValue& value, Problem& problem) { return XmlWriter(problem).write(value); }

}  // namespace tks::formats::property_list
