#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <system_error>
#include <vector>

namespace tks::test {

/// How many threads the system starts and ends in this process as it likes.
inline constexpr std::size_t kThreadsOfTheSystem = 0;

/// What a link of the kernel's leads to; empty when there is none.
inline std::string linkTarget(const std::string& link) {
  std::array<char, PATH_MAX> target;
  const ssize_t size = ::readlink(link.c_str(), target.data(), target.size());
  return size > 0 ? std::string(target.data(), static_cast<std::size_t>(size)) : std::string();
}

inline std::string executableOf(int process) { return linkTarget("/proc/" + std::to_string(process) + "/exe"); }

inline std::string targetOf(int descriptor) { return linkTarget("/proc/self/fd/" + std::to_string(descriptor)); }

inline std::vector<int> allProcesses() {
  std::vector<int> found;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const int process = std::atoi(entry.path().filename().c_str());
    if (process > 0) found.push_back(process);
  }
  return found;
}

inline std::set<int> children(int process = ::getpid()) {
  std::set<int> found;
  std::error_code gone;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task", gone)) {
    std::ifstream file(thread.path() / "children");
    for (int child = 0; file >> child;) found.insert(child);
  }
  return found;
}

/// The value of a field of a process's status; empty when the process is gone.
inline std::string statusOf(int process, const std::string& field) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string name, value; status >> name && std::getline(status >> std::ws, value);) {
    if (name == field + ":") return value;
  }
  return {};
}

inline bool isRunning(int process) {
  const std::string state = statusOf(process, "State");
  return !state.empty() && state[0] != 'Z' && state[0] != 'X';
}

inline bool ignoresSignal(int process, int signal) {
  const std::string ignored = statusOf(process, "SigIgn");
  return !ignored.empty() && (std::stoull(ignored, nullptr, 16) >> (signal - 1) & 1) != 0;
}

/// How many entries a folder of the kernel's for a process has; none when the process is gone.
inline std::size_t entriesOf(int process, const std::string& folder) {
  std::error_code gone;
  const std::filesystem::directory_iterator entries("/proc/" + std::to_string(process) + "/" + folder, gone);
  return gone ? 0 : static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

inline std::size_t threadCount(int process = ::getpid()) { return entriesOf(process, "task"); }

inline std::size_t descriptorCount(int process) { return entriesOf(process, "fd"); }

inline std::size_t residentBytes() {
  std::size_t pages = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/self/statm") >> pages >> resident;
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

}  // namespace tks::test
