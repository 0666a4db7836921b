#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tks {

/// What a launcher's command line means for the one who starts it.
struct LaunchArguments {
  /// "-warmup": nobody waits for the process.
  bool warmUp = false;
  /// "-Communicate" together with "Pipe", or with "File".
  bool wantsPipe = false;
  bool wantsFile = false;

  /// Pipes are only made when nothing asks for files.
  bool joinsStandardHandles() const { return wantsPipe && !wantsFile; }
};

/// Looks for the arguments that matter here, compared whole and case-sensitively, wherever they stand.
LaunchArguments scanLaunchArguments(const std::vector<std::string>& arguments);

}  // namespace tks
