#include "formats/property_list_xml.h"

#include <locale.h>
#include <simdjson.h>
#include <stdlib.h>

#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <pugixml.hpp>
#include <string_view>
#include <utility>
#include <vector>

#include "formats/xml_reference.h"
#include "foundation/values/Base64.h"
#include "foundation/values/Utf8.h"
#include "foundation/values/ValueBuilder.h"
#include "foundation/values/ValueNodes.h"

namespace tks::gnulinux::property_list {
namespace {

using Kind = TKSValue::Kind;

constexpr std::string_view kBlanks = " \t\r\n";

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Scalars.

bool isXmlCharacter(char32_t code) {
  return code == '\t' || code == '\n' || code == '\r' || (code >= 0x20 && code <= 0xD7FF) ||
         (code >= 0xE000 && code <= 0xFFFD) || (code >= 0x10000 && code <= 0x10FFFF);
}

/// Appends the character that a reference stands for. False when it stands for none.
bool appendReference(std::string& text, std::string_view name) {
  const std::optional<char32_t> character = xmlReference(name);
  if (!character || !isXmlCharacter(*character)) return false;
  utf8::append(text, *character);
  return true;
}

/// Appends character data with the characters that its references stand for. False when a reference is unknown or
/// unfinished. Line ends stay as they are, as the platform has it, although XML would have them all become LF.
bool appendCharacterData(std::string& text, std::string_view raw) {
  constexpr std::size_t kLongestReference = 12;
  for (;;) {
    const std::size_t plain = std::min(raw.find('&'), raw.size());
    text.append(raw.substr(0, plain));
    raw.remove_prefix(plain);
    if (raw.empty()) return true;
    const std::size_t end = raw.substr(0, kLongestReference).find(';');
    if (end == std::string_view::npos || !appendReference(text, raw.substr(1, end - 1))) return false;
    raw.remove_prefix(end + 1);
  }
}

/// A number however large or small: infinite or zero beyond the range. Nothing when the text is no number as a whole.
std::optional<double> parseReal(std::string_view text) {
  if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
  const char* const end = text.data() + text.size();
  double value = 0;
  const auto [stop, failure] = std::from_chars(text.data(), end, value);
  if (stop != end || failure == std::errc::invalid_argument) return std::nullopt;
  if (failure == std::errc()) return value;
  static const locale_t plain = ::newlocale(LC_ALL_MASK, "C", nullptr);
  return ::strtod_l(std::string(text).c_str(), nullptr, plain);
}

/// Decimal or, behind "0x", hexadecimal. What 64 bits cannot hold, with a sign or without, becomes a real.
TKSValue parseInteger(std::string_view text) {
  const std::string_view whole = text;
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (hexadecimal) text.remove_prefix(2);
  const char* const end = text.data() + text.size();
  std::uint64_t magnitude = 0;
  const auto [stop, failure] = std::from_chars(text.data(), end, magnitude, hexadecimal ? 16 : 10);
  if (stop != end || failure == std::errc::invalid_argument) return {};
  constexpr auto kLargest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  if (failure == std::errc() && magnitude <= kLargest) {
    const auto value = static_cast<std::int64_t>(magnitude);
    return negative ? -value : value;
  }
  if (failure == std::errc() && negative && magnitude == kLargest + 1) return std::numeric_limits<std::int64_t>::min();
  if (failure == std::errc()) return negative ? TKSValue(-static_cast<double>(magnitude)) : TKSValue(magnitude);
  const std::optional<double> real = hexadecimal ? std::nullopt : parseReal(whole);
  return real ? TKSValue(*real) : TKSValue();
}

/// Reads `size` digits at the front of the text, and `closing` behind them.
std::optional<int> takeNumber(std::string_view& text, std::size_t size, char closing) {
  if (text.size() <= size || text[size] != closing) return std::nullopt;
  int number = 0;
  for (const char digit : text.substr(0, size)) {
    if (digit < '0' || digit > '9') return std::nullopt;
    number = number * 10 + (digit - '0');
  }
  text.remove_prefix(size + 1);
  return number;
}

/// YYYY-MM-DDThh:mm:ssZ
std::optional<TKSDate> parseDate(std::string_view text) {
  const auto year = takeNumber(text, 4, '-');
  const auto month = takeNumber(text, 2, '-');
  const auto day = takeNumber(text, 2, 'T');
  const auto hour = takeNumber(text, 2, ':');
  const auto minute = takeNumber(text, 2, ':');
  const auto second = takeNumber(text, 2, 'Z');
  if (!year || !month || !day || !hour || !minute || !second || !text.empty()) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year(*year), std::chrono::month(static_cast<unsigned>(*month)),
                                         std::chrono::day(static_cast<unsigned>(*day))};
  if (!date.ok() || *hour > 23 || *minute > 59 || *second > 60) return std::nullopt;
  const std::chrono::seconds moment = std::chrono::sys_days(date).time_since_epoch() + std::chrono::hours(*hour) +
                                      std::chrono::minutes(*minute) + std::chrono::seconds(*second);
  return TKSDate{static_cast<double>(moment.count())};
}

// Reading.

enum class Element { dictionary, array, key, text, integer, real, yes, no, date, data, unknown };

/// A short name as a number, so that it can be told from others at once; 0 for a long one.
constexpr std::uint64_t packed(const char* name) {
  std::uint64_t number = 0;
  for (std::size_t i = 0; name[i] != '\0'; ++i) {
    if (i == sizeof number) return 0;
    number = number << 8 | static_cast<unsigned char>(name[i]);
  }
  return number;
}

Element elementOf(const char* name) {
  switch (packed(name)) {
    case packed("key"):
      return Element::key;
    case packed("string"):
      return Element::text;
    case packed("integer"):
      return Element::integer;
    case packed("dict"):
      return Element::dictionary;
    case packed("array"):
      return Element::array;
    case packed("true"):
      return Element::yes;
    case packed("false"):
      return Element::no;
    case packed("real"):
      return Element::real;
    case packed("data"):
      return Element::data;
    case packed("date"):
      return Element::date;
    default:
      return Element::unknown;
  }
}

/// Turns the tree of elements into a value, without recursion: what is open stands in `open_`.
class XmlReader {
 public:
  /// How the tree was made. Reading fast drops blanks between elements, which is wrong for the rare text that is cut
  /// into pieces by comments or CDATA sections; when one turns up the list is read once more, exactly.
  enum class Mode { fast, exact };

