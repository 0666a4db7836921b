#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/main_loop.h"

namespace tks::messaging {

/// Watches how long the launcher takes to answer, as far as the options set limits. Main thread only.
class AnswerLimits {
 public:
  /// What is answered, in the order of the table.
  enum class Request : std::uint8_t { hello, launch, disconnect };
  /// Called when an answer was not there in time, with what to say. It may destroy this.
  using Over = std::function<void(const std::string& problem)>;

  explicit AnswerLimits(Over over) : over_(std::move(over)) {}

  /// A request was sent. A launch request takes the place of the one before; the others are waited for from the first
  /// time on.
  void sent(Request request);
  /// Whatever was sent, the answer is there, or nobody waits for it any more.
  void answered(Request request) { waits_[static_cast<std::size_t>(request)] = {}; }
  void forgetAll() { waits_ = {}; }

 private:
  struct Wait {
    bool isUnderWay = false;
    std::unique_ptr<platform::MainLoop::Timer> limit;
    std::unique_ptr<platform::MainLoop::Timer> notice;
  };

  void onLimit(Request request);

  const Over over_;
  std::array<Wait, 3> waits_;
};

}  // namespace tks::messaging
