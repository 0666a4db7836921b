#include "codesign/resources/property_list_events.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "formats/xml_reference.h"
#include "foundation/values/Utf8.h"
#include "platform/platform.h"

namespace tks::codesign {
namespace {

constexpr std::size_t kWindow = std::size_t{64} * 1024;
constexpr std::size_t kDeepestNesting = 512;
constexpr std::size_t kLongestText = std::size_t{1} << 20;
constexpr std::size_t kLargestBinaryList = std::size_t{8} << 20;

bool isBlank(char character) { return character == ' ' || character == '\t' || character == '\n' || character == '\r'; }

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

/// The source as characters; hashes what it reads.
class Characters {
 public:
  Characters(const ByteSource& source, Hasher& hasher) : source_(source), hasher_(hasher) {}

  /// The next character, or nothing at the end.
  std::optional<char> peek() {
    if (at_ == filled_ && !refill()) return std::nullopt;
    return static_cast<char>(window_[at_]);
  }
  std::optional<char> take() {
    const std::optional<char> character = peek();
    if (character) ++at_;
    return character;
  }
  /// Takes everything before the next `end`, which stays. Nothing when it does not come or the text gets too long.
  bool takeUntil(char end, std::string& text) {
    while (peek()) {
      const std::uint8_t* start = window_.data() + at_;
      const auto* found = static_cast<const std::uint8_t*>(std::memchr(start, end, filled_ - at_));
      const std::size_t count = found != nullptr ? static_cast<std::size_t>(found - start) : filled_ - at_;
      text.append(reinterpret_cast<const char*>(start), count);
      at_ += count;
      if (found != nullptr) return true;
      if (text.size() > kLongestText) return false;
    }
    return false;
  }
  void skipBlanks() {
    while (peek() && isBlank(*peek())) ++at_;
  }
  /// Skips to behind `end`.
  bool skipPast(std::string_view end) {
    std::string last;
    while (const std::optional<char> character = take()) {
      last += *character;
      if (last.size() > end.size()) last.erase(0, 1);
      if (last == end) return true;
    }
    return false;
  }
  /// Hashes what was not read.
  void finish() {
    do {
      at_ = filled_;
    } while (refill());
  }

 private:
  bool refill() {
    filled_ = source_.read(offset_, window_);
    at_ = 0;
    offset_ += filled_;
    hasher_.update(Bytes(window_).first(filled_));
    return filled_ > 0;
  }

