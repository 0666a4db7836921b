#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <tksinterface/TKSUtilBase.h>

#include "platform/child_processes.h"

namespace tks {

/// `launchAppWithExePath:args:launchResult:` for a caller that goes on talking to the process: `ended` is called once,
/// on the main thread, when the process has ended and `launchResult` was given its application; never when it was given
/// none. With `ended` the process counts as one of SilentLaunchers until it answers.
void launchExecutable(std::string_view exePath, const std::vector<std::string>& args, TKSLaunchResultBlock launchResult,
                      std::function<void(platform::ChildEnd)> ended);

/// How a process ended, in words: "exit code: 3", "signal: 9" or "status unknown".
std::string described(platform::ChildEnd end);

}  // namespace tks
