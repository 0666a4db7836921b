#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <tksinterface/TKSUtilBase.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "platform/platform.h"
#include "tools/tksctl/doctor/report.h"

namespace tks::ctl::doctor {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kMebibyte = 1024u * 1024;
/// Below this nothing can be installed, and below that it soon cannot.
constexpr std::uint64_t kTooLittle = 64 * kMebibyte;
constexpr std::uint64_t kLittle = 512 * kMebibyte;

struct Folder {
  std::string id;
  std::string title;
  std::string path;
  /// Programs in it are started.
  bool holdsPrograms = false;
  /// It comes into being when it is needed.
  bool mayBeMissing = true;
};

std::string nameOfUser(uid_t user) {
  const passwd* entry = ::getpwuid(user);
  return entry == nullptr ? "user " + std::to_string(user) : entry->pw_name;
}

/// The folder itself, or the nearest one above that is there.
std::string nearest(std::string path) {
  while (path.size() > 1 && !fs::exists(fs::symlink_status(path))) path = fs::path(path).parent_path().string();
  return path;
}

std::string inMebibytes(std::uint64_t bytes) { return std::to_string(bytes / kMebibyte) + " MiB"; }

/// Owner, rights, kind. False when it was told of already.
bool checkRights(Report& report, const Folder& folder, const std::string& there) {
  struct stat facts {};
  if (::stat(there.c_str(), &facts) != 0) {
    report.fail(folder.id, folder.title, there + " leads to nothing", "Remove the link or make its target: " + there,
                Exit::failed);
    return false;
  }
  if (!S_ISDIR(facts.st_mode)) {
    report.fail(folder.id, folder.title, there + " is no folder", "Move away what stands there: " + there);
    return false;
  }
  if (::access(there.c_str(), W_OK | X_OK) == 0 || errno == EROFS) return true;
  const std::string owner = nameOfUser(facts.st_uid);
  report.fail(folder.id, folder.title, there + " belongs to " + owner + ", and this user may not write to it",
              "Give it to this user: chown " + nameOfUser(::geteuid()) + " \"" + there + "\"", Exit::noPermission);
  return false;
}

/// Room for files and for their bytes. Volumes that count neither tell a total of 0.
bool checkRoom(Report& report, const Folder& folder, const std::string& there, const struct statvfs& volume) {
  if (volume.f_files != 0 && volume.f_favail == 0) {
    report.fail(folder.id, folder.title, there + ": no room for one more file",
                "Remove files from the volume of " + there + ".");
    return false;
  }
  const std::uint64_t free = static_cast<std::uint64_t>(volume.f_bavail) * volume.f_frsize;
  if (volume.f_blocks == 0 || free >= kLittle) return true;
  const std::string seen = there + ": " + inMebibytes(free) + " free";
  const std::string remedy = "Free space on the volume of " + there + ".";
  free < kTooLittle ? report.fail(folder.id, folder.title, seen, remedy)
                    : report.warn(folder.id, folder.title, seen, remedy);
  return false;
}

/// The volume: read-only, without programs, full.
bool checkVolume(Report& report, const Folder& folder, const std::string& there) {
  struct statvfs volume {};
  if (::statvfs(there.c_str(), &volume) != 0) return true;
  if ((volume.f_flag & ST_RDONLY) != 0) {
    report.fail(folder.id, folder.title, there + " is on a read-only volume", "Mount the volume for writing.",
                Exit::noPermission);
    return false;
  }
  if (folder.holdsPrograms && (volume.f_flag & ST_NOEXEC) != 0) {
    report.fail(folder.id, folder.title, there + " is on a volume with noexec, no launcher can be started there",
                "Mount the volume without noexec, or use a launcher elsewhere (--launcher).", Exit::noPermission);
    return false;
  }
  return checkRoom(report, folder, there, volume);
}

bool checkOddities(Report& report, const Folder& folder, const std::string& there) {
  if (fs::is_symlink(fs::symlink_status(folder.path))) {
    report.warn(folder.id, folder.title, folder.path + " is a link to " + fs::read_symlink(folder.path).string(),
                "Replace the link by a folder: installations go through it.");
    return false;
  }
  const bool hasAttributes =
      ::getxattr(there.c_str(), "user.com.apple.quarantine", nullptr, 0) >= 0 || errno != ENOTSUP;
  if (hasAttributes || !folder.holdsPrograms) return true;
  report.warn(folder.id, folder.title, there + " is on a volume without extended attributes",
              "Nothing has to be done; marks of downloads and signatures of single files are kept in side-cars.");
  return false;
}

void checkFolder(Report& report, const Folder& folder) {
  const std::string there = nearest(folder.path);
  if (there != folder.path && !folder.mayBeMissing) {
    return report.fail(folder.id, folder.title, folder.path + " is not there",
                       "Make the folder, or correct the user's entry in the password database.");
  }
  if (!checkRights(report, folder, there) || !checkVolume(report, folder, there)) return;
  if (!checkOddities(report, folder, there)) return;
  report.pass(folder.id, folder.title, there == folder.path ? there : folder.path + " (comes when it is needed)");
}

void checkTemporary(Report& report) {
  const std::string temporary = platform::knownFolders().temporary();
  const std::string id = "folders.temporary";
  const std::string title = "temporary folder";
  if (temporary.empty()) {
    return report.fail(id, title, "there is none that nobody else can write to",
                       "Let TMPDIR name a folder of this user with the mode 0700.", Exit::noPermission);
  }
  const char* named = std::getenv("TMPDIR");
  std::error_code ignored;
  const bool isNamed = named != nullptr && fs::weakly_canonical(named, ignored) == fs::path(temporary);
  if (named != nullptr && *named != '\0' && !isNamed) {
    return report.warn(id, title, std::string(named) + " is not this user's alone, " + temporary + " is used instead",
                       "Give the folder that TMPDIR names to this user, with the mode 0700.");
  }
  checkFolder(report, {id, title, temporary});
}

}  // namespace

void checkFolders(Report& report) {
  const std::string home = TKSUtilBase::getRealHomeDirectory();
  const std::string launchers = fs::path(TKSUtilBase::getStandardTKSPath()).parent_path().string();
  checkFolder(report, {"folders.home", "home", home, false, false});
  checkFolder(report, {"folders.addOns", "folder of launchers", launchers, true});
  checkFolder(report, {"folders.data", "folder of meeting data", TKSUtilBase::getKovraDataPath()});
  checkFolder(report, {"folders.preferences", "folder of preferences", TKSUtilBase::getUserPreferenceDirectory()});
  checkTemporary(report);
}

}  // namespace tks::ctl::doctor
