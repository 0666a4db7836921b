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

Exit explainAll(Context& context, const std::vector<std::string>& words) {
  std::string query;
  for (const std::string& word : words) query.append(query.empty() ? "" : " ").append(word);
  const std::vector<Explanation> found = explain(query);
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
          "Words may stand without quotes. Put -- before a code with a minus sign if it is the only word.",
      .examples = {{"tksctl explain -- -67062", "A status of a signature."},
                   {"tksctl explain \"Security check failed: Codesign verify failed, not from Tarvo.\"",
                    "A text, and the text in it."},
                   {"tksctl explain TKSITKSDomain 2006", "An error that the launcher itself gives."}},
      .setUp = [](CLI::App& app) -> Action {
        auto words = std::make_shared<std::vector<std::string>>();
        app.add_option("query", *words, "Code, domain and code, name or text")->required()->type_name("CODE|TEXT");
        return [words](Context& context) { return explainAll(context, *words); };
      }};
}

}  // namespace tks::ctl
