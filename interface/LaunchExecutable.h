#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <tksinterface/TKSUtilBase.h>

#include "platform/child_processes.h"

namespace tks {

/// `launchAppWithExePath:args:launchResult:`, for those who go on talking to what they have started: `ended` is called
/// on the main thread when the process has ended, once, and after `launchResult` got its application; never when it got
/// none.
void launchExecutable(std::string_view exePath, const std::vector<std::string>& args, TKSLaunchResultBlock launchResult,
                      std::function<void(platform::ChildEnd)> ended);

/// How a process ended, in words: "exit code: 3", "signal: 9" or "status unknown".
std::string described(platform::ChildEnd end);

}  // namespace tks
