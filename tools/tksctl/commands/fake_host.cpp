#include <algorithm>
#include <filesystem>
#include <memory>

#include "platform/platform.h"
#include "tools/tksctl/commands/table.h"
#include "tools/tksctl/doubles/rule_trials.h"

namespace tks::ctl {
namespace {

using doctor::Finding;
using doctor::State;

struct Wishes {
  std::vector<std::string> command;
  int seconds = 5;
};

/// The command with the program of a bundle in the bundle's place; empty, and the reason told, when there is none.
std::vector<std::string> commandOf(std::vector<std::string> command, Output& out) {
  const std::string given = command.front();
  const std::string path = std::filesystem::absolute(given).lexically_normal().string();
  const auto bundle = std::filesystem::is_directory(path) ? platform::bundles().open(path) : std::nullopt;
  command.front() = bundle ? bundle->executablePath : path;
  if (platform::files().isExecutableFile(command.front())) return command;
  out.fail(Exit::brokenLauncher, "there is no launcher at " + given,
           "Name its bundle or its executable, after --, with arguments of its own.");
  return {};
}

TKSArray documentOf(const std::vector<Finding>& findings) {
  TKSArray rules;
  for (std::size_t at = 0; at < findings.size(); ++at) {
    const Finding& finding = findings[at];
    rules.append(TKSDictionary{{"rule", protocolRules()[at].number},
                               {"title", protocolRules()[at].text},
                               {"state", doctor::nameOf(finding.state)},
                               {"seen", finding.seen},
                               {"remedy", finding.remedy}});
  }
  return rules;
}

Exit examine(Context& context, const Wishes& wishes) {
  const std::vector<std::string> command = commandOf(wishes.command, context.out);
  if (command.empty()) return Exit::brokenLauncher;
  context.interrupts.hold();
  RuleBook book;
  TKSError error;
  const TrialsEnd end = runTrials({command, std::chrono::seconds(wishes.seconds), context.interrupts, book}, &error);
  if (end == TrialsEnd::interrupted) return context.out.fail(Exit::interrupted, "interrupted");
  if (end == TrialsEnd::notStarted)
    return context.out.fail(Exit::brokenLauncher, error, "the launcher was not started");
  const std::vector<Finding> findings = book.findings();
  doctor::Report report(context);
  for (const Finding& finding : findings) report.add(finding);
  context.out.set("rules", documentOf(findings));
  context.out.note(std::to_string(report.count(State::pass)) + " rules kept, " +
                   std::to_string(report.count(State::fail)) + " broken, " + std::to_string(report.count(State::skip)) +
                   " not seen");
  const auto failed = std::ranges::find(findings, State::fail, &Finding::state);
  if (failed == findings.end()) return Exit::ok;
  return context.out.fail(failed->code, failed->title + ": " + failed->seen, failed->remedy);
}

}  // namespace

Command fakeHostCommand() {
  return {
      .name = "fake-host",
      .summary = "plays a host against a launcher and checks how it keeps the protocol",
      .description =
          "Starts the launcher several times, over pipes and over files, talks to it as a host does and as a host may, "
          "and says of each rule of the protocol PASS, FAIL or SKIP, what was seen and what to do. docs/protocol.md "
          "has "
          "the rules by their numbers. The launcher needs no signature, and no meeting is joined by the tool; what "
          "the launcher does with \"launch_meeting\" is its own.\n\n"
          "Ends with 0 only when no rule was broken.",
      .examples = {{"tksctl fake-host -- \"build/Tarvo Kovra Start.app\"",
                    "A launcher under development, as a bundle."},
                   {"tksctl fake-host --timeout 2 --json -- ./launcher --verbose",
                    "A program with its own arguments."}},
      .setUp = [](const CommandLine& line) -> Action {
        auto wishes = std::make_shared<Wishes>();
        line.option("launcher", wishes->command, "After --: its bundle or executable, and arguments of its own")
            .required()
            .typeName("LAUNCHER");
        line.option("--timeout", wishes->seconds, "How long to wait for each answer, in seconds")
            .typeName("SECONDS")
            .showsDefault()
            .between(1, 600);
        return [wishes](Context& context) { return examine(context, *wishes); };
      }};
}

}  // namespace tks::ctl
