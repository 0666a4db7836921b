#include "tools/tksctl/catalogue/catalogue.h"

#include <algorithm>
#include <charconv>
#include <map>

#include <tksinterface/TKSError.h>

#include "codesign/container/status.h"
#include "tools/tksctl/catalogue/data.h"
#include "tools/tksctl/frame/exit_codes.h"

namespace tks::ctl {
namespace {

using Row = std::vector<std::string>;

/// The lines of a table, without those that begin with "#".
std::vector<Row> rowsOf(std::string_view table) {
  std::vector<Row> rows;
  while (!table.empty()) {
    std::string_view line = table.substr(0, table.find('\n'));
    table.remove_prefix(std::min(line.size() + 1, table.size()));
    if (line.empty() || line.front() == '#') continue;
    Row row;
    for (std::size_t tab = line.find('\t'); tab != std::string_view::npos; tab = line.find('\t')) {
      row.emplace_back(line.substr(0, tab));
      line.remove_prefix(tab + 1);
    }
    row.emplace_back(line);
    rows.push_back(std::move(row));
  }
  return rows;
}

std::optional<std::int64_t> numberIn(std::string_view text) {
  std::int64_t number = 0;
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (problem != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

/// Meaning and remedy of texts.
const std::map<std::string, Row>& explanations() {
  static const std::map<std::string, Row> known = [] {
    std::map<std::string, Row> made;
    for (Row& row : rowsOf(data::kExplanations)) made.emplace(row[0], row);
    return made;
  }();
  return known;
}

std::string suggestionFor(const std::string& reason) {
  for (std::int32_t number = 0;; ++number) {
    const auto known = static_cast<TKSErrorReason>(number);
    if (number > 0 && TKSErrorReasonName(known) == TKSErrorReasonName(TKSErrorReason::unspecified)) return {};
    if (TKSErrorReasonName(known) == reason) return std::string(TKSErrorReasonSuggestion(known));
  }
}

/// Puts meaning and remedy of a text in; a remedy of "-" is the one of the reason.
void addExplanation(Explanation& entry) {
  const auto found = explanations().find(entry.text);
  if (found == explanations().end()) return;
  entry.meaning = found->second[1];
  entry.remedy = found->second[2];
  if (entry.remedy == "-") entry.remedy = suggestionFor(entry.reason);
  if (entry.remedy.empty()) entry.remedy = "Look at the error that the text carries.";
}

void addErrors(std::vector<Explanation>& all) {
  for (const Row& row : rowsOf(data::kErrors)) {
    if (row[0] == "-") continue;
    Explanation entry{.kind = "error", .text = row[3], .domain = row[0], .code = numberIn(row[1]), .reason = row[2]};
    addExplanation(entry);
    const auto isSame = [&](const Explanation& other) {
      return other.text == entry.text && other.domain == entry.domain;
    };
    if (std::ranges::none_of(all, isSame)) all.push_back(std::move(entry));
  }
}

void addLogLines(std::vector<Explanation>& all) {
  constexpr std::pair<std::string_view, std::string_view> kLevels[] = {
      {"1", "trace"}, {"2", "info"}, {"4", "warning"}, {"8", "error"}, {"-", ""}};
  std::map<std::string, std::string> operations;
  for (Row& row : rowsOf(data::kOperations)) operations.emplace(row[0], row[1]);
  for (const Row& row : rowsOf(data::kLogTexts)) {
    const auto level = std::ranges::find(kLevels, row[0], &std::pair<std::string_view, std::string_view>::first);
    const std::string word(level == std::end(kLevels) ? std::string_view() : level->second);
    Explanation entry{.kind = "log line", .text = row[2], .level = word, .operation = row[1]};
    addExplanation(entry);
    if (row[0] == "1" || row[0] == "2") {
      entry.meaning = "Ordinary progress of the operation that " + operations[row[1]] + ".";
      entry.remedy = "Nothing.";
    }
    const bool isError = row[0] == "-" && std::ranges::find(all, row[2], &Explanation::text) != all.end();
    if (!isError) all.push_back(std::move(entry));
  }
}

void addNumbers(std::vector<Explanation>& all) {
  for (const Row& row : rowsOf(data::kStatuses)) {
    const auto number = numberIn(row[0]).value_or(0);
    all.push_back({.kind = "signature status",
                   .text = codesign::statusText(static_cast<codesign::Status>(number)),
                   .code = number,
                   .meaning = row[1],
                   .remedy = row[2]});
  }
  for (const Row& row : rowsOf(data::kLauncherCodes)) {
    all.push_back({.kind = "launcher's code",
                   .domain = "TKSITKSDomain",
                   .code = numberIn(row[0]),
                   .reason = row[1],
                   .meaning = row[2],
                   .remedy = row[3]});
  }
  for (const Row& row : rowsOf(data::kReasons)) {
    const std::string suggestion = suggestionFor(row[1]);
    all.push_back({.kind = "reason",
                   .text = row[1],
                   .code = numberIn(row[0]),
                   .reason = row[1],
                   .meaning = row[2] + ".",
                   .remedy = suggestion.empty() ? "Look at domain, code and text." : suggestion});
  }
  for (const ExitRow& row : exitRows()) {
    all.push_back({.kind = "exit code",
                   .code = static_cast<int>(row.code),
                   .meaning = std::string(row.meaning) + ".",
                   .remedy = "See what tksctl said on standard error."});
  }
}

/// The next conversion in a format: where it stands and how long it is.
std::pair<std::size_t, std::size_t> conversionIn(std::string_view format) {
  constexpr std::string_view kConversions[] = {"%@", "%i", "%d", "%s", "%lu", "%u"};
  std::pair<std::size_t, std::size_t> first{std::string_view::npos, 0};
  for (const std::string_view conversion : kConversions) {
    const std::size_t at = format.find(conversion);
    if (at < first.first) first = {at, conversion.size()};
  }
  return first;
}

}  // namespace

TKSDictionary Explanation::document() const {
  TKSDictionary made{{"kind", kind}, {"meaning", meaning}, {"remedy", remedy}};
  const std::pair<std::string_view, const std::string&> kTexts[] = {
      {"text", text}, {"domain", domain}, {"level", level}, {"operation", operation}, {"reason", reason}};
  for (const auto& [key, value] : kTexts) {
    if (!value.empty()) made.set(key, value);
  }
  if (code) made.set("code", *code);
  return made;
}

const std::vector<Explanation>& catalogue() {
  static const std::vector<Explanation> all = [] {
    std::vector<Explanation> made;
    addErrors(made);
    addLogLines(made);
    addNumbers(made);
    return made;
  }();
  return all;
}

Explanation explainStatus(std::int64_t status) {
  for (const Explanation& entry : catalogue()) {
    if (entry.kind == "signature status" && entry.code == status) return entry;
  }
  return {
      .kind = "signature status", .text = codesign::statusText(static_cast<codesign::Status>(status)), .code = status};
}

bool isMadeFrom(std::string_view format, std::string_view text, std::vector<std::string>& held) {
  held.clear();
  while (true) {
    const auto [at, length] = conversionIn(format);
    const std::string_view literal = format.substr(0, at);
    if (!text.starts_with(literal)) return false;
    text.remove_prefix(literal.size());
    if (at == std::string_view::npos) return text.empty();
    format.remove_prefix(at + length);
    // What the conversion made ends where the next literal begins; the last literal ends the text.
    const auto [next, ignored] = conversionIn(format);
    const std::string_view following = format.substr(0, next);
    std::size_t end = text.size();
    if (next == std::string_view::npos) {
      if (!text.ends_with(following)) return false;
      end = text.size() - following.size();
    } else if (!following.empty()) {
      end = text.find(following);
      if (end == std::string_view::npos) return false;
    }
    held.emplace_back(text.substr(0, end));
    text.remove_prefix(end);
  }
}

}  // namespace tks::ctl
