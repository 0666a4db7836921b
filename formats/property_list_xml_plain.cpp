#include "formats/property_list_xml_plain.h"

#include <simdjson.h>

#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "formats/property_list_bounds.h"
#include "formats/property_list_xml_head.h"
#include "formats/property_list_xml_scalars.h"
#include "formats/xml_text.h"
#include "foundation/values/Base64.h"
#include "foundation/values/Sixteen.h"
#include "foundation/values/ValueBuilder.h"

namespace tks::formats::property_list {
namespace {

/// What ends a text, begins a reference, or is zero.
bool isMark(char c) noexcept { return c == '<' || c == '&' || c == '\0'; }
std::size_t firstMark(Sixteen bytes) noexcept {
  return firstMarked(marksOf((bytes == '<') | (bytes == '&') | (bytes == 0)));
}

class PlainReader {
 public:
  explicit PlainReader(std::string_view list)
      : next_(list.data()),
        end_(list.data() + list.size()),
        stackSize_(list.size() / kBytesOfAValue + kLeast),
        stack_(std::make_unique_for_overwrite<Slot[]>(stackSize_)),
        builder_(stack_.get(), list.size() + list.size() / 2) {}

  [[gnu::flatten]] bool read(TKSValue& value) {
    if (!readHead() || !readValue()) return false;
    while (depth_ > 0) {
      if (!readOn()) return false;
    }
    skipBlanks();
    if (!take(kXmlClosing)) return false;
    skipBlanks();
    if (next_ != end_) return false;
    value = builder_.take();
    return true;
  }

 private:
  using Slot = value::StackBuilder::Slot;

  /// Of the text, on the average. When there are more values the stack grows.
  static constexpr std::size_t kBytesOfAValue = 32;
  static constexpr std::size_t kLeast = 16;

  /// An open array or dictionary, and how many values stood on the stack before its own.
  struct Level {
    std::size_t first;
    bool isDictionary;
  };

  void skipBlanks() noexcept {
    while (next_ != end_ && isXmlBlank(*next_)) ++next_;
  }

  bool take(std::string_view word) noexcept {
    if (static_cast<std::size_t>(end_ - next_) < word.size() || std::memcmp(next_, word.data(), word.size()) != 0) {
      return false;
    }
    next_ += word.size();
    return true;
  }

  bool readHead() noexcept {
    if (take(kXmlDeclaration)) skipBlanks();
    if (take(kXmlDoctype)) skipBlanks();
    if (!take(kXmlOpening)) return false;
    skipBlanks();
    return true;
  }

  /// The next element or member of the innermost list, or its end.
  bool readOn() {
    skipBlanks();
    const Level level = levels_[depth_ - 1];
    makeRoom();
    if (!level.isDictionary) return take("</array>") ? close(level) : readValue();
    if (take("</dict>")) return close(level);
    if (!take("<key>") || !readText("</key>")) return false;
    skipBlanks();
    return readValue();
  }

  /// For a key and its value.
  void makeRoom() {
    if (builder_.size() + 2 <= stackSize_) return;
    auto larger = std::make_unique_for_overwrite<Slot[]>(2 * stackSize_);
    builder_.moveTo(larger.get());
    stack_ = std::move(larger);
    stackSize_ *= 2;
  }

  bool open(bool isDictionary) {
    if (depth_ == kDeepestNesting) return false;
    levels_[depth_++] = {builder_.size(), isDictionary};
    return true;
  }

  bool close(const Level& level) {
    const value::StackBuilder::Mark first = builder_.markOf(level.first);
    level.isDictionary ? builder_.endDictionary(first) : builder_.endArray(first);
    --depth_;
    return true;
  }

