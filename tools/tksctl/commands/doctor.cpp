#include <algorithm>
#include <memory>

#include "tools/tksctl/commands/table.h"
#include "tools/tksctl/doctor/report.h"

namespace tks::ctl {
namespace {

using doctor::Finding;
using doctor::Report;
using doctor::State;

std::string summary(const Report& report) {
  std::string text;
  constexpr std::pair<State, std::string_view> kWords[] = {
      {State::pass, " passed"}, {State::warn, " warnings"}, {State::fail, " failed"}, {State::skip, " left out"}};
  for (const auto& [state, word] : kWords) {
    text.append(text.empty() ? "" : ", ").append(std::to_string(report.count(state))).append(word);
  }
  return text;
}

Exit examine(Context& context, const doctor::Wishes& wishes) {
  context.interrupts.hold();
  Report report(context);
  doctor::checkAll(report, wishes);
  const bool canLaunch = report.count(State::fail) == 0 && !doctor::launcherPath(wishes).empty() &&
                         std::ranges::find(report.findings(), "start.goodbye", &Finding::id) != report.findings().end();
  context.out.set("checks", report.document());
  context.out.set("canLaunch", canLaunch);
  context.out.note(summary(report));
  if (context.interrupts.came()) return context.out.fail(Exit::interrupted, "interrupted");
  const auto failed = std::ranges::find(report.findings(), State::fail, &Finding::state);
  if (failed != report.findings().end()) {
    return context.out.fail(failed->code, failed->title + ": " + failed->seen, failed->remedy);
  }
  if (canLaunch || wishes.withoutStart) return Exit::ok;
  return context.out.fail(Exit::brokenLauncher, "no launcher was started", "Install a launcher: tksctl install.");
}

}  // namespace

Command doctorCommand() {
  return {
      .name = "doctor",
      .summary = "finds out why no meeting can be launched",
      .description =
          "Checks what a launch needs, one line each: PASS, WARN, FAIL or SKIP, what was seen and what to do. The "
          "library, the tools of the system, folders, limits, processes, locks, preferences, the launcher with its "
          "signature, and an archive. Then it really starts the launcher, greets it and says goodbye, with the time "
          "of each step. Unlike a host it never installs, replaces or removes a launcher.\n\n"
          "Ends with 0 only when a meeting could be launched; with --no-start, when nothing speaks against it.",
      .examples = {{"tksctl doctor", "Everything, for the launcher at the standard path."},
                   {"tksctl doctor --launcher build/Launcher.app --no-start", "A launcher under development."},
                   {"tksctl doctor --backup launcher.zip --version 5.1.0 --json", "With an archive, for programs."}},
      .setUp = [](const CommandLine& line) -> Action {
        auto wishes = std::make_shared<doctor::Wishes>();
        line.option("--launcher", wishes->launcher, "The launcher; else the one at the standard path").typeName("PATH");
        const Option version = line.option("--version", wishes->version, "Version of the launcher in the archive");
        const Option backup = line.option("--backup", wishes->backup, "An archive with a launcher").typeName("ZIP");
        version.needs(backup).typeName("V");
        line.flag("--no-start", wishes->withoutStart, "Do not start the launcher");
        line.flag("--files", wishes->files, "Talk to the launcher over files");
        line.option("--timeout", wishes->patience, "How long to wait for an answer, in seconds")
            .typeName("SECONDS")
            .showsDefault()
            .between(1, 600);
        return [wishes](Context& context) { return examine(context, *wishes); };
      }};
}

}  // namespace tks::ctl
