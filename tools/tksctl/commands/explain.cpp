#include <memory>

#include "tools/tksctl/catalogue/catalogue.h"
#include "tools/tksctl/commands/table.h"

namespace tks::ctl {
namespace {

/// What is explained, in one line: kind, code or level, text.
std::string headline(const Explanation& entry) {
  std::string line = entry.kind;
  if (!entry.domain.empty()) line.append(" ").append(entry.domain);
  if (entry.code) line.append(" ").append(std::to_string(*entry.code));
  if (!entry.level.empty()) line.append(" (").append(entry.level).append(", ").append(entry.operation).append(")");
  return entry.text.empty() ? line : line.append(": ").append(entry.text);
}

void show(Output& out, const Explanation& entry) {
  const std::size_t width = out.terminal().width();
  out.line(out.terminal().styled(Style::bold, headline(entry)));
  out.print(wrapped(entry.meaning, "  ", width));
  if (!entry.reason.empty() && entry.kind != "reason") out.line("  Reason: " + entry.reason);
  out.print(wrapped("What to do: " + entry.remedy, "  ", width));
}

struct Wishes {
  std::vector<std::string> words;
  bool all = false;
};

Exit explainAll(Context& context, const Wishes& wishes) {
  std::string query;
  for (const std::string& word : wishes.words) query.append(query.empty() ? "" : " ").append(word);
  if (query.empty() && !wishes.all) return context.out.fail(Exit::usage, "CODE|TEXT is required, or --list");
  const std::vector<Explanation> found = wishes.all ? catalogue() : explain(query);
  TKSArray documents;
  bool isFirst = true;
  for (const Explanation& entry : found) {
    if (!std::exchange(isFirst, false)) context.out.line("");
    show(context.out, entry);
    documents.append(entry.document());
  }
  context.out.set("query", query);
  context.out.set("explanations", documents);
  if (!found.empty()) return Exit::ok;
  return context.out.fail(Exit::failed, "nothing is known of: " + query,
                          "Give a code, a domain with a code, or a line of the log as it stands.");
}

}  // namespace

Command explainCommand() {
  return {
      .name = "explain",
      .summary = "says what an error, a status or a line of the log means, and what to do",
      .description =
          "Takes a code (-67062), a domain with a code (TKSITKSDomain 2006), the name of a reason (notTrusted), a "
          "whole error, or a text of the library as it stands in a log or a dialog. What stands inside of a text is "
          "explained as well. A part of a text finds all that have it.\n\n"
          "Words may stand without quotes.",
      .examples = {{"tksctl explain -67062", "A status of a signature."},
                   {"tksctl explain \"Security check failed: Codesign verify failed, not from Tarvo.\"",
                    "A text, and the text in it."},
                   {"tksctl explain TKSITKSDomain 2006", "An error that the launcher itself gives."}},
      .setUp = [](const CommandLine& line) -> Action {
        auto wishes = std::make_shared<Wishes>();
        line.option("query", wishes->words, "Code, domain and code, name or text").typeName("CODE|TEXT");
        line.flag("--list", wishes->all, "Explain all that there is");
        return [wishes](Context& context) { return explainAll(context, *wishes); };
      }};
}

}  // namespace tks::ctl
