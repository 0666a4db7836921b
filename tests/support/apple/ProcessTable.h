#pragma once

#include <fcntl.h>
#include <libproc.h>
#include <sys/stat.h>
#include <sys/sysctl.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tks::test {

/// How many threads the system starts and ends in this process as it likes: those of the dispatch queues.
inline constexpr std::size_t kThreadsOfTheSystem = 64;

inline std::string executableOf(int process) {
  std::array<char, PROC_PIDPATHINFO_MAXSIZE> path{};
  return ::proc_pidpath(process, path.data(), path.size()) > 0 ? std::string(path.data()) : std::string();
}

inline std::string targetOf(int descriptor) {
  std::array<char, PATH_MAX> path{};
  if (::fcntl(descriptor, F_GETPATH, path.data()) == 0) return path.data();
  struct stat facts {};
  if (::fstat(descriptor, &facts) != 0) return {};
  return (S_ISFIFO(facts.st_mode) ? "pipe:" : "other:") + std::to_string(facts.st_ino);
}

/// The kernel's records of all processes, zombies included.
inline std::vector<kinfo_proc> processRecords() {
  std::array<int, 4> question = {CTL_KERN, KERN_PROC, KERN_PROC_ALL, 0};
  for (;;) {
    std::size_t size = 0;
    if (::sysctl(question.data(), question.size(), nullptr, &size, nullptr, 0) != 0) return {};
    std::vector<kinfo_proc> records(size / sizeof(kinfo_proc) + 64);  // some may come meanwhile
    size = records.size() * sizeof(kinfo_proc);
    if (::sysctl(question.data(), question.size(), records.data(), &size, nullptr, 0) != 0) continue;
    records.resize(size / sizeof(kinfo_proc));
    return records;
  }
}

inline std::optional<kinfo_proc> recordOf(int process) {
  for (const kinfo_proc& record : processRecords()) {
    if (record.kp_proc.p_pid == process) return record;
  }
  return std::nullopt;
}

inline std::vector<int> allProcesses() {
  std::vector<int> found;
  for (const kinfo_proc& record : processRecords()) found.push_back(record.kp_proc.p_pid);
  return found;
}

inline std::set<int> children(int process = ::getpid()) {
  std::set<int> found;
  for (const kinfo_proc& record : processRecords()) {
    if (record.kp_eproc.e_ppid == process) found.insert(record.kp_proc.p_pid);
  }
  return found;
}

inline bool isRunning(int process) {
  const std::optional<kinfo_proc> record = recordOf(process);
  return record && record->kp_proc.p_stat != SZOMB;
}

inline bool ignoresSignal(int process, int signal) {
  const std::optional<kinfo_proc> record = recordOf(process);
  return record && (record->kp_proc.p_sigignore >> (signal - 1) & 1) != 0;
}

inline proc_taskinfo taskFacts(int process) {
  proc_taskinfo facts{};
  ::proc_pidinfo(process, PROC_PIDTASKINFO, 0, &facts, sizeof facts);
  return facts;
}

inline std::size_t threadCount(int process = ::getpid()) {
  return static_cast<std::size_t>(taskFacts(process).pti_threadnum);
}

inline std::size_t descriptorCount(int process) {
  std::vector<proc_fdinfo> descriptors(10000);
  const int space = static_cast<int>(descriptors.size() * sizeof(proc_fdinfo));
  const int bytes = ::proc_pidinfo(process, PROC_PIDLISTFDS, 0, descriptors.data(), space);
  return bytes > 0 ? static_cast<std::size_t>(bytes) / sizeof(proc_fdinfo) : 0;
}

inline std::size_t residentBytes() { return taskFacts(::getpid()).pti_resident_size; }

}  // namespace tks::test
