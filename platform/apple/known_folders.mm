#import <Foundation/Foundation.h>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "foundation/values/FilePaths.h"
#include "platform/apple/conversions.h"
#include "platform/backend.h"
#include "platform/known_folders.h"
#include "platform/posix/paths.h"

namespace tks::platform {
namespace {

constexpr std::size_t kLargestPasswordEntry = 1024 * 1024;

/// Whether the folder is this user's and nobody else can write to it.
bool isPrivate(const std::string& folder) {
  struct stat facts {};
  return stat(folder.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode) && facts.st_uid == geteuid() &&
         (facts.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

class AppleFolders final : public KnownFolders {
 public:
  std::string realHome() override {
    std::vector<char> buffer(4096);
    for (;;) {
      passwd entry{};
      passwd* found = nullptr;
      const int result = getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found);
      if (result == EINTR) continue;
      if (result == ERANGE && buffer.size() < kLargestPasswordEntry) {
        buffer.resize(buffer.size() * 2);
        continue;
      }
      if (result != 0 || found == nullptr || found->pw_dir == nullptr || found->pw_dir[0] != '/') return "/nonexistent";
      return withoutClosingSlashes(found->pw_dir);
    }
  }

  std::string temporary() override {
    @autoreleasepool {
      std::string folder = withoutClosingSlashes(apple::fromString(NSTemporaryDirectory()));
      return isPrivate(folder) ? folder : std::string();
    }
  }

  std::string documents() override {
    @autoreleasepool {
      NSArray<NSString*>* folders =
          NSSearchPathForDirectoriesInDomains(NSDocumentDirectory, NSUserDomainMask, /*expandTilde=*/YES);
      return apple::fromString(folders.lastObject);
    }
  }
};

}  // namespace

template <>
KnownFolders& backend<KnownFolders>() {
  static auto& folders = *new AppleFolders;
  return folders;
}

}  // namespace tks::platform
