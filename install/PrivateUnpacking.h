#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSInstallProgress.h>

#include "install/ArchiveCheck.h"
#include "platform/archives.h"

namespace tks::install {

/// Unpacks one archive where nobody else can look or write: in a folder made for it alone, with a copy of the archive
/// and, beside the copy, an empty folder. The look before unpacking, the tool and the look after it so meet the same
/// bytes, and no link or file of an earlier archive. It is removed with this object, except for what was taken.
class PrivateUnpacking {
 public:
  /// `place` is the folder in which the private one is made, and which the lines name.
  explicit PrivateUnpacking(std::string place) : place_(std::move(place)) {}
  ~PrivateUnpacking();
  PrivateUnpacking(const PrivateUnpacking&) = delete;
  PrivateUnpacking& operator=(const PrivateUnpacking&) = delete;

  /// Told of the two steps that unpacking has, examining and unpacking, with bytes. May be empty.
  std::function<void(TKSInstallStep step, std::uint64_t bytesDone, std::uint64_t bytesTotal)> onStep;

  /// Copies the archive, looks into it, unpacks it and looks at what came out. False, with a level-8 line and `error`,
  /// when there is an objection or a step fails; what the tool itself says is not asked. Once for each object.
  bool run(const std::string& archive, platform::ArchiveFormat format, const ArchiveRules& rules, TKSError* error);
  /// Moves an item from the top of the unpacked tree to a free place on the same volume. False when it is not there,
  /// is a link, or cannot be moved.
  bool take(std::string_view name, const std::string& destination, TKSError* error) const;

  /// Removes the private folders that processes left in `place` which ended while they unpacked. Nobody may be
  /// unpacking there now.
  static void removeLeftOvers(const std::string& place);

 private:
  std::optional<TKSError> unpack(const std::string& archive, platform::ArchiveFormat format, const ArchiveRules& rules);
  void tell(TKSInstallStep step, std::uint64_t bytesDone, std::uint64_t bytesTotal) const;
  std::function<void(std::uint64_t bytes)> writtenTo(std::uint64_t total) const;
  bool makeFolders(TKSError& error);

  std::string place_;
  std::string private_;
  std::string unpacked_;
  /// Permissions that a new folder has here.
  std::uint32_t allowed_ = 0;
};

}  // namespace tks::install
