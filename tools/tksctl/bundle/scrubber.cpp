#include "tools/tksctl/bundle/scrubber.h"

#include <tksinterface/MaskSensitiveInformation.h>
#include <tksinterface/TKSMessage.h>
#include <tksinterface/TKSMessageVocabulary.h>

#include <algorithm>
#include <utility>

#include "foundation/values/JsonWriter.h"
#include "tools/tksctl/bundle/name_forms.h"
#include "tools/tksctl/frame/json_values.h"
#include "tools/tksctl/recording/recording.h"

namespace tks::ctl {
namespace {

constexpr auto kNowhere = std::string_view::npos;
/// Messages in texts in messages: deeper ones are hidden as a whole.
constexpr int kDeepest = 8;
constexpr std::string_view kHidden = "***";

struct KindRow {
  Personal kind;
  std::string_view name;
  std::string_view standIn;
};
constexpr KindRow kKinds[] = {
    {Personal::user, "user names", "USER-"},
    {Personal::host, "host names", "HOST-"},
    {Personal::mail, "mail addresses", "MAIL-"},
    {Personal::address, "network addresses", "ADDRESS-"},
    {Personal::secret, "secrets", kHidden},
    {Personal::word, "words to hide", "WORD-"},
    {Personal::rule, "by the rules of the log", kHidden},
};

const KindRow& rowOf(Personal kind) { return *std::ranges::find(kKinds, kind, &KindRow::kind); }

/// Names after which a value is hidden, in lower case.
constexpr std::string_view kSecretNames[] = {
    "password",   "passwd", "token",         "tkstoken", "secret", "ticket",  "email",       "username", "pin",
    "meetingkey", "cookie", "authorization", "attendee", "userid", "display", "displayname", "session",  "sessionid"};

bool isVersionName(std::string_view key) { return lowered(key).find("version") != std::string::npos; }

}  // namespace

std::string_view nameOf(Personal kind) { return rowOf(kind).name; }

void Scrubber::hide(Personal kind, std::string_view word) {
  constexpr std::size_t kShortest = 3;
  if (word.size() < kShortest) return;
  words_.push_back({kind, lowered(word)});
  // The longest first: of a name and a part of it the whole is found.
  std::ranges::stable_sort(words_, std::ranges::greater(), [](const Word& each) { return each.lower.size(); });
}

void Scrubber::setHome(std::string_view path) {
  if (path.size() > 1) home_ = path;
}

std::string Scrubber::standIn(Personal kind, std::string_view original) {
  ++counts_[kind];
  auto& numbers = known_[kind];
  const auto number = numbers.try_emplace(lowered(original), numbers.size() + 1).first->second;
  return std::string(rowOf(kind).standIn) + std::to_string(number);
}

TKSDictionary Scrubber::takeCounts() {
  TKSDictionary counts;
  for (const auto& [kind, count] : std::exchange(counts_, {})) counts.set(nameOf(kind), count);
  return counts;
}

std::string Scrubber::text(std::string_view text) {
  std::string masked;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    masked.append(line(validText(text.substr(0, end)), false, 0));
    if (end < text.size()) masked.append("\n");
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return masked;
}

TKSValue Scrubber::value(const TKSValue& value) { return valueAt(value, {}, 0); }

TKSDictionary Scrubber::dictionary(const TKSDictionary& dictionary, int depth) {
  std::vector<std::pair<std::string, TKSValue>> entries;
  for (const auto& [key, value] : dictionary) {
    entries.emplace_back(line(key, false, depth), valueAt(value, key, depth));
  }
  return TKSDictionary(std::move(entries));
}

TKSValue Scrubber::valueAt(const TKSValue& value, std::string_view key, int depth) {
  if (value.isDictionary()) return dictionary(value.dictionary(), depth);
  if (value.isArray()) {
    TKSArray made;
    for (const TKSValue& each : value.array()) made.append(valueAt(each, key, depth));
    return made;
  }
  if (!value.isText()) return value;
  const bool isSecret = std::ranges::find(kSecretNames, lowered(key)) != std::end(kSecretNames);
  if (isSecret && !value.text().empty()) {
    ++counts_[Personal::secret];
    return kHidden;
  }
  std::string masked;
  for (std::string_view rest = value.text(); !rest.empty();) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    masked.append(line(rest.substr(0, end), isVersionName(key), depth)).append(end < rest.size() ? "\n" : "");
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return masked;
}

std::string Scrubber::line(std::string_view line, bool keepsNumbers, int depth) {
  if (depth > kDeepest) return std::string(kHidden);
  std::string masked = maskMessages(line, depth);
  if (!home_.empty()) masked = replacedAll(masked, home_, "~");
  masked = maskURLs(masked);
  masked = maskMail(masked);
  masked = maskSecrets(masked);
  masked = maskTokens(masked, keepsNumbers);
  masked = maskWords(masked);
  return applyRules(masked);
}

/// A JSON object in a line, from its first brace to its last.
std::string Scrubber::maskMessages(std::string_view line, int depth) {
  const std::size_t begin = line.find('{');
  const std::size_t end = line.rfind('}');
  if (begin == kNowhere || end == kNowhere || end < begin) return std::string(line);
  const TKSValue object = TKSMessage::JSONStringToObject(line.substr(begin, end + 1 - begin));
  if (!object.isDictionary()) return std::string(line);
  const bool isMessage = object.dictionary().contains(tks_message_key_message_type);
  const TKSValue shown = isMessage ? maskedMessage(object) : object;
  if (isMessage) ++counts_[Personal::rule];
  const TKSDictionary masked = dictionary(shown.dictionary(), depth + 1);
  return std::string(line.substr(0, begin)) + json::write(masked).value_or("{}") + std::string(line.substr(end + 1));
}

std::string Scrubber::maskURLs(std::string_view line) {
  std::string masked;
  while (const std::optional<FoundURL> url = findURL(line)) {
    masked.append(line.substr(0, url->begin)).append(url->scheme).append("://");
    masked.append(standIn(Personal::host, url->host)).append(url->hasMore ? "/***" : "");
    line.remove_prefix(url->end);
  }
  return masked.append(line);
}

std::string Scrubber::maskMail(std::string_view line) {
  std::string masked;
  while (const std::optional<FoundName> mail = findMail(line)) {
    masked.append(line.substr(0, mail->begin));
    masked.append(standIn(Personal::mail, line.substr(mail->begin, mail->end - mail->begin)));
    line.remove_prefix(mail->end);
  }
  return masked.append(line);
}

std::string Scrubber::maskSecrets(std::string_view line) {
  std::string masked;
  while (const std::optional<FoundName> secret = findSecret(line, kSecretNames)) {
    ++counts_[Personal::secret];
    masked.append(line.substr(0, secret->begin)).append(kHidden);
    line.remove_prefix(secret->end);
  }
  return masked.append(line);
}

/// Addresses and names of computers, which begin where a word begins.
std::string Scrubber::maskTokens(std::string_view line, bool keepsNumbers) {
  std::string masked;
  for (std::size_t at = 0; at < line.size();) {
    const std::string_view rest = line.substr(at);
    const bool isInside = at > 0 && line[at - 1] == '.';
    const bool isNumber = keepsNumbers || isInside || followsVersion(masked);
    const std::size_t address = isNumber ? 0 : lengthOfAddress(rest);
    const std::size_t host = isInside || address > 0 ? 0 : lengthOfHostName(rest);
    if (address > 0) masked.append(standIn(Personal::address, rest.substr(0, address)));
    if (host > 0) masked.append(standIn(Personal::host, rest.substr(0, host)));
    const std::size_t taken = address + host;
    const std::size_t next = taken > 0 ? at + taken : endOfWord(line, at);
    if (taken == 0) masked.append(line, at, next - at);
    at = next;
  }
  return masked;
}

std::string Scrubber::maskWords(std::string_view line) {
  std::string masked(line);
  for (const Word& word : words_) {
    const std::string lower = lowered(masked);
    std::string made;
    std::size_t done = 0;
    for (std::size_t at = lower.find(word.lower); at != kNowhere; at = lower.find(word.lower, at)) {
      const std::size_t end = at + word.lower.size();
      if (!standsAlone(lower, at, end)) {
        ++at;
        continue;
      }
      made.append(masked, done, at - done).append(standIn(word.kind, word.lower));
      at = done = end;
    }
    masked = made.append(masked, done);
  }
  return masked;
}

/// The library's rules; the first three bytes that they keep of a value go as well.
std::string Scrubber::applyRules(std::string_view line) {
  const std::string ruled = MaskSensitiveInformation::removeSensitiveInformation(line);
  if (ruled != line) ++counts_[Personal::rule];
  return withoutBeginnings(ruled);
}

}  // namespace tks::ctl
