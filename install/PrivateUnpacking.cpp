#include "install/PrivateUnpacking.h"

#include <algorithm>
#include <vector>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>

#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"
#include "foundation/values/FilePaths.h"
#include "foundation/values/OutOfMemory.h"
#include "install/Archives.h"
#include "install/RemoveWhole.h"
#include "install/UnpackedTree.h"
#include "platform/platform.h"

namespace tks::install {
namespace {

using platform::ArchiveFormat;
using platform::files;

constexpr std::string_view kPrefix = ".unpacking-";
constexpr std::uint32_t kOrdinaryFolder = 0777;
constexpr std::uint32_t kOwnersRights = 0700;
/// What the unpacker may print beside what it unpacks.
constexpr std::uint64_t kRoomForOutput = 64u * 1024 * 1024;

void removeOrTell(const std::string& path) {
  TKSError error;
  if (removeWhole(path, &error)) return;
  TKSILog::logWithLevel(TKSILogLevelWarning, "Cannot remove what an installation left: %@", masked(error));
}

TKSError objectionError(const std::string& objection) {
  return makeError(TKSErrorReason::badMessage, TKSUtilErrorDomain, 0, objection);
}

/// How much the tool may write: twice for a tar, whose decompressor counts as well.
std::uint64_t writeLimit(ArchiveFormat format, const ArchiveContent& content, const ArchiveRules& rules) {
  return format == ArchiveFormat::zip ? content.size + kRoomForOutput : 2 * rules.mostBytes;
}

}  // namespace

PrivateUnpacking::~PrivateUnpacking() {
  unlessOutOfMemory([this] {
    if (!private_.empty()) removeOrTell(private_);
    return true;
  });
}

void PrivateUnpacking::removeLeftOvers(const std::string& place) {
  const std::optional<std::vector<std::string>> names = files().list(place, nullptr);
  if (!names) return;
  for (const std::string& name : *names) {
    if (name.starts_with(kPrefix)) removeOrTell(joinedPath(place, name));
  }
}

/// What the tool prints counts as well, so that a little of the end may be told early.
std::function<void(std::uint64_t)> PrivateUnpacking::writtenTo(std::uint64_t total) const {
  if (!onStep) return {};
  return [this, total, told = std::uint64_t{0}](std::uint64_t bytes) mutable {
    const std::uint64_t done = std::min(bytes, total);
    if (done <= told) return;
    told = done;
    tell(TKSInstallStep::unpacking, done, total);
  };
}

void PrivateUnpacking::tell(TKSInstallStep step, std::uint64_t bytesDone, std::uint64_t bytesTotal) const {
  if (onStep) onStep(step, bytesDone, bytesTotal);
}

bool PrivateUnpacking::makeFolders(TKSError& error) {
  const std::optional<std::string> made = files().makePrivateDirectory(joinedPath(place_, kPrefix), &error);
  if (!made) return false;
  private_ = *made;
  unpacked_ = joinedPath(private_, "unpacked");
  if (!files().createDirectory(unpacked_, kOrdinaryFolder, &error)) return false;
  // What the umask leaves of a folder's rights it leaves of everything's. The process's own umask is not to be touched.
  const std::optional<platform::FileAttributes> fresh = files().attributes(unpacked_, &error);
  if (fresh) allowed_ = fresh->permissions;
  return fresh.has_value();
}

std::optional<TKSError> PrivateUnpacking::unpack(const std::string& archive, ArchiveFormat format,
                                                 const ArchiveRules& rules) {
  TKSError error;
  const auto copyPath = [this] { return joinedPath(private_, "archive"); };
  const std::uint64_t packed = files().size(archive, nullptr).value_or(0);
  tell(TKSInstallStep::examining, 0, packed);
  if (!makeFolders(error) || !files().copyContent(archive, copyPath(), &error)) return error;
  const ArchiveContent content = lookInto(copyPath(), format, unpacked_, rules);
  if (content.objection) return objectionError(*content.objection);
  tell(TKSInstallStep::examining, packed, packed);
  tell(TKSInstallStep::unpacking, 0, content.size);
  const UnpackRequest request{.archive = copyPath(),
                              .folder = unpacked_,
                              .shownArchive = archive,
                              .shownFolder = place_,
                              .mostBytes = writeLimit(format, content, rules),
                              .onBytes = writtenTo(content.size)};
  format == ArchiveFormat::zip ? unzip(request) : untar(request);
  tell(TKSInstallStep::unpacking, content.size, content.size);
  // An archive can have rights for the folder that it is unpacked to.
  if (!files().setPermissions(unpacked_, kOwnersRights, &error)) return error;
  const std::optional<std::string> objection = objectionToTree(unpacked_, content, rules, allowed_);
  return objection ? std::optional(objectionError(*objection)) : std::nullopt;
}

bool PrivateUnpacking::run(const std::string& archive, ArchiveFormat format, const ArchiveRules& rules,
                           TKSError* error) {
  const std::optional<TKSError> objection = unpack(archive, format, rules);
  if (!objection) return true;
  TKSILog::logWithLevel(TKSILogLevelError, "Refuse to unpack: %@, %@", masked(archive),
                        masked(objection->localizedDescription));
  if (error != nullptr) *error = *objection;
  return false;
}

bool PrivateUnpacking::take(std::string_view name, const std::string& destination, TKSError* error) const {
  const std::string path = joinedPath(unpacked_, name);
  bool isThere = false;
  const auto visit = [&](const platform::TreeItem& item) {
    isThere = item.name == name && item.kind != platform::TreeItem::Kind::link;
    return !isThere;
  };
  return files().visitTree(unpacked_, visit, nullptr) && isThere && files().move(path, destination, error);
}

}  // namespace tks::install
