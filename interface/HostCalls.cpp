#include "interface/HostCalls.h"

#include <utility>

#include "foundation/logging/Logging.h"

namespace tks::interface {

void makeCalls(std::vector<HostCall> calls, const Epoch::Moment& valid) {
  for (HostCall& one : calls) {
    if (valid.isOver()) return;
    // What the callback holds goes with the call, not with the last one of them.
    callHost(one.name, std::exchange(one.run, nullptr));
  }
}

}  // namespace tks::interface
