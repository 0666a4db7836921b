#include "install/PlaceLock.h"

#include "foundation/values/FilePaths.h"
#include "platform/platform.h"

namespace tks::install {
namespace {

std::string_view placeOf(std::string_view bundlePath) {
  const std::string_view parent = folderOf(bundlePath);
  return parent.empty() ? "." : parent;
}

/// A root and the working folder are no bundles, nor is what leads back up: nobody replaces them, and a lock on the
/// folder above would hold up everybody who has work there.
bool namesABundle(std::string_view path) {
  const std::string_view name = lastPathComponent(path);
  return !name.empty() && name != "/" && name != "." && name != "..";
}

}  // namespace

std::unique_ptr<platform::FileLock> lockPlace(std::string_view bundlePath, Patience& patience, TKSError* error) {
  if (!namesABundle(bundlePath)) return nullptr;
  const std::string_view place = placeOf(bundlePath);
  // What does not exist would be made as a file to lock.
  return platform::files().isDirectory(place) ? patience.lock(place, error) : nullptr;
}

bool isUsablePlace(std::string_view bundlePath) {
  // Its own entry in it can be looked at only when it may be entered.
  return namesABundle(bundlePath) && platform::files().isDirectory(joinedPath(placeOf(bundlePath), "."));
}

}  // namespace tks::install
