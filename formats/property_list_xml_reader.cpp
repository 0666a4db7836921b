#include <simdjson.h>

#include <cstring>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "formats/property_list_xml.h"
#include "formats/property_list_xml_plain.h"
#include "formats/property_list_xml_scalars.h"
#include "formats/xml_text.h"
#include "foundation/values/Base64.h"
#include "foundation/values/ValueBuilder.h"

namespace tks::formats::property_list {
namespace {

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
  std::optional<std::string_view> contentOf(const pugi::xml_node& node);

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
      return withoutXmlBlanks(node.value()).empty();
    default:
      return false;
  }
}

std::optional<pugi::xml_node> XmlReader::onlyElementIn(const pugi::xml_node& parent) {
  pugi::xml_node found;
  if (!withoutXmlBlanks(parent.value()).empty()) {
    fail("there is text beside the value");
    return std::nullopt;
  }
  for (const pugi::xml_node& node : parent.children()) {
    if (node.type() == pugi::node_doctype && std::strstr(node.value(), "<!ENTITY") != nullptr) {
      fail("it declares entities");
      return std::nullopt;
    }
    if (isIgnorable(node)) continue;
    const bool isText = node.type() != pugi::node_element;
    // What follows the outermost element belongs to nothing.
    if (isText && found && parent.type() == pugi::node_document) continue;
    if (isText || found) {
      fail(isText ? "there is text beside the value" : "it holds more than one value");
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
  if (!withoutXmlBlanks(node.value()).empty()) return fail("there is text between values");
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
std::optional<std::string_view> XmlReader::contentOf(const pugi::xml_node& node) {
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
  const std::optional<std::string_view> text = contentOf(node);
  if (!text) return false;
  switch (element) {
    case Element::key:
    case Element::text:
      builder_.text(*text);
      return true;
    case Element::integer:
      return integer(withoutXmlBlanks(*text));
    case Element::real: {
      const std::optional<double> value = parseReal(withoutXmlBlanks(*text));
      if (value) builder_.real(*value);
      return value || fail("a real is none");
    }
    case Element::yes:
    case Element::no:
      builder_.boolean(element == Element::yes);
      return withoutXmlBlanks(*text).empty() || fail("a boolean holds text");
    case Element::date: {
      const std::optional<TKSDate> value = parseDate(withoutXmlBlanks(*text));
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

bool XmlReader::integer(std::string_view text) { return putInteger(text, builder_) || fail("an integer is none"); }

TKSValue readXml(std::span<const std::uint8_t> content, XmlReader::Mode mode, Problem& problem, bool& again) {
  // A fragment: text around the outermost element is kept, and found there.
  constexpr unsigned kCommon =
      pugi::parse_cdata | pugi::parse_comments | pugi::parse_pi | pugi::parse_doctype | pugi::parse_fragment;
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

}  // namespace

TKSValue readXml(std::span<const std::uint8_t> content, Problem& problem) {
  TKSValue plain;
  if (readPlainXml({reinterpret_cast<const char*>(content.data()), content.size()}, plain)) return plain;
  return readXmlOfAnyForm(content, problem);
}

TKSValue readXmlOfAnyForm(std::span<const std::uint8_t> content, Problem& problem) {
  bool again = false;
  TKSValue value = readXml(content, XmlReader::Mode::fast, problem, again);
  return again ? readXml(content, XmlReader::Mode::exact, problem, again) : value;
}

}  // namespace tks::formats::property_list
