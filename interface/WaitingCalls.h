#pragma once

#include <memory>
#include <vector>

#include <tksinterface/TKSCallbacks.h>

namespace tks::interface {

/// Calls of one operation that wait for the same answer of the launcher.
///
/// The conversation has one place for a finish callback and one for an error callback of each request: a request that
/// is made again before it was answered takes the places of the earlier one. What stands there is made here, so that
/// the answer reaches every caller. The calls live in what was handed out: when the conversation drops its callbacks
/// uncalled, the calls are gone. Main thread only.
class WaitingCalls {
 public:
  struct Call {
    TKSFinishBlock finish;
    TKSErrorBlock error;
  };

  /// Adds a call to those that wait; returns what the conversation is to call. A callback that no call has is empty.
  Call join(Call call);
  /// Whether a call waits for its answer.
  bool isWaiting() const;

 private:
  std::weak_ptr<std::vector<Call>> calls_;
};

}  // namespace tks::interface
