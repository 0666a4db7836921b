#pragma once

#include <functional>
#include <string_view>
#include <vector>

#include "foundation/values/Epoch.h"

namespace tks::interface {

/// A call of the host's code that is due: whoever waited for it has been forgotten already.
struct HostCall {
  /// Names the callback in the line about what it throws.
  std::string_view name;
  /// Calls it; empty when there is no callback.
  std::function<void()> run;
};

/// Makes calls, in order, until `valid` is over. The only place of this folder where the host's code runs:
/// it may call any operation again, end the conversation and destroy the facade, so whoever makes calls either does
/// nothing afterwards or looks first what is left. Main thread.
void makeCalls(std::vector<HostCall> calls, const Epoch::Moment& valid);

}  // namespace tks::interface
