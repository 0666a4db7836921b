#include "tools/tksctl/bundle/name_forms.h"

#include <algorithm>
#include <charconv>

namespace tks::ctl {
namespace {

constexpr auto kNowhere = std::string_view::npos;
/// Of a computer, and of the person in a mail address.
constexpr std::size_t kLongestName = 255;

constexpr bool isDigit(char byte) { return byte >= '0' && byte <= '9'; }
constexpr bool isLetter(char byte) { return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z'); }
constexpr bool isBeyondAscii(char byte) { return (static_cast<unsigned char>(byte) & 0x80) != 0; }
constexpr bool isWordByte(char byte) { return isDigit(byte) || isLetter(byte) || isBeyondAscii(byte); }
constexpr bool isHexDigit(char byte) {
  return isDigit(byte) || (byte >= 'a' && byte <= 'f') || (byte >= 'A' && byte <= 'F');
}
constexpr bool isOneOf(char byte, std::string_view set) { return set.find(byte) != kNowhere; }

bool endsURL(char byte) { return static_cast<unsigned char>(byte) <= ' ' || isOneOf(byte, "\"'<>()[]{}|\\^`;,"); }

/// Top-level domains, and what networks of offices and homes use in their place. Those that are also extensions of
/// files (so, sh, py, ...) count only after two further labels.
constexpr std::string_view kTopLevels =
    " com net org edu gov mil int info biz name io dev cloud online site xyz eu example test invalid local lan home "
    "internal intranet corp localdomain arpa onion "
    "ac ad ae af ag ai al am ao aq ar as at au aw ax az ba bb bd be bf bg bh bi bj bm bn bo br bs bt bw by bz ca cd cf "
    "cg "
    "ch ci ck cl cm cn co cr cu cv cw cx cy cz de dj dk dm do dz ec ee eg er es et fi fj fk fm fo fr ga gb gd ge gf gg "
    "gh "
    "gi gl gm gn gp gq gr gs gt gu gw gy hk hm hn hr ht hu id ie il im in iq ir is it je jm jo jp ke kg kh ki km kn kp "
    "kr "
    "kw ky kz la lb lc li lk lr ls lt lu lv ly ma mc me mg mh mk ml mn mo mp mq mr ms mt mu mv mw mx my mz na nc ne nf "
    "ng "
    "ni nl no np nr nu nz om pa pe pf pg ph pk pm pn pr pt pw qa re ro ru rw sa sb sc sd se sg si sk sl sm sn sr ss st "
    "su "
    "sv sx sy sz tc td tf tg th tj tk tl tm tn to tr tt tv tw tz ua ug uk us uy uz va vc ve vg vi vn vu wf ws ye yt za "
    "zm "
    "zw ";
constexpr std::string_view kAlsoExtensions = " so sh py md pl cc rs ps mm ";

bool isIn(std::string_view list, std::string_view word) { return list.find(" " + std::string(word) + " ") != kNowhere; }

std::size_t decodedSeparator(std::string_view text, std::size_t at) {
  if (text.substr(at).starts_with("://")) return 3;
  constexpr std::string_view kEscaped = "%3a%2f%2f";
  return lowered(text.substr(at, kEscaped.size())) == kEscaped ? kEscaped.size() : 0;
}

std::size_t beginOfScheme(std::string_view text, std::size_t end) {
  while (end > 0 && (isLetter(text[end - 1]) || isDigit(text[end - 1]) || isOneOf(text[end - 1], "+.-"))) --end;
  return end;
}

bool isLocalByte(char byte) { return isWordByte(byte) || isOneOf(byte, "._%+-"); }
bool isDomainByte(char byte) { return isWordByte(byte) || isOneOf(byte, ".-"); }

std::size_t lengthOfIPv4(std::string_view token) {
  std::size_t at = 0;
  for (int part = 0; part < 4; ++part) {
    if (part > 0 && (at >= token.size() || token[at++] != '.')) return 0;
    int number = 0;
    const auto read = std::from_chars(token.data() + at, token.data() + token.size(), number);
    if (read.ec != std::errc() || number > 255 || !isDigit(token[at])) return 0;
    at = static_cast<std::size_t>(read.ptr - token.data());
  }
  // "1.2.3.4.5" is a version; "10.0.0.1." ends a sentence.
  const bool goesOn = at + 1 < token.size() && token[at] == '.' && isWordByte(token[at + 1]);
  return goesOn || (at < token.size() && isWordByte(token[at])) ? 0 : at;
}

std::size_t lengthOfColons(std::string_view token) {
  std::size_t end = 0;
  constexpr std::size_t kLongest = 48;
  while (end < std::min(token.size(), kLongest) && (isHexDigit(token[end]) || isOneOf(token[end], ":-"))) ++end;
  while (end > 0 && token[end - 1] == '-') --end;
  if (end < token.size() && isWordByte(token[end])) return 0;
  const std::string_view run = token.substr(0, end);
  const auto colons = std::ranges::count(run, ':');
  const auto dashes = std::ranges::count(run, '-');
  const bool hasDigit = std::ranges::any_of(run, isDigit);
  constexpr std::size_t kCard = 17;
  if (run.size() == kCard && (colons == 5 || dashes == 5)) return end;
  const bool isIPv6 = dashes == 0 && hasDigit && (colons == 7 || (colons >= 2 && run.find("::") != kNowhere));
  return isIPv6 ? end : 0;
}

/// Removes what masking leaves of a value: whole characters of a word, three bytes at most.
void removeBeginning(std::string& text) {
  for (std::size_t left = 3; left > 0;) {
    std::size_t length = 1;
    while (length < text.size() && (static_cast<unsigned char>(text[text.size() - length]) & 0xC0) == 0x80) ++length;
    if (text.empty() || length > left || !isWordByte(text.back())) return;
    text.resize(text.size() - length);
    left -= length;
  }
}

}  // namespace

std::string lowered(std::string_view text) {
  std::string made(text);
  for (char& byte : made) {
    if (byte >= 'A' && byte <= 'Z') byte = static_cast<char>(byte + 32);
  }
  return made;
}

std::string replacedAll(std::string_view text, std::string_view what, std::string_view by) {
  std::string made;
  for (std::size_t at = text.find(what); at != kNowhere; at = text.find(what)) {
    made.append(text.substr(0, at)).append(by);
    text.remove_prefix(at + what.size());
  }
  return made.append(text);
}

std::optional<FoundURL> findURL(std::string_view text) {
  for (std::size_t at = text.find_first_of(":%"); at != kNowhere; at = text.find_first_of(":%", at + 1)) {
    const std::size_t separator = decodedSeparator(text, at);
    const std::size_t begin = separator > 0 ? beginOfScheme(text, at) : at;
    if (separator == 0 || begin == at || lowered(text.substr(begin, at - begin)) == "file") continue;
    const std::size_t host = at + separator;
    std::size_t end = host;
    while (end < text.size() && !endsURL(text[end])) ++end;
    const std::size_t hostEnd = std::min(text.find_first_of("/?#%", host), end);
    if (hostEnd == host) continue;
    // Without the user before it and the port after it.
    std::string_view name = text.substr(host, hostEnd - host);
    name.remove_prefix(name.rfind('@') == kNowhere ? 0 : name.rfind('@') + 1);
    name = name.substr(0, name.find(':'));
    return FoundURL{begin, end, text.substr(begin, at - begin), name, hostEnd < end};
  }
  return std::nullopt;
}

std::optional<FoundName> findMail(std::string_view text) {
  for (std::size_t at = text.find_first_of("@%"); at != kNowhere; at = text.find_first_of("@%", at + 1)) {
    const std::size_t sign = text[at] == '@' ? 1 : text.substr(at).starts_with("%40") ? 3 : 0;
    if (sign == 0) continue;
    FoundName mail{at, at + sign};
    const std::size_t earliest = at - std::min(at, kLongestName);
    const std::size_t latest = std::min(text.size(), mail.end + kLongestName);
    while (mail.begin > earliest && isLocalByte(text[mail.begin - 1])) --mail.begin;
    while (mail.end < latest && isDomainByte(text[mail.end])) ++mail.end;
    while (mail.end > at + sign && isOneOf(text[mail.end - 1], ".-")) --mail.end;
    if (mail.begin < at && mail.end > at + sign) return mail;
  }
  return std::nullopt;
}

std::optional<FoundName> findSecret(std::string_view text, std::span<const std::string_view> names) {
  for (std::size_t at = text.find_first_of("=:"); at != kNowhere; at = text.find_first_of("=:", at + 1)) {
    std::size_t end = at;
    while (end > 0 && isOneOf(text[end - 1], " \"'")) --end;
    std::size_t begin = end;
    while (begin > 0 && (isWordByte(text[begin - 1]) || text[begin - 1] == '_')) --begin;
    std::string name = lowered(text.substr(begin, end - begin));
    std::erase(name, '_');
    if (std::ranges::find(names, name) == names.end()) continue;
    std::size_t value = at + 1;
    while (value < text.size() && isOneOf(text[value], " =")) ++value;
    const char quote = value < text.size() && isOneOf(text[value], "\"'") ? text[value++] : '\0';
    const std::size_t last = quote != '\0' ? text.find(quote, value) : text.find_first_of(" \t&,;\"'{}[]()<>", value);
    const FoundName found{value, std::min(last, text.size())};
    // What was hidden before stays as it is.
    if (found.begin < found.end && text.substr(found.begin, found.end - found.begin) != "***") return found;
  }
  return std::nullopt;
}

std::size_t endOfWord(std::string_view text, std::size_t at) {
  std::size_t end = at;
  while (end < text.size() && isWordByte(text[end])) ++end;
  return std::max(end, at + 1);
}

std::size_t lengthOfAddress(std::string_view text) {
  if (text.empty() || !(isHexDigit(text.front()) || text.front() == ':')) return 0;
  const std::size_t length = lengthOfIPv4(text);
  return length > 0 ? length : lengthOfColons(text);
}

std::size_t lengthOfHostName(std::string_view text) {
  if (text.empty() || !isWordByte(text.front())) return 0;
  std::size_t end = 0;
  while (end < std::min(text.size(), kLongestName) && isDomainByte(text[end])) ++end;
  std::string_view name = text.substr(0, end);
  while (name.ends_with('.') || name.ends_with('-')) name.remove_suffix(1);
  const std::size_t lastDot = name.rfind('.');
  if (lastDot == kNowhere || name.find("..") != kNowhere) return 0;
  const std::string_view top = name.substr(lastDot + 1);
  const std::string lower = lowered(top);
  // "ended.It" is the end of a sentence.
  const bool isOneCase =
      top == lower || std::ranges::none_of(top, [](char byte) { return byte >= 'a' && byte <= 'z'; });
  if (!isOneCase) return 0;
  if (isIn(kTopLevels, lower)) return name.size();
  const bool hasThree = name.find('.') < lastDot;
  return isIn(kAlsoExtensions, lower) && hasThree && !name.starts_with("lib") ? name.size() : 0;
}

bool followsVersion(std::string_view text) {
  constexpr std::size_t kNear = 12;
  const std::string before = lowered(text.substr(text.size() - std::min(kNear, text.size())));
  return before.find("version") != kNowhere;
}

bool standsAlone(std::string_view text, std::size_t begin, std::size_t end) {
  constexpr std::size_t kLong = 6;
  if (end - begin >= kLong) return true;
  const bool before = begin > 0 && (isLetter(text[begin - 1]) || isBeyondAscii(text[begin - 1]));
  const bool after = end < text.size() && (isLetter(text[end]) || isBeyondAscii(text[end]));
  return !before && !after;
}

std::string withoutBeginnings(std::string_view text) {
  std::string made;
  for (std::size_t at = 0; at < text.size();) {
    if (text[at] != '*') {
      made.push_back(text[at++]);
      continue;
    }
    const std::size_t end = std::min(text.find_first_not_of('*', at), text.size());
    if (end - at > 1) {
      removeBeginning(made);
      made.append("***");
    } else {
      made.push_back('*');
    }
    at = end;
  }
  return made;
}

}  // namespace tks::ctl
