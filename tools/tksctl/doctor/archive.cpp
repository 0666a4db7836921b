#include <tksinterface/TKSIAppManager.h>

#include <filesystem>

#include "tools/tksctl/doctor/report.h"
#include "tools/tksctl/parts/archives.h"

namespace tks::ctl::doctor {
namespace {

void checkNewer(Report& report, const Wishes& wishes, const std::string& version) {
  const std::string path = launcherPath(wishes);
  TKSIAppManager manager;
  const std::string installed = manager.getBundleVersion(path).value_or("none");
  const bool isNewer = manager.isBackupVersionNewer(version, path);
  report.pass("archive.newer", "its launcher",
              "version " + version + (isNewer ? " is newer than " : " is not newer than ") + installed +
                  (isNewer ? ": it would be installed" : ": the installed one stays"));
}

}  // namespace

void checkArchive(Report& report, const Wishes& wishes) {
  if (wishes.backup.empty()) return report.skip("archive.readable", "archive", "none was given (--backup)");
  const std::string path = std::filesystem::absolute(wishes.backup).string();
  const ArchiveReport archive = examineArchive(path, wishes.version);
  const std::string why = archive.error.localizedDescription;
  if (!archive.isReadable) {
    return report.fail("archive.readable", "archive", path + ": " + why,
                       "Check the path, and get the archive again from the maker.", exitFor(archive.error));
  }
  report.pass("archive.readable", "archive", path + ", " + std::to_string(archive.entries) + " entries");
  if (!archive.version.empty()) checkNewer(report, wishes, archive.version);
  if (archive.isSafe)
    return report.pass("archive.safe", "safe to install", "signed by the maker, version " + archive.version);
  std::string remedy = archive.error.recoverySuggestion;
  if (archive.error.reason == TKSErrorReason::notTrusted)
    remedy = "Get the archive from the maker; do not install this one.";
  report.fail("archive.safe", "safe to install", why, remedy, exitFor(archive.error));
}

}  // namespace tks::ctl::doctor
