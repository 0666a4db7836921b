#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace tks::install {

/// An archive and where to it is unpacked.
struct UnpackRequest {
  std::string archive;
  std::string folder;
  /// What the lines call the two.
  std::string shownArchive = archive;
  std::string shownFolder = folder;
  /// The tool is ended when it writes more.
  std::optional<std::uint64_t> mostBytes{};
  /// Told now and then how many bytes the tool has written. May be empty.
  std::function<void(std::uint64_t bytes)> onBytes{};
};

/// Unpacks with the system's tool and says so, as TKSUtilBase::unzip and TKSUtilBase::untar do.
void unzip(const UnpackRequest& request);
void untar(const UnpackRequest& request);

}  // namespace tks::install
