#include "platform/linux/processes/process_table.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <memory>
#include <string_view>

#include "platform/posix/file_descriptor.h"

namespace tks::gnulinux {
namespace {

constexpr std::string_view kRemoved = " (deleted)";
/// Fields of a stat line that stand between the state and the start time.
constexpr int kFieldsToStartTime = 19;

std::array<char, 40> procPath(pid_t process, const char* file) {
  std::array<char, 40> path{};
  std::snprintf(path.data(), path.size(), "/proc/%d/%s", static_cast<int>(process), file);
  return path;
}

/// Reads "PID (NAME) STATE ... STARTTIME ...". The name may hold anything, blanks and brackets as well.
std::optional<ProcessFacts> parseStat(std::string_view line) {
  const std::size_t name = line.rfind(") ");
  if (name == std::string_view::npos || name + 2 >= line.size()) return std::nullopt;
  line.remove_prefix(name + 2);
  ProcessFacts facts;
  facts.state = line.front();
  for (int i = 0; i < kFieldsToStartTime; ++i) {
    const std::size_t blank = line.find(' ');
    if (blank == std::string_view::npos) return std::nullopt;
    line.remove_prefix(blank + 1);
  }
  if (std::from_chars(line.data(), line.data() + line.size(), facts.startTime).ec != std::errc()) return std::nullopt;
  return facts;
}

}  // namespace

bool hasProcessTable() {
  std::array<char, 16> self;
  const ssize_t size = ::readlink("/proc/self", self.data(), self.size());
  if (size < 0) return false;
  if (std::string_view(self.data(), static_cast<std::size_t>(size)) == std::to_string(::getpid())) return true;
  errno = ESRCH;
  return false;
}

std::optional<ProcessFacts> readProcessFacts(pid_t process) {
  const posix::FileDescriptor file(
      posix::retried([&] { return ::open(procPath(process, "stat").data(), O_RDONLY | O_CLOEXEC); }));
  std::array<char, 1024> line;
  struct stat owner {};
  if (!file || ::fstat(file.get(), &owner) != 0) return std::nullopt;
  const ssize_t size = posix::retried([&] { return ::read(file.get(), line.data(), line.size()); });
  if (size <= 0) return std::nullopt;
  std::optional<ProcessFacts> facts = parseStat({line.data(), static_cast<std::size_t>(size)});
  if (facts) facts->owner = owner.st_uid;
  return facts;
}

std::optional<std::string> executablePath(pid_t process) {
  std::array<char, PATH_MAX> target;
  const ssize_t size = ::readlink(procPath(process, "exe").data(), target.data(), target.size());
  if (size <= 0) return std::nullopt;
  std::string_view path(target.data(), static_cast<std::size_t>(size));
  if (path.ends_with(kRemoved)) path.remove_suffix(kRemoved.size());
  return std::string(path);
}

bool hasOpenForWriting(pid_t process, const platform::ChannelIdentity& file) {
  const std::string folder = procPath(process, "fd").data();
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(folder.c_str()), ::closedir);
  if (!entries) return false;
  while (const dirent* entry = ::readdir(entries.get())) {
    const std::string path = folder + "/" + entry->d_name;
    struct stat target {};
    struct stat link {};
    if (::stat(path.c_str(), &target) != 0 || ::lstat(path.c_str(), &link) != 0 || !S_ISLNK(link.st_mode)) continue;
    const platform::ChannelIdentity found{static_cast<std::uint64_t>(target.st_dev),
                                          static_cast<std::uint64_t>(target.st_ino)};
    // The rights of such a link tell how the file was opened.
    if (found == file && (link.st_mode & S_IWUSR) != 0) return true;
  }
  return false;
}

std::vector<pid_t> allProcesses() {
  std::vector<pid_t> processes;
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir("/proc"), ::closedir);
  if (!folder) return processes;
  while (const dirent* entry = ::readdir(folder.get())) {
    const std::string_view name = entry->d_name;
    pid_t process = 0;
    const auto [end, failure] = std::from_chars(name.data(), name.data() + name.size(), process);
    if (failure == std::errc() && end == name.data() + name.size()) processes.push_back(process);
  }
  return processes;
}

}  // namespace tks::gnulinux
