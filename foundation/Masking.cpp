#include "foundation/Masking.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace tks::masking {
namespace {

constexpr std::size_t kNowhere = std::string_view::npos;
constexpr char kStar = '*';
/// So many bytes of a longer value stay readable.
constexpr std::size_t kKept = 3;

/// A word that is looked for in any case (ASCII letters only), without making a lower-case copy of the text. The search
/// goes by three neighbouring bytes of the word, chosen to be rare in our log lines.
class Word {
 public:
  static constexpr std::size_t kAnchorLength = 3;

  consteval Word(std::string_view lowerCase, std::size_t anchor) : text_(lowerCase), anchor_(anchor) {
    for (std::size_t i = 0; i < kAnchorLength; ++i) {
      anchorByte_[i] = static_cast<unsigned char>(lowerCase[anchor + i]);
      caseBit_[i] = isLetter(lowerCase[anchor + i]) ? kCaseBit : 0;
    }
  }

  constexpr std::size_t size() const { return text_.size(); }

  /// The first occurrence at or after `from`.
  std::size_t findIn(std::string_view text, std::size_t from = 0) const {
    if (text.size() < size()) return kNowhere;
    const std::size_t end = text.size() - size() + 1;
    std::size_t at = from;
    // Neighbouring occurrences are found without starting up the wide search.
    for (const std::size_t near = std::min(end, at + kNear); at < near; ++at) {
      if (standsAt(text, at)) return at;
    }
    for (; at + kBlock <= end; at += kBlock) {
      if (!blockHasAnchor(text.data() + at + anchor_)) continue;
      for (std::size_t i = at; i < at + kBlock; ++i) {
        if (standsAt(text, i)) return i;
      }
    }
    for (; at < end; ++at) {
      if (standsAt(text, at)) return at;
    }
    return kNowhere;
  }

 private:
  static constexpr unsigned char kCaseBit = 0x20;
  static constexpr std::size_t kNear = 8;
  static constexpr std::size_t kBlock = 128;

  static constexpr bool isLetter(char byte) { return byte >= 'a' && byte <= 'z'; }

  /// Setting the case bit makes a byte equal to a small letter only if it is that letter, small or capital.
  unsigned anchorAt(const unsigned char* bytes) const {
    return static_cast<unsigned>((bytes[0] | caseBit_[0]) == anchorByte_[0]) &
           static_cast<unsigned>((bytes[1] | caseBit_[1]) == anchorByte_[1]) &
           static_cast<unsigned>((bytes[2] | caseBit_[2]) == anchorByte_[2]);
  }

  /// Branch-free, so that the compiler turns it into vector instructions.
  bool blockHasAnchor(const char* position) const {
    const auto* bytes = reinterpret_cast<const unsigned char*>(position);
    unsigned char found = 0;
    for (std::size_t i = 0; i < kBlock; ++i) found = static_cast<unsigned char>(found | anchorAt(bytes + i));
    return found != 0;
  }

  bool standsAt(std::string_view text, std::size_t at) const {
    if (anchorAt(reinterpret_cast<const unsigned char*>(text.data()) + at + anchor_) == 0) return false;
    for (std::size_t i = 0; i < size(); ++i) {
      const char letter = text_[i];
      const char byte = text[at + i];
      if (byte != letter && !(isLetter(letter) && (byte | kCaseBit) == letter)) return false;
    }
    return true;
  }

