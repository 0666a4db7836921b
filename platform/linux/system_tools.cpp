#include "platform/system_tools.h"

#include <dlfcn.h>
#include <unistd.h>

#include <array>
#include <string>

#include "BuildValues.h"
#include "platform/backend.h"
#include "platform/linux/tool_runner.h"

namespace tks::gnulinux {
namespace {

using platform::Tool;

/// Where a tool may stand; the first place that has it counts.
struct ToolPlaces {
  Tool tool;
  std::array<const char*, 2> paths;
};

constexpr ToolPlaces kTools[] = {
    {Tool::unzip, {"/usr/bin/unzip"}},
    {Tool::tar, {"/usr/bin/tar", "/bin/tar"}},
    {Tool::lsof, {"/usr/bin/lsof", "/usr/sbin/lsof"}},
    {Tool::shasum, {"/usr/bin/shasum"}},
    // Tool::spctl is this project's own, see below. There is no privacy-access database and so no Tool::tccutil.
    // Tool::sysctl is answered without a tool.
};

bool isThere(const std::string& path) { return ::access(path.c_str(), X_OK) == 0; }

/// Folder of the file that this code was loaded from: the library, or a program that holds it.
std::string folderOfThisCode() {
  Dl_info place{};
  if (::dladdr(reinterpret_cast<const void*>(&folderOfThisCode), &place) == 0 || place.dli_fname == nullptr) return {};
  const std::string file = place.dli_fname;
  const std::size_t slash = file.rfind('/');
  return slash == std::string::npos ? std::string() : file.substr(0, slash);
}

/// The project's own assessment tool: where it was installed, also when the whole installation was moved, or beside the
/// library, as in the build folder.
std::string assessmentTool() {
  const std::string folder = folderOfThisCode();
  for (const std::string& place : {folder + "/../libexec/tksinterface", folder + "/../../libexec/tksinterface",
                                   std::string(TKS_LIBEXEC_FOLDER), folder}) {
    std::string path = place + "/spctl";
    if (path.starts_with('/') && isThere(path)) return path;
  }
  return {};
}

}  // namespace

std::string standardToolPath(Tool tool) {
  if (tool == Tool::spctl) return assessmentTool();
  for (const ToolPlaces& places : kTools) {
    if (places.tool != tool) continue;
    for (const char* path : places.paths) {
      if (path != nullptr && isThere(path)) return path;
    }
  }
  return {};
}

}  // namespace tks::gnulinux

namespace tks::platform {

template <>
SystemTools& backend<SystemTools>() {
  static auto& tools = *gnulinux::makeSystemTools(gnulinux::standardToolPath).release();
  return tools;
}

}  // namespace tks::platform
