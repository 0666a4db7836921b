#include "tools/tksctl/doubles/channel_files.h"

#include <sys/stat.h>
#include <tksinterface/TKSConstants.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "foundation/values/FilePaths.h"
#include "platform/platform.h"
#include "tools/tksctl/frame/json_values.h"

namespace tks::ctl {
namespace {

/// More than a few messages is not looked at.
constexpr std::size_t kLargest = std::size_t{64} << 20;

/// The launcher's, then the host's.
std::array<std::string_view, 2> names() { return {tempIPCFileNameFromTKS2Interface, tempIPCFileNameFromInterface2TKS}; }

std::optional<std::uint64_t> numberOf(const std::string& path) {
  struct stat facts {};
  if (::lstat(path.c_str(), &facts) != 0) return std::nullopt;
  return facts.st_ino;
}

/// Nothing yet is empty.
std::string contentSoFar(const std::string& path) {
  const auto content = platform::files().read(path, kLargest, nullptr);
  return content ? std::string(content->begin(), content->end()) : std::string();
}

}  // namespace

ChannelFiles::ChannelFiles(std::string folder) : folder_(std::move(folder)) {
  for (std::size_t at = 0; at < known_.size(); ++at) {
    const std::string path = joinedPath(folder_, names()[at]);
    known_[at] = {numberOf(path).value_or(0), contentSoFar(path)};
  }
}

std::optional<std::string> ChannelFiles::fault(std::size_t leastSaid) {
  // A file that is cut after each message is never seen with anything in it.
  const std::array<std::size_t, 2> least{0, leastSaid};
  for (std::size_t at = 0; at < known_.size(); ++at) {
    const std::string path = joinedPath(folder_, names()[at]);
    const std::optional<std::uint64_t> number = numberOf(path);
    std::string content = contentSoFar(path);
    const char* what = !number                                                           ? " was removed"
                       : *number != known_[at].number                                    ? " was replaced"
                       : content.size() < std::max(known_[at].content.size(), least[at]) ? " was cut"
                       : !content.starts_with(known_[at].content)                        ? " was written anew"
                                                                                         : nullptr;
    if (what != nullptr) return std::string(names()[at]) + what;
    known_[at].content = std::move(content);
  }
  const auto list = platform::files().list(folder_, nullptr);
  if (!list) return std::nullopt;
  const auto expected = names();
  const auto isStrange = [&](const std::string& name) { return std::ranges::find(expected, name) == expected.end(); };
  const auto strange = std::ranges::find_if(*list, isStrange);
  return strange == list->end() ? std::nullopt : std::optional("it made " + oneLine(*strange));
}

}  // namespace tks::ctl