  std::string_view text_;
  std::size_t anchor_;
  std::array<unsigned char, kAnchorLength> anchorByte_{};
  std::array<unsigned char, kAnchorLength> caseBit_{};
};

constexpr Word kSecureProtocol("https", 2);
constexpr Word kProtocol("http", 1);
constexpr Word kUserName("username", 3);
constexpr Word kUserFolder("/users/", 4);
constexpr Word kSensitiveKeys[] = {
    {"password", 2}, {"email", 0}, kUserName, {"ticket", 2}, {"user name", 2}, {"token", 1},
};
constexpr std::string_view kMeetingPathKeys[] = {"/meet/", "/join/", "/start/"};

constexpr bool isContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

constexpr bool isLetterOrDigit(char byte) {
  return (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
}

/// How many bytes the UTF-8 character that begins with this byte has; 0 for a byte that begins none.
constexpr std::size_t characterLength(char firstByte) {
  const auto byte = static_cast<unsigned char>(firstByte);
  if (byte < 0x80) return 1;
  if (byte >= 0xF0) return byte < 0xF8 ? 4 : 0;
  if (byte >= 0xE0) return 3;
  return byte >= 0xC0 ? 2 : 0;
}

/// Where the character begins that a cut at `position` would split; `position` itself when it splits none.
std::size_t beginOfSplitCharacter(std::string_view text, std::size_t position) {
  std::size_t begin = position;
  while (begin > 0 && position - begin < 3 && isContinuation(text[begin])) --begin;
  return begin + characterLength(text[begin]) > position ? begin : position;
}

bool hasSensitiveKey(std::string_view text) {
  return std::any_of(std::begin(kSensitiveKeys), std::end(kSensitiveKeys),
                     [text](const Word& key) { return key.findIn(text) != kNowhere; });
}

/// "?" wherever it stands, else ",".
std::size_t findQuery(std::string_view text, std::size_t from) {
  const std::size_t question = text.find('?', from);
  return question != kNowhere ? question : text.find(',', from);
}

/// A URL loses its query when a secret is named anywhere in the text, and its meeting room's name is masked.
void maskURL(std::string& text, Unit unit) {
  const std::size_t protocol = kProtocol.findIn(text);
  if (protocol == kNowhere) return;
  const std::size_t secureProtocol = kSecureProtocol.findIn(text, protocol);
  const std::size_t query = findQuery(text, secureProtocol != kNowhere ? secureProtocol : protocol);
  if (query != kNowhere && hasSensitiveKey(text)) text.resize(query);
  for (const std::string_view key : kMeetingPathKeys) {
    const std::size_t at = text.find(key);
    if (at != kNowhere) maskRange(text, at + key.size(), kNowhere, unit);
  }
}

/// The first marker of this order that is found decides, even if another one stands earlier.
std::size_t findEndOfUserName(std::string_view text, std::size_t from) {
  for (const char marker : {'&', ',', ' '}) {
    const std::size_t at = text.find(marker, from);
    if (at != kNowhere) return at;
  }
  return kNowhere;
}

/// Masks the value of the first "username"; exactly one separator stands between them.
void maskUserName(std::string& text, Unit unit) {
  const std::size_t key = kUserName.findIn(text);
  if (key == kNowhere) return;
  const std::size_t start = key + kUserName.size() + 1;
  maskRange(text, start, findEndOfUserName(text, start), unit);
}

/// The byte at position 0 is not looked at: a local part that reaches it begins there, whatever it is.
std::size_t beginOfLocalPart(std::string_view text, std::size_t at) {
  if (at == 0) return 0;
  std::size_t begin = at - 1;
  while (begin > 0 && isLetterOrDigit(text[begin])) --begin;
  return begin == 0 ? 0 : begin + 1;
}

/// Masks the letters and digits before each "@"; behind the last "@" also those before each "%40".
void maskMailAddresses(std::string& text, Unit unit) {
  std::string_view marker = "@";
  for (std::size_t position = 0; position < text.size();) {
    std::size_t at = text.find(marker, position);
    if (at == kNowhere && marker == "@") {
      // There is no "@" any more: looking for it again each time would read the rest of the text over and over.
      marker = "%40";
      at = text.find(marker, position);
    }
    if (at == kNowhere) return;
    maskRange(text, beginOfLocalPart(text, at), at, unit);
    position = at + 2;
  }
}

/// Stars the whole folder name behind each "/users/". A name that nothing closes stays, except behind a double slash.
void maskUserFolders(std::string& text) {
  for (std::size_t key = kUserFolder.findIn(text); key != kNowhere;) {
    std::size_t start = key + kUserFolder.size();
    std::size_t end = text.find('/', start);
    if (end == start) {
      ++start;
      end = std::min(text.find('/', start), text.size());
    }
    // No masked byte is part of a later key: all of them stand before the slash that the next key can begin with.
    if (end != kNowhere)
      std::fill(text.begin() + static_cast<std::ptrdiff_t>(start), text.begin() + static_cast<std::ptrdiff_t>(end),
                kStar);
    key = kUserFolder.findIn(text, start);
  }
}

}  // namespace

void maskRange(std::string& text, std::size_t start, std::size_t end, Unit unit) {
  end = std::min(end, text.size());
  if (end <= start) return;
  std::size_t from = end - start > kKept ? start + kKept : start;
  if (unit == Unit::characters) from = beginOfSplitCharacter(text, from);
  std::fill(text.begin() + static_cast<std::ptrdiff_t>(from), text.begin() + static_cast<std::ptrdiff_t>(end), kStar);
}

void removePersonalData(std::string& text, Unit unit) {
  maskURL(text, unit);
  maskUserName(text, unit);
  maskMailAddresses(text, unit);
  maskUserFolders(text);
}

}  // namespace tks::masking
