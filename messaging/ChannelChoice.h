#pragma once

#include <string>

namespace tks::messaging {

/// Which channel the process's message hosts talk over, and what was said of it.
struct ChannelChoice {
  /// True: a pair of files; false: standard input and output.
  bool byFile = false;
  /// The folder that the launch arguments name for the files, whichever channel it is; empty when they name none.
  std::string folder{};
};

/// Chooses by the main bundle's identifier, and for other hosts by the launch arguments "Communicate" and
/// "TempIPCFilePath". Each thing found has its line.
ChannelChoice chooseChannel();

}  // namespace tks::messaging
