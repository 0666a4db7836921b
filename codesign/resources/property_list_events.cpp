#include "codesign/resources/property_list_events.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "codesign/resources/hashed_characters.h"
#include "codesign/resources/property_list_replay.h"
#include "formats/xml_text.h"
#include "foundation/values/Base64.h"
#include "foundation/values/PropertyListBounds.h"
#include "platform/platform.h"

namespace tks::codesign {
namespace {

constexpr std::size_t kLargestBinaryList = std::size_t{8} << 20;

std::optional<double> parseNumber(std::string_view text) {
  text = formats::withoutXmlBlanks(text);
  if (text.starts_with('+')) text.remove_prefix(1);
  double value = 0;
  const auto [stop, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (failure == std::errc::result_out_of_range) return std::numeric_limits<double>::max();
  if (failure != std::errc() || stop != text.data() + text.size()) return std::nullopt;
  return value;
}

/// Reads the XML form.
class XmlReader {
 public:
  XmlReader(HashedCharacters& characters, PropertyListHandler& handler) : in_(characters), handler_(handler) {}

  bool read() {
    while (!done_) {
      in_.skipBlanks();
      if (in_.take() != '<' || !readMarkup()) return false;
    }
    return true;
  }

 private:
  enum class Level : std::uint8_t { list, dictionary, array };

  /// What follows a "<".
  bool readMarkup() {
    const std::optional<char> next = in_.peek();
    if (next == '?') return in_.skipPast("?>");
    if (next == '!') return skipDeclaration();
    name_.clear();
    if (next == '/') {
      in_.take();
      return in_.takeUntil('>', name_) && in_.take() && close(formats::withoutXmlBlanks(name_));
    }
    bool empty = false;
    return readTag(empty) && open(name_, empty);
  }

  /// A comment, or a document type, which may not declare anything.
  bool skipDeclaration() {
    std::string text;
    in_.take();
    if (in_.peek() != '-') return in_.takeUntil('>', text) && in_.take() && text.find('[') == std::string::npos;
    in_.take();
    return in_.take() == '-' && in_.skipPast("-->");
  }

  /// The name and the attributes of a start tag, up to and including the ">".
  bool readTag(bool& empty) {
    if (!in_.takeUntil('>', name_)) return false;
    in_.take();
    empty = name_.ends_with('/');
    if (empty) name_.pop_back();
    name_.resize(std::min(name_.find_first_of(formats::kXmlBlanks), name_.size()));
    return true;
  }

  bool open(std::string_view name, bool empty) {
    if (name == "plist") {
      if (!levels_.empty() || empty) return false;
      levels_.push_back(Level::list);
      return true;
    }
    if (!isInPlace(name == "key")) return false;
    if (name == "dict") return openLevel(Level::dictionary, empty);
    if (name == "array") return openLevel(Level::array, empty);
    if (!readScalar(name, empty)) return false;
    noteValue();
    return true;
  }

  bool openLevel(Level level, bool empty) {
    if (levels_.size() == property_list::kDeepestNesting) return false;
    keyComesNext_ = true;
    if (level == Level::dictionary) {
      handler_.beginDictionary();
    } else {
      handler_.beginArray();
    }
    levels_.push_back(level);
    return !empty || close(level == Level::dictionary ? "dict" : "array");
  }

  bool close(std::string_view name) {
    if (levels_.empty()) return false;
    const Level level = levels_.back();
    constexpr std::string_view kNames[] = {"plist", "dict", "array"};
    if (name != kNames[static_cast<std::size_t>(level)]) return false;
    levels_.pop_back();
    if (level == Level::list) return false;  // nothing was inside
    if (level == Level::dictionary) {
      if (!keyComesNext_) return false;
      handler_.endDictionary();
    } else {
      handler_.endArray();
    }
    noteValue();
    return true;
  }

  bool isInPlace(bool isKey) const {
    const bool inDictionary = !levels_.empty() && levels_.back() == Level::dictionary;
    return isKey == (inDictionary && keyComesNext_);
  }

  /// A key or a value is complete.
  void noteValue() {
    if (levels_.empty() || levels_.back() == Level::list) {
      done_ = true;  // what follows the one value does not matter
      return;
    }
    // Values inside of a dictionary's value end where that value does; there only keys and values alternate.
    keyComesNext_ = levels_.back() == Level::dictionary && !lastWasKey_;
    lastWasKey_ = false;
  }

  bool readScalar(std::string_view name, bool empty) {
    if (name == "true" || name == "false") {
      const bool value = name == "true";
      text_.clear();
      if (!empty && !(readText("", empty) && formats::withoutXmlBlanks(text_).empty())) return false;
      handler_.boolean(value);
      return true;
    }
    const std::string kind(name);
    if (!readText(kind, empty)) return false;
    if (kind == "key") {
      handler_.key(text_);
      lastWasKey_ = true;
      return true;
    }
    return tellValue(kind);
  }

  bool tellValue(std::string_view kind) {
    if (kind == "string") {
      handler_.text(text_);
    } else if (kind == "data") {
      if (!base64::decodeInto(bytes_, text_, base64::Tolerance::ofPadding)) return false;
      handler_.data(bytes_);
    } else if (kind == "integer" || kind == "real") {
      const std::optional<double> value = parseNumber(text_);
      if (!value) return false;
      handler_.number(*value);
    } else if (kind == "date") {
      handler_.other();
    } else {
      return false;
    }
    return true;
  }

  /// The character data up to the end tag, which is taken too. An empty `kind` takes any end tag.
  bool readText(std::string_view kind, bool empty) {
    text_.clear();
    while (!empty) {
      piece_.clear();
      // What a signature is checked against is read as loosely as its own maker reads it.
      if (!in_.takeUntil('<', piece_) ||
          !formats::appendCharacterData(text_, piece_, formats::References::ofAnything) ||
          text_.size() > kLongestText) {
        return false;
      }
      in_.take();
      if (in_.peek() == '/') {
        in_.take();
        name_.clear();
        if (!in_.takeUntil('>', name_)) return false;
        in_.take();
        return kind.empty() || formats::withoutXmlBlanks(name_) == kind;
      }
      if (!readInsertion()) return false;
    }
    return true;
  }

  /// A comment or a section of unescaped characters inside a text, after its "<".
  bool readInsertion() {
    if (in_.take() != '!') return false;
    if (in_.peek() == '-') return in_.skipPast("-->");
    for (const char expected : std::string_view("[CDATA[")) {
      if (in_.take() != expected) return false;
    }
    while (!text_.ends_with("]]>")) {
      const std::optional<char> character = in_.take();
      if (!character || text_.size() > kLongestText) return false;
      text_ += *character;
    }
    text_.resize(text_.size() - 3);
    return true;
  }

  HashedCharacters& in_;
  PropertyListHandler& handler_;
  std::vector<Level> levels_;
  bool keyComesNext_ = true;
  bool lastWasKey_ = false;
  bool done_ = false;
  std::string name_;
  std::string text_;
  std::string piece_;
  TKSData bytes_;
};

bool isBinary(const ByteSource& source) {
  constexpr std::string_view kMagic = "bplist";
  std::uint8_t start[kMagic.size()] = {};
  return source.readExactly(0, start) && std::memcmp(start, kMagic.data(), kMagic.size()) == 0;
}

bool readBinary(const ByteSource& source, Hasher& hasher, PropertyListHandler& handler) {
  const std::optional<TKSData> content = source.all(kLargestBinaryList);
  if (!content) {
    HashedCharacters(source, hasher).finish();
    return false;
  }
  hasher.update(*content);
  const TKSValue value = platform::propertyLists().parse(*content, nullptr);
  if (value.isNothing()) return false;
  replay(value, handler);
  return true;
}

}  // namespace

bool readPropertyList(const ByteSource& source, Hasher& hasher, PropertyListHandler& handler) {
  if (isBinary(source)) return readBinary(source, hasher, handler);
  HashedCharacters characters(source, hasher);
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (characters.peek() == kByteOrderMark.front()) {
    for (std::size_t i = 0; i < kByteOrderMark.size(); ++i) characters.take();
  }
  const bool good = XmlReader(characters, handler).read();
  characters.finish();
  return good;
}

}  // namespace tks::codesign
