#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSIAppManager.h>
#include <tksinterface/TKSInstallProgress.h>
#include <tksinterface/TKSUtilBase.h>

#include <filesystem>
#include <memory>

#include "platform/platform.h"
#include "tools/tksctl/commands/table.h"
#include "tools/tksctl/frame/json_values.h"
#include "tools/tksctl/frame/progress_bar.h"
#include "tools/tksctl/parts/archives.h"
#include "tools/tksctl/parts/first_failure.h"

namespace tks::ctl {
namespace {

namespace fs = std::filesystem;

struct Wishes {
  std::string archive;
  std::string version;
  std::string target;
  bool dryRun = false;
  bool force = false;
};

std::string targetOf(const Wishes& wishes) {
  if (wishes.target.empty()) return TKSUtilBase::getStandardTKSPath();
  std::string path = fs::absolute(wishes.target).lexically_normal().string();
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

void setVersions(Output& out, const std::string& before, const std::string& after) {
  out.set("before", before.empty() ? TKSValue(TKSNull()) : TKSValue(before));
  out.set("after", after.empty() ? TKSValue(TKSNull()) : TKSValue(after));
}

/// What an installation would meet and do.
Exit rehearse(Context& context, const Wishes& wishes, const std::string& target, const std::string& before) {
  Output& out = context.out;
  context.interrupts.hold();
  const ArchiveReport archive = examineArchive(wishes.archive, wishes.version);
  if (context.interrupts.came()) return out.fail(Exit::interrupted, "interrupted");
  if (!archive.isReadable || !archive.isSafe) return out.fail(archive.error, wishes.archive);
  out.line("would install " + archive.version + " at " + target);
  out.line(before.empty() ? "nothing is there now" : "would replace " + before);
  for (const TKSRunningApplication& application : platform::runningApplications().list()) {
    if (application.bundleIdentifier != TKSAppBundleID) continue;
    out.line("would end process " + std::to_string(application.processIdentifier) + ", " +
             oneLine(application.bundlePath));
  }
  return Exit::ok;
}

Exit perform(Context& context, const Wishes& wishes, const std::string& target) {
  context.interrupts.hold();
  ProgressBar bar(context.out);
  TKSArray steps;
  TKSInstallation::setProgressBlock([&](const TKSInstallProgress& progress) {
    const std::string_view name = TKSInstallStepName(progress.step);
    bar.show(static_cast<int>(progress.step), progress.numberOfSteps, name, progress.bytesDone, progress.bytesTotal);
    if (steps.empty() || steps[steps.size() - 1].text() != name) steps.append(name);
  });
  const FirstFailure failure;
  const bool isInstalled = TKSUtilBase::installTKSVersion(wishes.version, wishes.archive, target);
  TKSInstallation::setProgressBlock({});
  bar.clear();
  context.out.set("steps", steps);
  if (!isInstalled) return failure.tell(context.out, "the launcher was not installed");
  context.out.line("installed " + wishes.version + " at " + target);
  // The library never stops half-way: what a signal asked for comes too late.
  return context.interrupts.came() ? context.out.fail(Exit::interrupted, "interrupted after the installation")
                                   : Exit::ok;
}

Exit install(Context& context, const Wishes& given) {
  Wishes wishes = given;
  wishes.archive = fs::absolute(given.archive).lexically_normal().string();
  if (!fs::is_regular_file(wishes.archive))
    return context.out.fail(Exit::failed, "there is no archive at " + given.archive);
  const std::string target = targetOf(wishes);
  TKSIAppManager manager;
  const std::string before = manager.getBundleVersion(target).value_or("");
  context.out.set("path", target);
  context.out.set("dryRun", wishes.dryRun);
  setVersions(context.out, before, before);
  if (!wishes.force && !manager.isBackupVersionNewer(wishes.version, target)) {
    context.out.note("version " + before + " is installed, " + wishes.version + " is not newer (see --force)");
    return Exit::nothingToDo;
  }
  if (wishes.dryRun) return rehearse(context, wishes, target, before);
  const Exit code = perform(context, wishes, target);
  setVersions(context.out, before, manager.getBundleVersion(target).value_or(""));
  return code;
}

}  // namespace

Command installCommand() {
  return {
      .name = "install",
      .summary = "installs the launcher of an archive",
      .description =
          "Does what a host with an archive does: unpacks in a private folder, checks who signed the launcher and "
          "which version it is, ends running launchers, puts it in place in one step, and assesses it. The place has "
          "the old launcher or the new one at every moment. A launcher that is as new stays (exit code 3).\n\n"
          "Ctrl-C lets the installation come to its end.",
      .examples = {{"tksctl install launcher.zip --version 5.1.0 --dry-run",
                    "What would be done, or why it would not."},
                   {"tksctl install launcher.zip --version 5.1.0", "Installs it at the standard path."}},
      .setUp = [](const CommandLine& line) -> Action {
        auto wishes = std::make_shared<Wishes>();
        line.option("zip", wishes->archive, "The archive").required().typeName("ZIP");
        line.option("--version", wishes->version, "Version of the launcher in it").required().typeName("V");
        line.option("--to", wishes->target, "Where to, instead of the standard path").typeName("PATH");
        line.flag("--dry-run", wishes->dryRun, "Check everything, change nothing");
        line.flag("--force", wishes->force, "Also when the installed launcher is as new");
        return [wishes](Context& context) { return install(context, *wishes); };
      }};
}

}  // namespace tks::ctl
