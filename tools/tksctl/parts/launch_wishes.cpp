#include "tools/tksctl/parts/launch_wishes.h"

#include <chrono>
#include <filesystem>
#include <memory>

namespace tks::ctl {

namespace fs = std::filesystem;

void addLaunchOptions(const CommandLine& line, LaunchWishes& wishes) {
  line.option("--launcher", wishes.launcher, "The launcher; else the one at the standard path").typeName("PATH");
  const Option backup =
      line.option("--backup", wishes.backup, "An archive with a launcher, installed when it is newer");
  const Option version = line.option("--version", wishes.version, "Version of the launcher in the archive");
  backup.typeName("ZIP").needs(version);
  version.typeName("V").needs(backup);
  line.flag("--files", wishes.files, "Talk over files, as team-messaging hosts do");
  line.option("--timeout", wishes.timeout, "How long to wait, in seconds")
      .typeName("SECONDS")
      .showsDefault()
      .between(1, 3600);
}

std::optional<Exit> apply(const LaunchWishes& wishes, TKSInterface& facade, Output& out) {
  if (!wishes.backup.empty()) {
    if (!fs::is_regular_file(wishes.backup)) return out.fail(Exit::failed, "there is no archive at " + wishes.backup);
    facade.setBackupTKSZipPath(fs::absolute(wishes.backup).string(), wishes.version);
  }
  if (wishes.launcher.empty()) return std::nullopt;
  // With an archive a launcher may come into being there.
  if (wishes.backup.empty() && !fs::is_directory(wishes.launcher)) {
    return out.fail(Exit::brokenLauncher, "there is no launcher at " + wishes.launcher);
  }
  facade.setTKSAppPath(fs::absolute(wishes.launcher).lexically_normal().string());
  return std::nullopt;
}

void endConversation(TKSInterface& facade, Interrupts& interrupts) {
  constexpr std::chrono::seconds kPatience{5};
  const auto isOver = std::make_shared<bool>(false);
  facade.stop([isOver] { *isOver = true; }, [isOver](const TKSError&) { *isOver = true; });
  interrupts.finishWithin(kPatience, [&] { return *isOver; });
}

}  // namespace tks::ctl
