#include <algorithm>
#include <charconv>
#include <set>

#include "foundation/values/Characters.h"
#include "foundation/values/ErrorReasons.h"
#include "platform/posix/error_reasons.h"
#include "tools/tksctl/catalogue/catalogue.h"

// How a query is read: a number, a domain with a number, a whole error, a name, a text.

namespace tks::ctl {
namespace {

/// Texts in texts: so many levels are explained.
constexpr int kDeepest = 5;

/// A line as tksctl -v shows it begins with its level.
std::string_view withoutLevel(std::string_view text) {
  if (text.size() > 4 && text[0] == '[' && text[2] == ']') return trimmed(text.substr(3));
  return text;
}

std::optional<std::int64_t> wholeNumber(std::string_view text) {
  std::int64_t number = 0;
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (text.empty() || problem != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::size_t literalLength(std::string_view format) {
  return format.size() - 2 * static_cast<std::size_t>(std::ranges::count(format, '%'));
}

class Search {
 public:
  std::vector<Explanation> found;

  void run(std::string_view query) {
    query = withoutLevel(trimmed(query));
    if (const auto number = wholeNumber(query)) return addNumber(*number);
    if (query.starts_with("Error Domain=")) return addWholeError(query, 0);
    addDomainAndNumber(query);
    if (found.empty()) addNamed(query);
    if (found.empty()) addText(query, 0);
    if (found.empty()) addParts(query);
  }

 private:
  void add(const Explanation& entry) {
    const std::string key =
        entry.kind + entry.domain + entry.text + std::to_string(entry.code.value_or(0)) + entry.operation;
    if (seen_.insert(key).second) found.push_back(entry);
  }

  void addNumber(std::int64_t number) {
    for (const Explanation& entry : catalogue()) {
      if (entry.code == number && entry.kind != "error") add(entry);
    }
    if (!found.empty()) return;
    Explanation status = explainStatus(number);
    if (!status.text.empty()) addSystemStatus(std::move(status));
  }

  /// Beyond 100000: a number of the system's in a status.
  void addSystemStatus(Explanation status) {
    constexpr std::int64_t kFirst = 100000;
    addSystemError("NSPOSIXErrorDomain", *status.code - kFirst);
    status.meaning = "The system refused while the signature was read: " + status.text + ".";
    status.remedy = found.empty() ? "Check the path and its rights." : found.back().remedy;
    found.insert(found.begin(), status);
  }

  void addSystemError(std::string_view domain, std::int64_t code) {
    const TKSErrorReason reason = posix::reasonOfSystemError(domain, code);
    add({.kind = "error",
         .domain = std::string(domain),
         .code = code,
         .reason = std::string(TKSErrorReasonName(reason)),
         .meaning = "An error of the system; its text names the step and the path.",
         .remedy = std::string(TKSErrorReasonSuggestion(reason))});
  }

  void addInDomain(std::string_view domain, std::int64_t code) {
    if (domain.starts_with("NS")) return addSystemError(domain, code);
    for (const Explanation& entry : catalogue()) {
      if (entry.domain == domain && entry.code == code) add(entry);
    }
  }

  /// "TKSITKSDomain 2006"
  void addDomainAndNumber(std::string_view query) {
    const std::size_t blank = query.rfind(' ');
    if (blank == std::string_view::npos) return;
    if (const auto number = wholeNumber(query.substr(blank + 1))) addInDomain(trimmed(query.substr(0, blank)), *number);
  }

  /// Error Domain=D Code=N "TEXT"
  void addWholeError(std::string_view query, int depth) {
    std::vector<std::string> held;
    if (!isMadeFrom("Error Domain=%@ Code=%i \"%@\"", query, held)) return;
    const std::size_t before = found.size();
    addText(held[2], depth);
    const auto code = wholeNumber(held[1]);
    const bool isSystems = held[0].starts_with("NS") || held[0] == "TKSITKSDomain";
    if (code && (isSystems || (found.size() == before && *code != 0))) addInDomain(held[0], *code);
  }

  /// "notTrusted", or the text of a status.
  void addNamed(std::string_view query) {
    for (const Explanation& entry : catalogue()) {
      if ((entry.kind == "reason" || entry.kind == "signature status") && entry.text == query) add(entry);
    }
  }

  /// A text that the library makes, and the texts in it.
  void addText(std::string_view query, int depth) {
    if (depth >= kDeepest) return;
    if (query.starts_with("Error Domain=")) return addWholeError(query, depth);
    std::vector<const Explanation*> fits;
    std::vector<std::string> held;
    for (const Explanation& entry : catalogue()) {
      constexpr std::size_t kShortest = 4;
      if (entry.text.empty() || entry.kind == "reason" || literalLength(entry.text) < kShortest) continue;
      if (isMadeFrom(entry.text, query, held)) fits.push_back(&entry);
    }
    if (fits.empty()) return addNamed(query);
    // A text that begins with what differs fits much: it comes last.
    const auto rank = [](const Explanation* entry) {
      return std::pair(entry->text.starts_with('%'), -static_cast<std::ptrdiff_t>(literalLength(entry->text)));
    };
    std::ranges::stable_sort(fits, {}, rank);
    for (const Explanation* entry : fits) {
      if (entry->text == fits.front()->text) add(*entry);
    }
    if (!isMadeFrom(fits.front()->text, query, held)) return;
    for (const std::string& inside : held) addText(trimmed(inside), depth + 1);
  }

  /// Texts that the query is a part of.
  void addParts(std::string_view query) {
    constexpr std::size_t kShortest = 4;
    constexpr std::size_t kMost = 10;
    if (query.size() < kShortest) return;
    const auto isSame = [](char left, char right) {
      return left == right || (std::isalpha(static_cast<unsigned char>(left)) != 0 && (left ^ right) == 0x20);
    };
    const auto isIn = [&](std::string_view text) {
      return std::search(text.begin(), text.end(), query.begin(), query.end(), isSame) != text.end();
    };
    for (const Explanation& entry : catalogue()) {
      if (found.size() < kMost && isIn(entry.text)) add(entry);
    }
  }

  std::set<std::string> seen_;
};

}  // namespace

std::vector<Explanation> explain(std::string_view query) {
  Search search;
  search.run(query);
  return std::move(search.found);
}

}  // namespace tks::ctl
