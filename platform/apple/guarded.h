#pragma once

#import <Foundation/Foundation.h>

#include <exception>
#include <functional>

#include <tksinterface/TKSILog.h>

namespace tks::platform::apple {

/// Runs one piece of work that the system calls; nothing leaves it, neither a C++ exception nor one of the frameworks.
template <class Work>
void runGuarded(const Work& work) {
  @autoreleasepool {
    try {
      work();
    } catch (const std::exception& exception) {
      TKSILog::logWithLevel(TKSILogLevelError, "Work on a queue threw an exception: %@", exception.what());
    } catch (...) {
      TKSILog::logWithLevel(TKSILogLevelError, "Work on a queue threw an exception: %@", "unknown");
    }
  }
}

}  // namespace tks::platform::apple
