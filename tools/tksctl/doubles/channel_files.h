#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace tks::ctl {

/// The two files of a channel and the folder they stand in, which are the host's: a launcher appends to one and reads
/// the other. Remembers them as they are when it is made, and with each look.
class ChannelFiles {
 public:
  /// Of the channel in `folder`, before its launcher is started.
  explicit ChannelFiles(std::string folder);

  /// What was done to them that a launcher may not do: "ipcFile_TKS2Interface was replaced". Nothing when all is well.
  /// `leastSaid`: that many bytes at least the host has written to its file.
  std::optional<std::string> fault(std::size_t leastSaid);

 private:
  struct Known {
    std::uint64_t number = 0;
    std::string content{};
  };

  std::string folder_;
  std::array<Known, 2> known_;
};

}  // namespace tks::ctl
