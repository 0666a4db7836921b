#pragma once

#import <Foundation/Foundation.h>

#include <functional>
#include <string_view>

#include "foundation/logging/Logging.h"

namespace tks::platform::apple {

/// Runs one piece of work that the system calls; nothing leaves it, neither a C++ exception nor one of the frameworks.
/// `name` names the work in the line about what it threw.
inline void runGuarded(std::string_view name, const std::function<void()>& work) {
  @autoreleasepool {
    callHost(name, work);
  }
}

}  // namespace tks::platform::apple
