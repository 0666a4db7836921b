#include "platform/apple/file_trees.h"
#include "platform/linux/files/file_trees.h"

// What macOS has calls of its own for, of which nothing is Foundation's.

namespace tks::platform::apple {

bool removeTree(const std::string& path, TKSError* error) { return gnulinux::removeTree(path, error); }
bool removeEmptyFolder(const std::string& path, TKSError* error) { return gnulinux::removeEmptyFolder(path, error); }
bool copyTree(const std::string& from, const std::string& to, TKSError* error) {
  return gnulinux::copyTree(from, to, error);
}
bool moveTree(const std::string& from, const std::string& to, TKSError* error) {
  return gnulinux::moveTree(from, to, error);
}
bool exchangeTrees(const std::string& first, const std::string& second, TKSError* error) {
  return gnulinux::exchangeTrees(first, second, error);
}

}  // namespace tks::platform::apple
