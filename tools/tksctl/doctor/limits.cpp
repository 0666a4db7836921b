#include <sys/inotify.h>
#include <sys/resource.h>
#include <tksinterface/TKSConstants.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <thread>

#include "platform/platform.h"
#include "tools/tksctl/doctor/report.h"

namespace tks::ctl::doctor {
namespace {

/// A conversation takes about thirty.
constexpr rlim_t kFewDescriptors = 64;

void checkInotify(Report& report) {
  const std::string id = "limits.inotify";
  const std::string title = "inotify";
  const int watcher = ::inotify_init1(IN_CLOEXEC);
  const int watch = watcher < 0 ? -1 : ::inotify_add_watch(watcher, "/", IN_CREATE);
  const int problem = errno;
  if (watcher >= 0) ::close(watcher);
  if (watch >= 0) return report.pass(id, title, "watches are to be had");
  const std::string setting = watcher < 0 ? "fs.inotify.max_user_instances" : "fs.inotify.max_user_watches";
  report.warn(id, title,
              std::string("no watches are to be had (") + std::strerror(problem) +
                  "); conversations over files are looked at by the clock",
              "Raise the limit: sysctl " + setting + ", or end programs that watch many files.");
}

void checkDescriptors(Report& report) {
  const std::string id = "limits.descriptors";
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_cur >= kFewDescriptors) {
    const std::string most = limit.rlim_cur == RLIM_INFINITY ? "any number" : std::to_string(limit.rlim_cur);
    return report.pass(id, "descriptors", most + " allowed");
  }
  report.fail(id, "descriptors", "only " + std::to_string(limit.rlim_cur) + " allowed",
              "Raise the limit of open files: ulimit -n 1024.");
}

void checkThreads(Report& report) {
  try {
    std::thread([] {}).join();
    report.pass("limits.threads", "threads", "can be made");
  } catch (const std::system_error& error) {
    report.fail("limits.threads", "threads", std::string("none can be made: ") + error.what(),
                "Raise the limit of processes (ulimit -u), or end programs that are not needed.");
  }
}

/// The parent of a process; 0 when it is not known.
int parentOf(int process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("PPid:")) return std::stoi(line.substr(5));
  }
  return 0;
}

void checkProcesses(Report& report) {
  TKSError error;
  if (!platform::runningApplications().canLookUp(&error)) {
    return report.fail("processes.table", "process table", "cannot be read: " + error.localizedDescription,
                       "Mount /proc in the container or sandbox.");
  }
  report.pass("processes.table", "process table", "readable");
  std::string left;
  std::string running;
  for (const TKSRunningApplication& application : platform::runningApplications().list()) {
    if (application.bundleIdentifier != TKSAppBundleID) continue;
    std::string& list = parentOf(application.processIdentifier) == 1 ? left : running;
    list.append(list.empty() ? "" : ", ").append(std::to_string(application.processIdentifier));
  }
  if (!left.empty()) {
    return report.warn("processes.left", "processes left", "launchers whose host is gone: " + left,
                       "End them: kill " + left + ". A launcher ends with its host unless it hangs.");
  }
  report.pass("processes.left", "processes left", running.empty() ? "none" : "none; launchers that work: " + running);
}

}  // namespace

void checkLimits(Report& report) {
  checkInotify(report);
  checkDescriptors(report);
  checkThreads(report);
  checkProcesses(report);
}

}  // namespace tks::ctl::doctor
