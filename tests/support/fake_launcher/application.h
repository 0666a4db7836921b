#pragma once

#include <functional>

namespace tks::test {

/// Does `work`, which ends the program, as a running application is known to the system: on macOS as a background
/// application that has checked in, which quits when it is asked to, unless it refuses.
void runAsApplication(bool refusesToQuit, const std::function<void()>& work);

}  // namespace tks::test
