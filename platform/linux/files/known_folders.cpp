#include "platform/known_folders.h"
#include "foundation/values/FilePaths.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/backend.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/paths.h"

namespace tks::platform {
namespace {

constexpr std::size_t kLargestPasswordEntry = 1024 * 1024;

/// Where nothing is and nothing can be made: the home of users that have none.
constexpr std::string_view kNoHome = "/nonexistent";

/// The home folder in the password database.
std::string homeFromPasswordDatabase() {
  std::vector<char> buffer(4096);
  for (;;) {
    passwd entry{};
    passwd* found = nullptr;
    const int result = ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found);
    if (result == EINTR) continue;
    if (result == ERANGE && buffer.size() < kLargestPasswordEntry) {
      buffer.resize(buffer.size() * 2);
      continue;
    }
    if (result != 0 || found == nullptr || found->pw_dir == nullptr || found->pw_dir[0] != '/')
      return std::string(kNoHome);
    return withoutClosingSlashes(found->pw_dir);
  }
}

/// Whether the folder is this user's and nobody else can write to it.
bool isPrivate(const struct stat& status) {
  return S_ISDIR(status.st_mode) && status.st_uid == ::geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// The folder that TMPDIR names, with links resolved, when it can be trusted.
std::string temporaryFolderOfEnvironment() {
  const char* named = std::getenv("TMPDIR");
  if (named == nullptr || named[0] != '/') return {};
  const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(named, nullptr), &std::free);
  struct stat status {};
  if (!resolved || ::lstat(resolved.get(), &status) != 0 || !isPrivate(status)) return {};
  return resolved.get();
}

/// The folder of our own below /tmp, made when missing. Others may have put something under its name: only a folder of
/// this user is taken, never a link; others' rights to it are removed.
std::string ownTemporaryFolder() {
  std::string path = "/tmp/tksinterface-" + std::to_string(::geteuid());
  if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) return {};
  const posix::FileDescriptor folder(
      posix::retried([&] { return ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); }));
  struct stat status {};
  if (!folder || ::fstat(folder.get(), &status) != 0 || !isPrivate(status)) return {};
  if ((status.st_mode & 07777) != 0700 && ::fchmod(folder.get(), 0700) != 0) return {};
  return path;
}

class LinuxKnownFolders final : public KnownFolders {
 public:
  std::string realHome() override { return homeFromPasswordDatabase(); }

  std::string temporary() override {
    std::string folder = temporaryFolderOfEnvironment();
    return folder.empty() ? ownTemporaryFolder() : folder;
  }

  std::string documents() override { return homeFromPasswordDatabase() + "/Documents"; }
};

}  // namespace

template <>
KnownFolders& backend<KnownFolders>() {
  static auto& folders = *new LinuxKnownFolders;
  return folders;
}

}  // namespace tks::platform
