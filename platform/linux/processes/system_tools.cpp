#include "platform/system_tools.h"
#include "foundation/values/FilePaths.h"

#include <dlfcn.h>
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

/// Folder of the file that this code was loaded from: the library, or a program that holds it.
std::string folderOfThisCode() {
  Dl_info place{};
  if (::dladdr(reinterpret_cast<const void*>(&folderOfThisCode), &place) == 0 || place.dli_fname == nullptr) return {};
  return std::string(folderOf(place.dli_fname));
}

/// Where the project's own assessment tool may stand: where it was installed, also when the whole installation was
/// moved, or beside the library, as in the build folder.
std::vector<std::string> assessmentPlaces() {
  const std::string folder = folderOfThisCode();
  std::vector<std::string> places;
  for (const std::string& place : {folder + "/../libexec/tksinterface", folder + "/../../libexec/tksinterface",
                                   std::string(TKS_LIBEXEC_FOLDER), folder}) {
    if (place.starts_with('/')) places.push_back(place + "/spctl");
  }
  return places;
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
