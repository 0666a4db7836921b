#pragma once

#include <dirent.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <set>
#include <thread>

#include "tests/support/ProcessTable.h"

namespace tks::test {

/// The open descriptors of this process.
inline std::set<int> openDescriptors() {
  std::set<int> found;
  DIR* folder = ::opendir("/dev/fd");
  if (folder == nullptr) return found;
  while (const dirent* entry = ::readdir(folder)) {
    const int descriptor = std::atoi(entry->d_name);
    if (entry->d_name[0] != '.' && descriptor != ::dirfd(folder)) found.insert(descriptor);
  }
  ::closedir(folder);
  return found;
}

/// Opens 5,000 descriptors that are not close-on-exec; false when the system does not allow that.
inline bool holdManyDescriptors() {
  constexpr int kMany = 5000;
  const rlimit limit{kMany + 1000, kMany + 1000};
  if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) return false;
  int last = 0;
  while (last >= 0 && last < kMany) last = ::dup(0);
  return last >= 0;
}

/// Waits for something that other threads or processes bring about. False when the time is over first.
inline bool waitUntil(const std::function<bool()>& holds, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!holds()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace tks::test