  bool readValue() {
    constexpr std::ptrdiff_t kLetter = 1;
    if (end_ - next_ <= kLetter) return false;
    switch (next_[kLetter]) {
      case 's':
        if (take("<string>")) return readText("</string>");
        return take("<string/>") && place("");
      case 'i':
        return take("<integer>") && readInteger();
      case 'd':
        if (take("<dict>")) return open(true);
        if (take("<dict/>")) return open(true) && close(levels_[depth_ - 1]);
        return take("<date>") ? readDate() : take("<data>") && readData();
      case 'a':
        if (take("<array>")) return open(false);
        return take("<array/>") && open(false) && close(levels_[depth_ - 1]);
      case 't':
        return take("<true/>") && place(true);
      case 'f':
        return take("<false/>") && place(false);
      case 'r':
        return take("<real>") && readReal();
      default:
        return false;
    }
  }

  bool place(bool value) {
    builder_.boolean(value);
    return true;
  }
  bool place(const char* text) {
    builder_.text(text, false);
    return true;
  }

  /// The characters up to the next tag, past which it moves; whether there are references among them.
  std::optional<std::string_view> takeCharacters(bool& hasReferences) noexcept {
    const char* const begin = next_;
    hasReferences = false;
    for (;;) {
      while (end_ - next_ >= std::ptrdiff_t{sizeof(Sixteen)}) {
        const std::size_t plain = firstMark(sixteenAt(next_));
        next_ += plain;
        if (plain != sizeof(Sixteen)) break;
      }
      while (next_ != end_ && !isMark(*next_)) ++next_;
      if (next_ == end_ || *next_ == '\0') return std::nullopt;
      if (*next_ == '<') return std::string_view(begin, static_cast<std::size_t>(next_ - begin));
      hasReferences = true;
      ++next_;
    }
  }

  bool readText(std::string_view closing) {
    bool hasReferences = false;
    const std::optional<std::string_view> text = takeCharacters(hasReferences);
    if (!text || !take(closing)) return false;
    if (hasReferences) {
      buffer_.clear();
      if (!appendCharacterData(buffer_, *text)) return false;
      builder_.text(buffer_, false);
      return true;
    }
    const bool isReadable = static_cast<std::size_t>(end_ - text->data()) >= text->size() + value::kBytesBehind;
    if (isReadable && value::Access::fits(text->size())) {
      builder_.shortText(sixteenAt(text->data()), text->size());
    } else {
      builder_.text(*text, isReadable);
    }
    return true;
  }

  /// The characters of an element that holds no text, without the blanks around them.
  std::optional<std::string_view> takeScalar(std::string_view closing) noexcept {
    bool hasReferences = false;
    const std::optional<std::string_view> text = takeCharacters(hasReferences);
    if (!text || hasReferences || !take(closing)) return std::nullopt;
    return text;
  }

  bool readInteger() {
    const std::optional<std::string_view> text = takeScalar("</integer>");
    return text && putInteger(withoutXmlBlanks(*text), builder_);
  }

  bool readReal() {
    const std::optional<std::string_view> text = takeScalar("</real>");
    const std::optional<double> value = text ? parseReal(withoutXmlBlanks(*text)) : std::nullopt;
    if (value) builder_.real(*value);
    return value.has_value();
  }

  bool readDate() {
    const std::optional<std::string_view> text = takeScalar("</date>");
    const std::optional<TKSDate> value = text ? parseDate(withoutXmlBlanks(*text)) : std::nullopt;
    if (value) builder_.date(*value);
    return value.has_value();
  }

  bool readData() {
    const std::optional<std::string_view> text = takeScalar("</data>");
    const std::optional<TKSData> value = text ? base64::decode(*text) : std::nullopt;
    if (value) builder_.data(*value);
    return value.has_value();
  }

  const char* next_;
  const char* const end_;
  std::size_t stackSize_;
  std::unique_ptr<Slot[]> stack_;
  value::StackBuilder builder_;
  std::size_t depth_ = 0;
  Level levels_[kDeepestNesting];
  std::string buffer_;
};

}  // namespace

bool readPlainXml(std::string_view list, TKSValue& value) {
  return simdjson::validate_utf8(list.data(), list.size()) && PlainReader(list).read(value);
}

}  // namespace tks::formats::property_list