  const ByteSource& source_;
  Hasher& hasher_;
  std::vector<std::uint8_t> window_ = std::vector<std::uint8_t>(kWindow);
  std::size_t at_ = 0;
  std::size_t filled_ = 0;
  std::uint64_t offset_ = 0;
};

/// What a signature is checked against is read as loosely as its own maker reads it: any character but none.
bool appendReference(std::string& text, std::string_view name) {
  const std::optional<char32_t> character = gnulinux::xmlReference(name);
  if (!character || *character == 0 || *character > 0x10FFFF) return false;
  utf8::append(text, *character);
  return true;
}

/// Replaces references in place of a text by what they stand for. False when one is unknown.
bool resolveReferences(std::string& text) {
  if (text.find('&') == std::string::npos) return true;
  std::string resolved;
  std::string_view rest = text;
  while (!rest.empty()) {
    const std::size_t plain = std::min(rest.find('&'), rest.size());
    resolved.append(rest.substr(0, plain));
    rest.remove_prefix(plain);
    if (rest.empty()) break;
    const std::size_t end = rest.find(';');
    if (end == std::string_view::npos || !appendReference(resolved, rest.substr(1, end - 1))) return false;
    rest.remove_prefix(end + 1);
  }
  text = std::move(resolved);
  return true;
}

/// The bytes behind base64 that may be broken into lines. False when it is none.
bool decodeBase64(std::string_view text, std::vector<std::uint8_t>& bytes) {
  bytes.clear();
  std::uint32_t bits = 0;
  int count = 0;
  bool ended = false;
  for (const char character : text) {
    std::uint32_t value = 0;
    if (character >= 'A' && character <= 'Z') {
      value = static_cast<std::uint32_t>(character - 'A');
    } else if (character >= 'a' && character <= 'z') {
      value = static_cast<std::uint32_t>(character - 'a') + 26;
    } else if (character >= '0' && character <= '9') {
      value = static_cast<std::uint32_t>(character - '0') + 52;
    } else if (character == '+' || character == '/') {
      value = character == '+' ? 62 : 63;
    } else if (character == '=') {
      ended = true;
      continue;
    } else if (isBlank(character)) {
      continue;
    } else {
      return false;
    }
    if (ended) return false;
    bits = bits << 6 | value;
    if (++count == 4) {
      for (int shift = 16; shift >= 0; shift -= 8) bytes.push_back(static_cast<std::uint8_t>(bits >> shift));
      bits = 0;
      count = 0;
    }
  }
  if (count == 1) return false;
  if (count >= 2) bytes.push_back(static_cast<std::uint8_t>(bits >> (count == 2 ? 4 : 10)));
  if (count == 3) bytes.push_back(static_cast<std::uint8_t>(bits >> 2));
  return true;
}

std::optional<double> parseNumber(std::string_view text) {
  text = trimmed(text);
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
  XmlReader(Characters& characters, PropertyListHandler& handler) : in_(characters), handler_(handler) {}

  bool read() {
    while (!done_) {
      in_.skipBlanks();
      if (in_.take() != '<' || !readMarkup()) return false;
    }
    return true;
  }

 private:
  enum class Level : std::uint8_t { list, dictionary, array };

  /// Behind a "<".
  bool readMarkup() {
    const std::optional<char> next = in_.peek();
    if (next == '?') return in_.skipPast("?>");
    if (next == '!') return skipDeclaration();
    name_.clear();
    if (next == '/') {
      in_.take();
      return in_.takeUntil('>', name_) && in_.take() && close(trimmed(name_));
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

  /// The name and the attributes of a start tag, up to behind the ">".
  bool readTag(bool& empty) {
    if (!in_.takeUntil('>', name_)) return false;
    in_.take();
    empty = name_.ends_with('/');
    if (empty) name_.pop_back();
    name_.resize(std::min(name_.find_first_of(" \t\r\n"), name_.size()));
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
    if (levels_.size() == kDeepestNesting) return false;
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
      if (!empty && !(readText("", empty) && trimmed(text_).empty())) return false;
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
      if (!decodeBase64(text_, bytes_)) return false;
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

  /// The character data up to behind the end tag. An empty `kind` takes any end tag.
  bool readText(std::string_view kind, bool empty) {
    text_.clear();
    while (!empty) {
      std::string piece;
      if (!in_.takeUntil('<', piece) || !resolveReferences(piece) || text_.size() + piece.size() > kLongestText) {
        return false;
      }
      text_.append(piece);
      in_.take();
      if (in_.peek() == '/') {
        in_.take();
        name_.clear();
        if (!in_.takeUntil('>', name_)) return false;
        in_.take();
        return kind.empty() || trimmed(name_) == kind;
      }
      if (!readInsertion()) return false;
    }
    return true;
  }

  /// A comment or a section of unescaped characters inside of a text, behind its "<".
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

  Characters& in_;
  PropertyListHandler& handler_;
  std::vector<Level> levels_;
  bool keyComesNext_ = true;
  bool lastWasKey_ = false;
  bool done_ = false;
  std::string name_;
  std::string text_;
  std::vector<std::uint8_t> bytes_;
};

/// Tells a handler a value that is in memory. Nesting stands on a stack.
class Replay {
 public:
  explicit Replay(PropertyListHandler& handler) : handler_(handler) {}

  void tell(const TKSValue& whole) {
    begin(whole);
    while (!open_.empty()) {
      Open& open = open_.back();
      if (open.at == open.values.size()) {
        if (open.isDictionary) {
          handler_.endDictionary();
        } else {
          handler_.endArray();
        }
        open_.pop_back();
        continue;
      }
      const std::size_t at = open.at++;
      if (open.isDictionary) handler_.key(open.keys[at]);
      const TKSValue value = open.values[at];
      begin(value);
    }
  }

 private:
  struct Open {
    bool isDictionary = false;
    std::vector<std::string> keys;
    std::vector<TKSValue> values;
    std::size_t at = 0;
  };

  void begin(const TKSValue& value) {
    switch (value.kind()) {
      case TKSValue::Kind::dictionary: {
        Open open{true, {}, {}, 0};
        const TKSDictionary dictionary = value.dictionary();
        for (const auto& [key, element] : dictionary) {
          open.keys.emplace_back(key);
          open.values.push_back(element);
        }
        handler_.beginDictionary();
        open_.push_back(std::move(open));
        return;
      }
      case TKSValue::Kind::array: {
        const TKSArray array = value.array();
        handler_.beginArray();
        open_.push_back({false, {}, std::vector<TKSValue>(array.begin(), array.end()), 0});
        return;
      }
      case TKSValue::Kind::text:
        return handler_.text(value.text());
      case TKSValue::Kind::data:
        return handler_.data(value.data());
      case TKSValue::Kind::boolean:
        return handler_.boolean(value.boolean());
      case TKSValue::Kind::integer:
      case TKSValue::Kind::real:
        return handler_.number(value.real());
      default:
        return handler_.other();
    }
  }

  PropertyListHandler& handler_;
  std::vector<Open> open_;
};

bool isBinary(const ByteSource& source) {
  constexpr std::string_view kMagic = "bplist";
  std::uint8_t start[kMagic.size()] = {};
  return source.readExactly(0, start) && std::memcmp(start, kMagic.data(), kMagic.size()) == 0;
}

bool readBinary(const ByteSource& source, Hasher& hasher, PropertyListHandler& handler) {
  const std::optional<TKSData> content = source.all(kLargestBinaryList);
  if (!content) {
    Characters(source, hasher).finish();
    return false;
  }
  hasher.update(*content);
  const TKSValue value = platform::propertyLists().parse(*content, nullptr);
  if (value.isNothing()) return false;
  Replay(handler).tell(value);
  return true;
}

}  // namespace

bool readPropertyList(const ByteSource& source, Hasher& hasher, PropertyListHandler& handler) {
  if (isBinary(source)) return readBinary(source, hasher, handler);
  Characters characters(source, hasher);
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (characters.peek() == kByteOrderMark.front()) {
    for (std::size_t i = 0; i < kByteOrderMark.size(); ++i) characters.take();
  }
  const bool good = XmlReader(characters, handler).read();
  characters.finish();
  return good;
}

}  // namespace tks::codesign
