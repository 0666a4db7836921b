#include <algorithm>
#include <chrono>
#include <memory>

#include "BuildValues.h"
#include "foundation/Options.h"
#include "platform/linux/processes/tool_runner.h"
#include "platform/platform.h"
#include "tools/tksctl/doctor/report.h"

namespace tks::ctl::doctor {
namespace {

using platform::Tool;

struct ToolRow {
  Tool tool;
  std::string_view name;
  /// What makes it say something and end.
  std::string_view question;
  /// Without it no launcher can be installed, or started.
  bool isNeeded;
  std::string_view without;
  std::string_view package;
};

constexpr ToolRow kTools[] = {
    {Tool::unzip, "unzip", "-v", true, "no launcher is installed from an archive", "Install Debian's package unzip."},
    {Tool::tar, "tar", "--version", false, "the list of delta updates cannot be unpacked",
     "Install Debian's package tar."},
    {Tool::lsof, "lsof", "-v", false, "the launcher's health is assessed each time anew",
     "Install Debian's package lsof."},
    {Tool::shasum, "shasum", "--version", false, "the launcher's health is assessed each time anew",
     "Install Debian's package perl."},
    {Tool::spctl, "spctl", "", false, "the library assesses a launcher's health by itself",
     "Install libexec/tksinterface/spctl of this project again."},
};

/// Asks a tool. Who presses Ctrl-C does not wait for one that says nothing: it ends with this program.
platform::ToolResult ask(Interrupts& interrupts, const platform::ToolRequest& request) {
  const auto result = std::make_shared<platform::ToolResult>();
  const auto work = [result, request] { *result = platform::systemTools().run(request); };
  if (interrupts.runAside(work) != Interrupts::End::done) interrupts.endProgram();
  return *result;
}

void checkTool(Report& report, const ToolRow& row, std::chrono::seconds patience) {
  const std::string id = "tools." + std::string(row.name);
  const std::string title(row.name);
  const auto tell = [&](const std::string& seen, const std::string& remedy) {
    if (row.isNeeded) return report.fail(id, title, seen, remedy);
    report.warn(id, title, seen, remedy);
  };
  const std::string path = gnulinux::standardToolPath(row.tool);
  if (path.empty()) {
    const std::string places = gnulinux::placesOf(row.tool);
    return tell("not found at " + places + "; " + std::string(row.without), std::string(row.package));
  }
  platform::ToolRequest request{row.tool, {}};
  if (!row.question.empty()) request.arguments.emplace_back(row.question);
  // A busy computer is no fault of the tool.
  constexpr std::chrono::seconds kLeast{10};
  request.timeLimit = std::max(patience, kLeast);
  const platform::ToolResult result = ask(report.context().interrupts, request);
  if (!result.started || result.cutShort) {
    return tell(path + " does not answer: " + result.error.localizedDescription,
                "Repair or replace " + path + ". " + std::string(row.package));
  }
  report.pass(id, title, path);
}

}  // namespace

void checkLibrary(Report& report) {
  report.pass("library.version", "library", "version " TKS_PROJECT_VERSION ", team " TKS_TEAM_ID);
  report.pass("library.testMode", "test mode", TKS_ALLOW_TEST_MODE ? "allowed on lab devices" : "never");
  report.pass("library.strict", "strict maker check",
              TKS_STRICT_MAKER_CHECK ? "on, pinned root " TKS_PINNED_ROOT_SHA256 : "off");
  const TKSOptions options = TKSOptions::options();
  std::string on;
  for (const OptionRow& row : optionRows()) {
    if (isOn(row, options)) on.append(on.empty() ? "" : ", ").append(row.name);
  }
  report.pass("library.options", "options", on.empty() ? "none" : on);
}

void checkTools(Report& report, const Wishes& wishes) {
  for (const ToolRow& row : kTools) checkTool(report, row, std::chrono::seconds(wishes.patience));
}

}  // namespace tks::ctl::doctor
