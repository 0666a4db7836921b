#include "install/PlaceLock.h"

#include "foundation/FilePaths.h"
#include "platform/platform.h"

namespace tks::install {

std::unique_ptr<platform::FileLock> lockPlace(std::string_view bundlePath, std::chrono::milliseconds patience,
                                              TKSError* error) {
  const std::string_view parent = folderOf(bundlePath);
  return platform::files().lock(parent.empty() ? "." : parent, patience, error);
}

}  // namespace tks::install
