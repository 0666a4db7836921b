#include "install/PlaceLock.h"

#include "foundation/FilePaths.h"
#include "platform/platform.h"

namespace tks::install {

std::unique_ptr<platform::FileLock> lockPlace(std::string_view bundlePath, std::chrono::milliseconds patience,
                                              TKSError* error) {
  const std::string_view parent = folderOf(bundlePath);
  const std::string_view place = parent.empty() ? "." : parent;
  // What does not exist would be made as a file to lock.
  return platform::files().isDirectory(place) ? platform::files().lock(place, patience, error) : nullptr;
}

}  // namespace tks::install
