#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <tksinterface/TKSUtilBase.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "platform/platform.h"
#include "tools/tksctl/doctor/report.h"

// Installations lock the folder of the launcher and the folder that they unpack to.

namespace tks::ctl::doctor {
namespace {

namespace fs = std::filesystem;

/// Device and inode, as the kernel's list of locks has them, to who holds the lock.
using Holders = std::map<std::string, int>;

Holders readHolders() {
  Holders holders;
  std::ifstream file("/proc/locks");
  for (std::string line; std::getline(file, line);) {
    // 1: FLOCK  ADVISORY  WRITE 1234 08:01:5678 0 EOF
    std::istringstream words(line);
    std::string number, kind, manner, access, place;
    int process = 0;
    if (line.find("->") == std::string::npos && words >> number >> kind >> manner >> access >> process >> place) {
      holders.emplace(place, process);
    }
  }
  return holders;
}

std::string keyOf(const std::string& path) {
  struct stat facts {};
  if (::stat(path.c_str(), &facts) != 0) return {};
  char text[64];
  std::snprintf(text, sizeof text, "%02x:%02x:%llu", major(facts.st_dev), minor(facts.st_dev),
                static_cast<unsigned long long>(facts.st_ino));
  return text;
}

std::string processName(int process) {
  if (process <= 0) return "a process that the kernel does not name";
  std::string name;
  std::getline(std::ifstream("/proc/" + std::to_string(process) + "/comm") >> std::ws, name);
  return "process " + std::to_string(process) + (name.empty() ? "" : " (" + name + ")");
}

void checkLock(Report& report, const std::string& id, const std::string& title, const std::string& path) {
  constexpr std::chrono::milliseconds kPatience{500};
  if (!platform::files().isDirectory(path)) return report.skip(id, title, "there is no folder yet");
  TKSError error;
  const auto lock = platform::files().lock(path, kPatience, &error);
  if (lock) return report.pass(id, title, "free");
  if (error.reason != TKSErrorReason::busy) {
    return report.fail(id, title, error.localizedDescription, "Give this user access to " + path + ".",
                       Exit::noPermission);
  }
  const Holders holders = readHolders();
  const auto holder = holders.find(keyOf(path));
  const std::string who = processName(holder == holders.end() ? 0 : holder->second);
  report.fail(id, title, path + " is held by " + who,
              "Wait until its installation is done; if it hangs, end " + who + ".", Exit::timedOut);
}

}  // namespace

void checkLocks(Report& report) {
  const std::string launchers = fs::path(TKSUtilBase::getStandardTKSPath()).parent_path().string();
  checkLock(report, "locks.addOns", "lock of the folder of launchers", launchers);
  const std::string temporary = platform::knownFolders().temporary();
  checkLock(report, "locks.temporary", "lock of installations", temporary);
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(temporary, ignored)) {
    const std::string path = entry.path().string();
    if (entry.is_directory(ignored) && readHolders().contains(keyOf(path))) {
      checkLock(report, "locks.host", "lock of a host's installations", path);
    }
  }
}

}  // namespace tks::ctl::doctor
