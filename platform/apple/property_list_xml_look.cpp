#include "platform/apple/property_list_xml_look.h"

#include <string_view>
#include <vector>

#include "formats/property_list_xml_scalars.h"
#include "formats/xml_text.h"

namespace tks::platform::apple {
namespace {

using Look = PropertyListLook;

/// The characters of a text in XML. Those that matter are ASCII: in wider encodings the NUL bytes between them count
/// for nothing, and so does the mark of the byte order.
class Characters {
 public:
  explicit Characters(std::span<const std::uint8_t> content) {
    text_.reserve(content.size());
    for (const std::uint8_t byte : content) {
      if (byte != 0) text_.push_back(static_cast<char>(byte));
    }
    isWide_ = text_.size() != content.size();
  }

  /// Whether bytes may be parts of characters beyond ASCII that look like some of it.
  bool isWide() const { return isWide_; }
  std::string_view rest() const { return std::string_view(text_.data(), text_.size()).substr(at_); }
  /// What stands before the next `mark`, and goes past it; to the end when there is none.
  std::string_view takeUpTo(std::string_view mark) {
    const std::string_view before = rest().substr(0, rest().find(mark));
    at_ = before.size() == rest().size() ? text_.size() : at_ + before.size() + mark.size();
    return before;
  }

 private:
  std::vector<char> text_;
  std::size_t at_ = 0;
  bool isWide_ = false;
};

/// Whether a text has a reference to what XML has no character for. One without an end is the reader's to find.
bool refersToNoCharacter(std::string_view text) {
  for (std::size_t at = text.find("&#"); at != std::string_view::npos; at = text.find("&#", at + 1)) {
    const std::size_t end = text.find(';', at);
    if (end != std::string_view::npos && !formats::xmlReference(text.substr(at + 1, end - at - 1))) return true;
  }
  return false;
}

/// Whether a text has the form of a date, but names none. What has another form is the reader's to find.
bool isImpossibleDate(std::string_view text) {
  return text.size() == std::string_view("2000-02-29T12:34:56Z").size() && !formats::property_list::parseDate(text);
}

/// A walk over the elements of a list.
class Walk {
 public:
  explicit Walk(std::span<const std::uint8_t> content) : characters_(content) {}

  Look look() {
    if (!beginsLikeXml()) return Look::noPropertyList;
    characters_.takeUpTo("<");
    while (!characters_.rest().empty()) {
      const bool isElement = !skipMarkup();
      const std::string_view piece = characters_.takeUpTo("<");
      const Look found = isElement ? lookAtElement(piece) : lookAtText(piece);
      if (found != Look::sound) return found;
    }
    return Look::sound;
  }

 private:
  bool beginsLikeXml() const {
    const std::size_t first = characters_.rest().find_first_not_of(" \t\r\n\xEF\xBB\xBF\xFE\xFF");
    return first != std::string_view::npos && characters_.rest()[first] == '<';
  }

  /// Goes over a comment, character data or an instruction.
  bool skipMarkup() {
    struct Markup {
      std::string_view begin;
      std::string_view end;
    };
    for (const Markup& markup : {Markup{"!--", "-->"}, Markup{"![CDATA[", "]]>"}, Markup{"?", "?>"}}) {
      if (!characters_.rest().starts_with(markup.begin)) continue;
      characters_.takeUpTo(markup.end);
      return true;
    }
    return false;
  }

  /// An element's begin or end, with the text after it.
  Look lookAtElement(std::string_view element) {
    if (element.starts_with('/')) {
      const bool isContainer = element.starts_with("/array") || element.starts_with("/dict");
      if (isContainer && !areDictionaries_.empty()) areDictionaries_.pop_back();
    } else if (element.starts_with("array") || element.starts_with("dict")) {
      const std::size_t end = element.find('>');
      const bool isEmpty = end != std::string_view::npos && element[end - 1] == '/';
      if (!isEmpty) areDictionaries_.push_back(element.starts_with("dict"));
      if (areDictionaries_.size() > kDeepestNesting) return Look::beyondBounds;
    } else if (element.starts_with("key") && (areDictionaries_.empty() || !areDictionaries_.back())) {
      return Look::noPropertyList;
    } else if (element.starts_with("date") && isImpossibleDate(element.substr(element.find('>') + 1))) {
      return Look::noPropertyList;
    }
    return lookAtText(element);
  }

  Look lookAtText(std::string_view text) const {
    return !characters_.isWide() && refersToNoCharacter(text) ? Look::noPropertyList : Look::sound;
  }

  Characters characters_;
  /// Of the containers around the place of the walk, outermost first.
  std::vector<bool> areDictionaries_;
};

}  // namespace

PropertyListLook lookAtXml(std::span<const std::uint8_t> content) { return Walk(content).look(); }

}  // namespace tks::platform::apple
