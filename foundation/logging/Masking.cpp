#include "foundation/logging/Masking.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <string_view>

#include "foundation/logging/MarkSearch.h"

namespace tks::masking {
namespace {

constexpr std::size_t kNowhere = std::string_view::npos;
constexpr char kStar = '*';
/// So many bytes of a longer value stay readable.
constexpr std::size_t kKept = 3;

// What the rules begin with, by their groups; further users' folders follow.
enum Group : std::size_t { kProtocols, kUserNames, kUserFolders, kAtSigns, kEscapedAtSigns, kFurtherFolders };
constexpr Mark kProtocol{"http", 2};
constexpr Mark kSecureProtocol{"https", 2};
constexpr Mark kUserName{"username", 3};
constexpr Mark kUserFolder{"/users/", 5};
constexpr Mark kAtSign{"@", 0};
constexpr Mark kEscapedAtSign{"%40", 0};

// What is looked for in texts with a URL.
constexpr Mark kSecrets[] = {{"password", 3}, {"email", 0},    {"ticket", 2},
                             {"token", 1},    {"username", 1}, {"user name", 1}};
constexpr Mark kMeetingPathKeys[] = {
    {"/meet/", 4, Mark::Case::same}, {"/join/", 0, Mark::Case::same}, {"/start/", 5, Mark::Case::same}};

/// Both words for a user have one pair, and one group.
constexpr std::size_t groupOfSecret(std::size_t secret) { return std::min<std::size_t>(secret, 4); }
constexpr std::size_t groupOfMeetingPathKey(std::size_t key) { return 5 + key; }

constexpr PairTables kTables = [] {
  PairTables tables;
  tables.add(kProtocols, kProtocol);
  tables.add(kUserNames, kUserName);
  tables.add(kUserFolders, kUserFolder);
  tables.add(kAtSigns, kAtSign);
  tables.add(kEscapedAtSigns, kEscapedAtSign);
  return tables;
}();

constexpr PairTables kProtocolTables = [] {
  PairTables tables;
  tables.add(kProtocols, kProtocol);
  return tables;
}();

constexpr PairTables kURLTables = [] {
  PairTables tables;
  for (std::size_t i = 0; i < std::size(kSecrets); ++i) tables.add(groupOfSecret(i), kSecrets[i]);
  for (std::size_t i = 0; i < std::size(kMeetingPathKeys); ++i) {
    tables.add(groupOfMeetingPathKey(i), kMeetingPathKeys[i]);
  }
  return tables;
}();

/// The last two bytes of a folder, a letter as a rule and a slash, are rarer than its first two.
Mark furtherFolder(std::string_view folder) { return {folder, folder.size() - 2}; }

/// So many further folders are looked for together with everything else.
constexpr std::size_t kFurtherFoldersWithGroup = PairTables::kMostGroups - kFurtherFolders;

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

bool namesSecret(PairScan& scan) {
  for (std::size_t i = 0; i < std::size(kSecrets); ++i) {
    if (scan.find(groupOfSecret(i), kSecrets[i]) != kNowhere) return true;
  }
  return false;
}

/// Cuts a long text off at the query of a URL where its beginning shows that this is to be done, so that the rest needs
/// no look. Whether it was.
bool cutByItsBeginning(std::string& text) {
  constexpr std::size_t kBeginning = 512;
  if (text.size() <= 2 * kBeginning) return false;
  PairScan scan(text, kProtocolTables, kBeginning);
  const std::size_t protocol = scan.find(kProtocols, kProtocol);
  // Of another protocol, a later one of the secure kind would count.
  const std::size_t secureProtocol = protocol == kNowhere ? kNowhere : scan.find(kProtocols, kSecureProtocol, protocol);
  if (secureProtocol == kNowhere) return false;
  PairScan scanOfURL(text, kURLTables, kBeginning);
  if (!namesSecret(scanOfURL)) return false;
  const std::size_t query = findQuery(text, secureProtocol);
  if (query != kNowhere) text.resize(query);
  return query != kNowhere;
}

/// A URL loses its query when a secret is named anywhere in the text, and its meeting room's name is masked. A text
/// that was cut at a "?" has no query more, even where a "," is left in it.
void maskURL(std::string& text, Unit unit, PairScan& scan, bool wasCut) {
  const std::size_t protocol = scan.find(kProtocols, kProtocol);
  if (protocol == kNowhere) return;
  PairScan scanOfURL(text, kURLTables);
  if (!wasCut) {
    const std::size_t secureProtocol = scan.find(kProtocols, kSecureProtocol, protocol);
    const std::size_t query = findQuery(text, secureProtocol != kNowhere ? secureProtocol : protocol);
    if (query != kNowhere && namesSecret(scanOfURL)) text.resize(query);
  }
  for (std::size_t i = 0; i < std::size(kMeetingPathKeys); ++i) {
    const Mark& key = kMeetingPathKeys[i];
    const std::size_t at = scanOfURL.find(groupOfMeetingPathKey(i), key);
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
void maskUserName(std::string& text, Unit unit, PairScan& scan) {
  const std::size_t key = scan.find(kUserNames, kUserName);
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

/// From so many marks in a block on it is quicker to go through the block as a whole.
constexpr std::size_t kMany = 4;

constexpr bool areMany(std::uint64_t places) {
  for (std::size_t i = 1; i < kMany; ++i) places &= places - 1;
  return places != 0;
}

/// Masks the letters and digits before the marks of mail addresses.
class LocalParts {
 public:
  LocalParts(std::string& text, Unit unit) : text_(text), unit_(unit) {}

  /// Those before each mark that stands after the marks of earlier calls.
  void maskBefore(PairScan& scan, std::size_t group, const Mark& mark) {
    scan.forEachBlock(group, [&](std::size_t block, std::uint64_t places) {
      const std::size_t skipped = position_ > block ? position_ - block : 0;
      if (skipped >= kBlock) return block + kBlock;
      places = places >> skipped << skipped;
      return areMany(places) && fits(block, mark) ? maskRow(block, mark) : maskOneByOne(block, places, mark);
    });
  }

 private:
  static constexpr std::size_t kBlock = PairPlaces::kBlock;

  /// Whether a block can be gone through as a whole.
  bool fits(std::size_t block, const Mark& mark) const {
    return starBefore_ != nullptr && block + kBlock + mark.size() <= text_.size();
  }

  std::size_t maskOneByOne(std::size_t block, std::uint64_t places, const Mark& mark) {
    for (; places != 0; places &= places - 1) {
      const std::size_t at = block + static_cast<std::size_t>(std::countr_zero(places));
      if (at < position_ || !mark.standsAt(at, text_)) continue;
      maskAt(at);
      position_ = at + 2;
    }
    return block + kBlock;
  }

  /// From a block on as long as there are marks, without looking for them before. Returns where the next block begins.
  std::size_t maskRow(std::size_t block, const Mark& mark) {
    std::size_t skipped = position_ > block ? position_ - block : 0;
    while (fits(block, mark)) {
      const StarredBlock starred = starBefore_(text_.data() + block, skipped, mark.word(), block == 0);
      if (starred.left != kBlock) maskAt(block + starred.left);
      if (starred.last == 0) break;
      position_ = block + starred.last + 1;
      block += kBlock;
      skipped = position_ > block ? position_ - block : 0;
    }
    return block;
  }

  // No character is cut in two here: none but the text's very first byte may be part of one.
  void maskAt(std::size_t at) { maskRange(text_, beginOfLocalPart(text_, at), at, unit_); }

  std::string& text_;
  const Unit unit_;
  decltype(PairFinder::starBefore) starBefore_ = pairFinder().starBefore;
  /// Two bytes after the last mark.
  std::size_t position_ = 0;
};

/// Masks the letters and digits before each "@"; after the last "@" also those before each "%40". Looking for the next
/// "@" again after each "%40" would read the rest of the text over and over.
///
/// An "@" right after another one has no letters before it. One of the two is left out.
void maskMailAddresses(std::string& text, Unit unit, PairScan& scan) {
  LocalParts parts(text, unit);
  parts.maskBefore(scan, kAtSigns, kAtSign);
  parts.maskBefore(scan, kEscapedAtSigns, kEscapedAtSign);
}

/// Stars the whole folder name after each users' folder. A name that nothing closes stays, except after a double slash.
void maskUserFolders(std::string& text, PairScan& scan, std::size_t group, const Mark& folder) {
  std::size_t key = scan.find(group, folder);
  while (key != kNowhere) {
    std::size_t start = key + folder.size();
    std::size_t end = findNear(text, '/', start);
    if (end == kNowhere) return;
    if (end == start) end = std::min(findNear(text, '/', ++start), text.size());
    star(text, start, end);
    // The next key begins with a slash, and there is none before `end`.
    key = scan.find(group, folder, end);
  }
}

void applyRules(std::string& text, Unit unit, const PairTables& tables, std::span<const std::string> furtherFolders) {
  const bool wasCut = cutByItsBeginning(text);
  PairScan scan(text, tables);
  if (scan.foundNothing()) return;
  maskURL(text, unit, scan, wasCut);
  maskUserName(text, unit, scan);
  maskMailAddresses(text, unit, scan);
  maskUserFolders(text, scan, kUserFolders, kUserFolder);
  for (std::size_t i = 0; i < furtherFolders.size(); ++i) {
    maskUserFolders(text, scan, kFurtherFolders + i, furtherFolder(furtherFolders[i]));
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
  if (usersFolders.empty()) return applyRules(text, unit, kTables, {});
  const auto together = usersFolders.first(std::min(usersFolders.size(), kFurtherFoldersWithGroup));
  PairTables tables = kTables;
  for (std::size_t i = 0; i < together.size(); ++i) tables.add(kFurtherFolders + i, furtherFolder(together[i]));
  applyRules(text, unit, tables, together);
  for (const std::string& folder : usersFolders.subspan(together.size())) {
    PairTables own;
    own.add(0, furtherFolder(folder));
    PairScan scan(text, own);
    maskUserFolders(text, scan, 0, furtherFolder(folder));
  }
}

}  // namespace tks::masking
