#include "platform/linux/files/users_folders.h"

#include <algorithm>

#include "foundation/values/FilePaths.h"
#include "platform/backend.h"
#include "platform/known_folders.h"
#include "platform/users_folders.h"

namespace tks::gnulinux {
namespace {

constexpr std::string_view kHomes = "/home/";
/// Masked everywhere.
constexpr std::string_view kUsers = "/users/";

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  for (char& byte : lower) byte = byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
  return lower;
}

}  // namespace

std::vector<std::string> usersFoldersWith(std::string_view realHome) {
  std::vector<std::string> folders{std::string(kHomes)};
  const std::string parent = lowerCase(folderPart(realHome));
  // A home at the top, like root's, makes no users' folder of the whole system.
  const bool isKnown = parent == "/" || parent == kHomes || parent == kUsers;
  if (parent.starts_with('/') && !isKnown) folders.push_back(parent);
  std::ranges::sort(folders, std::ranges::greater(), &std::string::size);
  return folders;
}

}  // namespace tks::gnulinux

namespace tks::platform {
namespace {

class LinuxUsersFolders final : public UsersFolders {
 public:
  /// Of the process's own user, whose home stays the same: lines are masked too often to ask the password database
  /// again.
  std::span<const std::string> list() override {
    static const auto& folders =
        *new std::vector<std::string>(gnulinux::usersFoldersWith(backend<KnownFolders>().realHome()));
    return folders;
  }
};

}  // namespace

template <>
UsersFolders& backend<UsersFolders>() {
  static auto& folders = *new LinuxUsersFolders;
  return folders;
}

}  // namespace tks::platform
