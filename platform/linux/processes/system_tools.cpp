#include "platform/system_tools.h"
#include "foundation/values/FilePaths.h"

#include <dlfcn.h>
#include <limits.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include "BuildValues.h"
#include "platform/backend.h"
#include "platform/linux/processes/tool_runner.h"

namespace tks::gnulinux {
namespace {

using platform::Tool;

/// Where a tool may stand; the first place that has it counts.
struct ToolPlaces {
  Tool tool;
  const char* name;
  std::array<const char*, 2> paths;
};

constexpr ToolPlaces kTools[] = {
    {Tool::unzip, "unzip", {"/usr/bin/unzip"}},
    {Tool::tar, "tar", {"/usr/bin/tar", "/bin/tar"}},
    {Tool::spctl, "spctl", {}},  // this project's own, see below
    {Tool::lsof, "lsof", {"/usr/bin/lsof", "/usr/sbin/lsof"}},
    {Tool::shasum, "shasum", {"/usr/bin/shasum"}},
    {Tool::tccutil, "tccutil", {}},  // there is no privacy-access database
    {Tool::sysctl, "sysctl", {}},    // answered without a tool
    {Tool::gktool, "gktool", {}},    // an assessment by spctl
};

const ToolPlaces& rowOf(Tool tool) { return *std::ranges::find(kTools, tool, &ToolPlaces::tool); }

bool isThere(const std::string& path) { return ::access(path.c_str(), X_OK) == 0; }

/// Path of the running program, whatever it was called by: the first word of a command line is the caller's choice.
std::string pathOfThisProgram() {
  std::array<char, PATH_MAX> path{};
  const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
  return length > 0 ? std::string(path.data(), static_cast<std::size_t>(length)) : std::string();
}

/// Folder of the file that this code was loaded from: the library, or a program that holds it. Empty when it cannot be
/// told, as for a library that was loaded by a relative path.
std::string folderOfThisCode() {
  Dl_info place{};
  link_map* file = nullptr;
  const bool isKnown = ::dladdr1(reinterpret_cast<const void*>(&folderOfThisCode), &place,
                                 reinterpret_cast<void**>(&file), RTLD_DL_LINKMAP) != 0;
  if (!isKnown || file == nullptr || file->l_name == nullptr) return {};
  // The program itself has no name among what is loaded.
  const std::string path = *file->l_name == '\0' ? pathOfThisProgram() : std::string(file->l_name);
  return path.starts_with('/') ? std::string(folderOf(path)) : std::string();
}

/// Where the project's own assessment tool may stand: where it was installed, also when the whole installation was
/// moved, or beside the library, as in the build folder.
std::vector<std::string> assessmentPlaces() {
  constexpr const char* kInstalled = TKS_LIBEXEC_FOLDER "/spctl";
  const std::string folder = folderOfThisCode();
  if (folder.empty()) return {kInstalled};
  return {folder + "/../libexec/tksinterface/spctl", folder + "/../../libexec/tksinterface/spctl", kInstalled,
          folder + "/spctl"};
}

std::vector<std::string> placesFor(Tool tool) {
  if (tool == Tool::spctl) return assessmentPlaces();
  std::vector<std::string> places;
  for (const char* path : rowOf(tool).paths) {
    if (path != nullptr) places.emplace_back(path);
  }
  return places;
}

}  // namespace

std::string standardToolPath(Tool tool) {
  for (std::string& path : placesFor(tool)) {
    if (isThere(path)) return std::move(path);
  }
  return {};
}

std::string placesOf(Tool tool) {
  std::string text;
  for (const std::string& path : placesFor(tool)) text.append(text.empty() ? "" : " or ").append(path);
  return text.empty() ? rowOf(tool).name : text;
}

}  // namespace tks::gnulinux

namespace tks::platform {

template <>
SystemTools& backend<SystemTools>() {
  static auto& tools = *gnulinux::makeSystemTools(gnulinux::standardToolPath).release();
  return tools;
}

}  // namespace tks::platform
