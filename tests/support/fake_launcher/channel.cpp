#include "tests/support/fake_launcher/channel.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "tests/support/fake_launcher/switches.h"

namespace fake_launcher {

void writeOut(int descriptor, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t count = ::write(descriptor, data, size);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) quit(3);
    data += count;
    size -= static_cast<std::size_t>(count);
  }
}

void Channel::write(std::string_view data) {
  const std::size_t piece = switches.has("--split") ? switches.size("--split") : data.size();
  while (!data.empty()) {
    std::string_view part = data.substr(0, std::max<std::size_t>(piece, 1));
    if (switches.has("--die-after-bytes")) {
      const std::uint64_t left = switches.size("--die-after-bytes") - written_;
      if (left <= part.size()) {
        writeOut(output(), part.data(), left);
        quit(0);
      }
    }
    writeOut(output(), part.data(), part.size());
    written_ += part.size();
    data.remove_prefix(part.size());
    if (switches.has("--pause")) sleepFor(switches.time("--pause"));
  }
}

std::size_t PipeChannel::read(char* into, std::size_t size) {
  while (true) {
    const ssize_t count = ::read(STDIN_FILENO, into, size);
    if (count >= 0) return static_cast<std::size_t>(count);
    if (errno != EINTR) return 0;
  }
}

int PipeChannel::output() const { return STDOUT_FILENO; }

FileChannel::FileChannel(const std::string& folder)
    : input_(::open((folder + "/ipcFile_Interface2TKS").c_str(), O_RDONLY | O_CLOEXEC)),
      output_(::open((folder + "/ipcFile_TKS2Interface").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC)),
      host_(::getppid()) {}

std::size_t FileChannel::read(char* into, std::size_t size) {
  while (::getppid() == host_) {
    const ssize_t count = ::read(input_, into, size);
    if (count < 0) return 0;
    if (count > 0) return static_cast<std::size_t>(count);
    struct stat facts {};
    if (::fstat(input_, &facts) != 0 || facts.st_nlink == 0) return 0;
    sleepFor(0.002);
  }
  return 0;
}

}  // namespace fake_launcher
