#import <Foundation/Foundation.h>

#include <pwd.h>
#include <unistd.h>

#include <vector>

#include "platform/apple/conversions.h"
#include "platform/backend.h"
#include "platform/known_folders.h"

namespace tks::platform {
namespace {

std::string withoutClosingSlash(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

class AppleFolders final : public KnownFolders {
 public:
  std::string realHome() override {
    const long suggested = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(suggested > 0 ? static_cast<std::size_t>(suggested) : 16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr)
      return "/nonexistent";
    return withoutClosingSlash(found->pw_dir);
  }

  std::string temporary() override {
    @autoreleasepool {
      return withoutClosingSlash(apple::fromString(NSTemporaryDirectory()));
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
