#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSIAppManager.h>
#include <tksinterface/TKSUtilBase.h>

#include <filesystem>

#include "platform/platform.h"
#include "tools/tksctl/commands/table.h"
#include "tools/tksctl/frame/json_values.h"

namespace tks::ctl {
namespace {

TKSArray runningLaunchers(Output& out) {
  TKSArray running;
  for (const TKSRunningApplication& application : platform::runningApplications().list()) {
    if (application.bundleIdentifier != TKSAppBundleID) continue;
    running.append(TKSDictionary{{"pid", application.processIdentifier}, {"path", application.bundlePath}});
    out.line("running:    process " + std::to_string(application.processIdentifier) + ", " +
             oneLine(application.bundlePath));
  }
  return running;
}

Exit tell(Context& context) {
  Output& out = context.out;
  const std::string path = TKSUtilBase::getStandardTKSPath();
  const bool isInstalled = std::filesystem::exists(path);
  const TKSValue version = TKSUtilBase::getBundleVersion(path);
  TKSError error;
  const bool isTrusted = isInstalled && TKSUtilBase::checkTrust(path, &error);
  out.line("launcher:   " + path);
  out.line("version:    " + (isInstalled ? version.description() : "not installed"));
  if (isInstalled) out.line("signature:  " + (isTrusted ? "good, the maker's" : oneLine(error.localizedDescription)));
  out.set("path", path);
  out.set("installed", isInstalled);
  out.set("version", version.isText() ? version : TKSValue(TKSNull()));
  out.set("trusted", isTrusted);
  out.set("running", runningLaunchers(out));
  out.set("testMode", TKSUtilBase::isTestModeTKS());
  if (TKSUtilBase::isTestModeTKS()) out.line("test mode:  on, launchers are started whoever signed them");
  TKSDictionary sites;
  TKSIAppManager manager;
  if (const auto recorded = manager.getRecordedSites()) sites = *recorded;
  for (const auto& [site, moment] : sites) {
    out.line("site:       " + oneLine(site) + ", last launch " + momentText(moment.real()));
  }
  out.set("sites", jsonable(sites));
  if (!isInstalled)
    return out.fail(Exit::brokenLauncher, "no launcher is installed", "Install one: tksctl install ZIP --version V.");
  return isTrusted ? Exit::ok : out.fail(Exit::notTrusted, error, "the installed launcher");
}

}  // namespace

Command statusCommand() {
  return {.name = "status",
          .summary = "shows which launcher is installed, and which run",
          .description =
              "The launcher at the standard path with version and signature, launchers that run, test mode, and "
              "the sites of earlier meetings. Ends with 0 when a launcher is installed and trusted.",
          .examples = {{"tksctl status", "What is there."}, {"tksctl status --json", "The same for programs."}},
          .setUp = [](const CommandLine&) -> Action { return tell; }};
}

}  // namespace tks::ctl
