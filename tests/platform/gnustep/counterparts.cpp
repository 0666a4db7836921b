#include <unistd.h>

#include <utility>

#include "platform/apple/file_trees.h"
#include "platform/apple/open_files.h"
#include "platform/apple/tool_runner.h"
#include "platform/linux/files/file_trees.h"
#include "platform/linux/processes/process_table.h"
#include "platform/linux/processes/tool_runner.h"

// What macOS has calls of its own for, of which nothing is Foundation's; and what the tests, as they are compiled for
// Linux, ask the back end for Linux for.

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

bool hasOpenForWriting(pid_t process, const ChannelIdentity& file) {
  return gnulinux::hasOpenForWriting(process, file);
}

}  // namespace tks::platform::apple

namespace tks::gnulinux {

std::unique_ptr<platform::SystemTools> makeSystemTools(ToolPath path) {
  return platform::apple::makeSystemTools(std::move(path));
}

std::string standardToolPath(platform::Tool tool) {
  std::string path = platform::apple::standardToolPath(tool);
  if (::access(path.c_str(), X_OK) == 0) return path;
  path = "/usr/bin" + path.substr(path.rfind('/'));
  return ::access(path.c_str(), X_OK) == 0 ? path : std::string();
}

}  // namespace tks::gnulinux