  XmlReader(Mode mode, std::size_t size, Problem& problem) : mode_(mode), problem_(problem), builder_(size) {}

  TKSValue read(const pugi::xml_document& document);
  bool needsExactMode() const { return needsExactMode_; }

 private:
  struct Open {
    Element element;
    pugi::xml_node next;
    std::size_t taken;
  };

  bool fail(std::string_view what) { return problem_.say(what); }

  std::optional<pugi::xml_node> onlyElementIn(const pugi::xml_node& parent);
  bool begin(pugi::xml_node node);
  bool finish();
  bool enter(pugi::xml_node node);
  bool isInPlace(Element element) const;
  bool scalar(Element element, const pugi::xml_node& node);
  bool integer(std::string_view text);
  std::optional<std::string_view> textOf(const pugi::xml_node& node);

  const Mode mode_;
  Problem& problem_;
  bool needsExactMode_ = false;
  std::vector<Open> open_;
  value::Builder builder_;
  std::string buffer_;
};

bool isIgnorable(const pugi::xml_node& node) {
  switch (node.type()) {
    case pugi::node_comment:
    case pugi::node_pi:
    case pugi::node_declaration:
    case pugi::node_doctype:
      return true;
    case pugi::node_pcdata:
      return trimmed(node.value()).empty();
    default:
      return false;
  }
}

std::optional<pugi::xml_node> XmlReader::onlyElementIn(const pugi::xml_node& parent) {
  pugi::xml_node found;
  for (const pugi::xml_node& node : parent.children()) {
    if (node.type() == pugi::node_doctype && std::strstr(node.value(), "<!ENTITY") != nullptr) {
      fail("it declares entities");
      return std::nullopt;
    }
    if (isIgnorable(node)) continue;
    if (node.type() != pugi::node_element || found) {
      fail("it holds more than one value");
      return std::nullopt;
    }
    found = node;
  }
  if (!found) fail("it holds no value");
  return found ? std::optional(found) : std::nullopt;
}

TKSValue XmlReader::read(const pugi::xml_document& document) {
  std::optional<pugi::xml_node> root = onlyElementIn(document);
  if (root && root->name() == std::string_view("plist")) root = onlyElementIn(*root);
  if (!root || !begin(*root)) return {};
  while (!open_.empty()) {
    if (!(open_.back().next ? enter(open_.back().next) : finish())) return {};
  }
  return builder_.take();
}

/// Takes the next node of the innermost open element.
bool XmlReader::enter(pugi::xml_node node) {
  open_.back().next = node.next_sibling();
  if (node.type() == pugi::node_element) return begin(node);
  return isIgnorable(node) || fail("there is text between values");
}

/// A key where a key has to stand, and a value everywhere else.
bool XmlReader::isInPlace(Element element) const {
  const bool keyComesNext =
      !open_.empty() && open_.back().element == Element::dictionary && open_.back().taken % 2 == 0;
  return keyComesNext == (element == Element::key);
}

bool XmlReader::begin(pugi::xml_node node) {
  const Element element = elementOf(node.name());
  if (!isInPlace(element)) return fail("keys and values do not alternate in a dictionary");
  if (!open_.empty()) ++open_.back().taken;
  if (element != Element::dictionary && element != Element::array) return scalar(element, node);
  if (open_.size() == kDeepestNesting) return problem_.sayBeyondBounds("it is nested too deeply");
  if (!trimmed(node.value()).empty()) return fail("there is text between values");
  const pugi::xml_node first = node.first_child();
  std::size_t children = 0;
  for (pugi::xml_node child = first; child; child = child.next_sibling()) ++children;
  element == Element::array ? builder_.beginArray(children) : builder_.beginDictionary(children / 2);
  open_.push_back({element, first, 0});
  return true;
}

/// Closes the innermost open element.
bool XmlReader::finish() {
  const Open closed = open_.back();
  open_.pop_back();
  if (closed.element == Element::array) {
    builder_.endArray();
    return true;
  }
  if (closed.taken % 2 != 0) return fail("a key has no value");
  builder_.endDictionary();
  return true;
}

/// The character data of an element, which must not hold other elements.
std::optional<std::string_view> XmlReader::textOf(const pugi::xml_node& node) {
  const std::string_view whole = node.value();  // empty in exact mode, in which character data stand below the element
  const bool isInOnePiece = !node.first_child();
  if (isInOnePiece && whole.find('&') == std::string_view::npos) return whole;
  if (mode_ == Mode::fast && !isInOnePiece) {
    needsExactMode_ = true;
    return std::nullopt;
  }
  buffer_.clear();
  bool isSound = appendCharacterData(buffer_, whole);
  for (pugi::xml_node piece : node.children()) {
    if (piece.type() == pugi::node_element) {
      fail("an element stands inside of a scalar");
      return std::nullopt;
    }
    if (piece.type() == pugi::node_cdata) buffer_ += piece.value();
    if (piece.type() == pugi::node_pcdata) isSound = isSound && appendCharacterData(buffer_, piece.value());
  }
  if (isSound) return buffer_;
  fail("it holds an unknown reference");
  return std::nullopt;
}

bool XmlReader::scalar(Element element, const pugi::xml_node& node) {
  const std::optional<std::string_view> text = textOf(node);
  if (!text) return false;
  switch (element) {
    case Element::key:
    case Element::text:
      builder_.text(*text);
      return true;
    case Element::integer:
      return integer(trimmed(*text));
    case Element::real: {
      const std::optional<double> value = parseReal(trimmed(*text));
      if (value) builder_.real(*value);
      return value || fail("a real is none");
    }
    case Element::yes:
    case Element::no:
      builder_.boolean(element == Element::yes);
      return trimmed(*text).empty() || fail("a boolean holds text");
    case Element::date: {
      const std::optional<TKSDate> value = parseDate(trimmed(*text));
      if (value) builder_.date(*value);
      return value || fail("a date is none");
    }
    case Element::data: {
      const std::optional<TKSData> value = base64::decode(*text);
      if (value) builder_.data(*value);
      return value || fail("data are not base64");
    }
    case Element::dictionary:
    case Element::array:
    case Element::unknown:
      break;
  }
  return fail("an element is unknown");
}

bool XmlReader::integer(std::string_view text) {
  const TKSValue value = parseInteger(text);
  if (value.isNothing()) return fail("an integer is none");
  if (value.isReal()) {
    builder_.real(value.real());
  } else if (value.isUnsignedInteger()) {
    builder_.unsignedInteger(value.unsignedInteger());
  } else {
    builder_.integer(value.integer());
  }
  return true;
}

TKSValue readXml(std::span<const std::uint8_t> content, XmlReader::Mode mode, Problem& problem, bool& again) {
  constexpr unsigned kCommon = pugi::parse_cdata | pugi::parse_comments | pugi::parse_pi | pugi::parse_doctype;
  constexpr unsigned kFast = kCommon | pugi::parse_ws_pcdata_single | pugi::parse_embed_pcdata;
  constexpr unsigned kExact = kCommon | pugi::parse_ws_pcdata;
  pugi::xml_document document;
  const pugi::xml_parse_result result =
      document.load_buffer(content.data(), content.size(), mode == XmlReader::Mode::fast ? kFast : kExact);
  if (!result) {
    problem.say(std::string(result.description()) + " at byte " + std::to_string(result.offset));
    return {};
  }
  if (result.encoding == pugi::encoding_utf8 &&
      !simdjson::validate_utf8(reinterpret_cast<const char*>(content.data()), content.size())) {
    problem.say("it is not UTF-8");
    return {};
  }
  XmlReader reader(mode, content.size() / 2, problem);
  TKSValue value = reader.read(document);
  again = reader.needsExactMode();
  return value;
}

// Writing.

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

/// Whether XML has all characters of a text: neither control characters nor U+FFFE and U+FFFF.
bool xmlHasAllOf(std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x20 && byte != '\t' && byte != '\n' && byte != '\r') return false;
    if (byte == 0xEF && (text.substr(i).starts_with("\xEF\xBF\xBE") || text.substr(i).starts_with("\xEF\xBF\xBF"))) {
      return false;
    }
  }
  return true;
}

bool XmlWriter::textElement(std::string_view name, std::string_view text) {
  if (!utf8::isValid(text)) return fail("a text is not UTF-8");
  if (!xmlHasAllOf(text)) return fail("a text holds a character that XML does not have");
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

TKSValue readXml(std::span<const std::uint8_t> content, Problem& problem) {
  bool again = false;
  TKSValue value = readXml(content, XmlReader::Mode::fast, problem, again);
  return again ? readXml(content, XmlReader::Mode::exact, problem, again) : value;
}

std::optional<TKSData> writeXml(const TKSValue& value, Problem& problem) { return XmlWriter(problem).write(value); }

}  // namespace tks::gnulinux::property_list
