#include "platform/apple/code_inside.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <string_view>

#include "foundation/values/FilePaths.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/tree_walk.h"

namespace tks::platform::apple {
namespace {

constexpr std::string_view kSignatureFolder = "_CodeSignature";
constexpr std::string_view kContents = "Contents";
/// Thin images of either size and byte order, and universal ones with short and long tables.
constexpr std::array<std::uint32_t, 6> kImages = {0xfeedface, 0xcefaedfe, 0xfeedfacf,
                                                  0xcffaedfe, 0xcafebabe, 0xcafebabf};

/// False, and errno, when the file cannot be read.
bool lookAt(const std::string& path, bool& isImage) {
  const posix::FileDescriptor file(
      posix::retried([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK); }));
  std::array<unsigned char, 4> begin{};
  const ssize_t count = file ? posix::retried([&] { return ::read(file.get(), begin.data(), begin.size()); }) : -1;
  const std::uint32_t number = (std::uint32_t{begin[0]} << 24) | (std::uint32_t{begin[1]} << 16) |
                               (std::uint32_t{begin[2]} << 8) | std::uint32_t{begin[3]};
  isImage = count == static_cast<ssize_t>(begin.size()) && std::ranges::find(kImages, number) != kImages.end();
  return count >= 0;
}

/// The bundle that a folder of signatures belongs to.
std::string bundleOf(const std::string& signatureFolder) {
  const std::string_view folder = folderOf(signatureFolder);
  return std::string(lastPathComponent(folder) == kContents ? folderOf(folder) : folder);
}

}  // namespace

std::optional<std::vector<std::string>> codeInside(const std::string& bundle) {
  const std::string root = withoutClosingSlashes(bundle);
  std::vector<std::string> found;
  bool looked = true;
  const auto visit = [&](const TreeItem& item) {
    const std::string path = joinedPath(root, item.name);
    bool isImage = false;
    if (item.kind == TreeItem::Kind::file) looked = lookAt(path, isImage);
    if (isImage) found.push_back(path);
    const bool isSignature = item.kind == TreeItem::Kind::folder && lastPathComponent(path) == kSignatureFolder;
    if (isSignature && bundleOf(path) != root) found.push_back(bundleOf(path));
    return looked;
  };
  if (!posix::visitTree(root, visit, nullptr) || !looked) return std::nullopt;
  return found;
}

}  // namespace tks::platform::apple
