#include "foundation/logging/Masking.h"

#include <algorithm>
#include <string_view>

#include "foundation/logging/WordSearch.h"

namespace tks::masking {
namespace {

constexpr std::size_t kNowhere = std::string_view::npos;
constexpr char kStar = '*';
/// So many bytes of a longer value stay readable.
constexpr std::size_t kKept = 3;

constexpr Word kSecureProtocol{"https", 2};
constexpr Word kProtocol{"http", 1};
constexpr Word kUserName{"username", 0};
constexpr Word kUserFolder{"/users/", 1};
constexpr Word kPassword{"password", 2};
constexpr Word kEmail{"email", 1};
constexpr Word kTicket{"ticket", 2};
constexpr Word kUserNameInTwoWords{"user name", 0};
constexpr Word kToken{"token", 1};
using SensitiveKeys = WordSearch<kPassword, kEmail, kUserName, kTicket, kUserNameInTwoWords, kToken>;
/// What any rule but that for e-mail addresses begins with.
using Marks = WordSearch<kProtocol, kUserName, kUserFolder>;

constexpr std::string_view kMeetingPathKeys[] = {"/meet/", "/join/", "/start/"};

void star(std::string& text, std::size_t from, std::size_t end) {
  char* bytes = text.data() + from;
  switch (end - from) {
    case 3:
      bytes[2] = kStar;
      [[fallthrough]];
    case 2:
      bytes[1] = kStar;
      [[fallthrough]];
    case 1:
      bytes[0] = kStar;
      [[fallthrough]];
    case 0:
      return;
    default:
      std::fill(bytes, bytes + (end - from), kStar);
  }
}

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

/// As text.find(byte, from), but quicker when the byte is near.
std::size_t findNear(std::string_view text, char byte, std::size_t from) {
  constexpr std::size_t kNear = 8;
  const std::size_t near = std::min(text.size(), from + kNear);
  for (; from < near; ++from) {
    if (text[from] == byte) return from;
  }
  return text.find(byte, from);
}

/// "?" wherever it stands, else ",".
std::size_t findQuery(std::string_view text, std::size_t from) {
  const std::size_t question = text.find('?', from);
  return question != kNowhere ? question : text.find(',', from);
}

/// A URL loses its query when a secret is named anywhere in the text, and its meeting room's name is masked.
void maskURL(std::string& text, Unit unit) {
  const std::size_t protocol = WordSearch<kProtocol>::find(text);
  if (protocol == kNowhere) return;
  const std::size_t secureProtocol = WordSearch<kSecureProtocol>::find(text, protocol);
  const std::size_t query = findQuery(text, secureProtocol != kNowhere ? secureProtocol : protocol);
  if (query != kNowhere && SensitiveKeys::findsAny(text)) text.resize(query);
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
  const std::size_t key = WordSearch<kUserName>::find(text);
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

std::size_t findEscapedAt(std::string_view text, std::size_t from) {
  std::size_t at = findNear(text, '%', from);
  while (at != kNowhere && text.substr(at, 3) != "%40") at = findNear(text, '%', at + 1);
  return at;
}

/// Masks the letters and digits before each "@"; behind the last "@" also those before each "%40". Looking for the next
/// "@" again after each "%40" would read the rest of the text over and over.
void maskMailAddresses(std::string& text, Unit unit) {
  std::size_t position = 0;
  for (std::size_t at = findNear(text, '@', position); at != kNowhere; at = findNear(text, '@', position)) {
    maskRange(text, beginOfLocalPart(text, at), at, unit);
    position = at + 2;
  }
  for (std::size_t at = findEscapedAt(text, position); at != kNowhere; at = findEscapedAt(text, position)) {
    maskRange(text, beginOfLocalPart(text, at), at, unit);
    position = at + 2;
  }
}

/// Stars the whole folder name after each place where `find` finds a users' folder of that many bytes. A name that
/// nothing closes stays, except after a double slash.
template <class Find>
void maskUserFolders(std::string& text, std::size_t size, Find find) {
  std::size_t key = find(0);
  while (key != kNowhere) {
    std::size_t start = key + size;
    std::size_t end = findNear(text, '/', start);
    if (end == kNowhere) return;
    if (end == start) end = std::min(findNear(text, '/', ++start), text.size());
    star(text, start, end);
    // The next key begins with a slash, and there is none before `end`.
    key = find(end);
  }
}

}  // namespace

void maskRange(std::string& text, std::size_t start, std::size_t end, Unit unit) {
  end = std::min(end, text.size());
  if (end <= start) return;
  std::size_t from = end - start > kKept ? start + kKept : start;
  if (unit == Unit::characters) from = beginOfSplitCharacter(text, from);
  star(text, from, end);
}

void removePersonalData(std::string& text, Unit unit, std::span<const std::string> usersFolders) {
  // As a rule there is one more folder at most, and no mark at all: one look at the text then.
  const bool hasMarks =
      usersFolders.empty() ? Marks::findsAny(text) : Marks::findsAny(text, TextSearch(usersFolders.front()));
  if (hasMarks) maskURL(text, unit);
  if (hasMarks) maskUserName(text, unit);
  maskMailAddresses(text, unit);
  if (hasMarks) {
    maskUserFolders(text, kUserFolder.size(),
                    [&text](std::size_t from) { return WordSearch<kUserFolder>::find(text, from); });
  }
  for (const std::string& folder : usersFolders) {
    if (!hasMarks && &folder == &usersFolders.front()) continue;
    maskUserFolders(text, folder.size(),
                    [&text, search = TextSearch(folder)](std::size_t from) { return search.find(text, from); });
  }
}

}  // namespace tks::masking
