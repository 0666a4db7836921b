#pragma once

#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <tksinterface/TKSMessageHost.h>

#include "tools/tksctl/frame/interrupts.h"
#include "tools/tksctl/recording/recording.h"

namespace tks::ctl {

struct ReplayOptions {
  /// Which side is played: what that side sent is sent again, what it received is waited for.
  bool asLauncher = false;
  /// How many times as fast as it was recorded; 0: without any pause.
  double speed = 1;
  /// How long each message of the other side is waited for.
  std::chrono::milliseconds patience{10000};
};

/// How a replay ended.
struct ReplayResult {
  enum class Outcome : std::uint8_t { same, different, timedOut, interrupted };
  Outcome outcome = Outcome::same;
  std::size_t sent = 0;
  std::size_t received = 0;
  /// The first difference in words; empty when there is none.
  std::string difference{};
};

/// Plays one side of a recorded conversation against a real other side, over a message host of this process. Messages
/// are compared as they were recorded: masked. Main thread; one replay a process, because it watches all conversations.
class Replay : private TKSMessageHandlerDelegate {
 public:
  Replay(const Recording& recording, const ReplayOptions& options, Interrupts& interrupts);
  ~Replay() override;

  ReplayResult run();

 private:
  void handleMessage(const TKSMessage& message, TKSMessageHandlerDelegate* sender) override;
  void handleMessageHostFatalError(const std::string& description) override;

  bool isOurs(const RecordedEvent& event) const;
  bool pause(std::chrono::duration<double> time);
  bool expect(const RecordedEvent& event, std::size_t number);
  void differ(const RecordedEvent& event, std::size_t number, const std::string& how);
  bool stopFor(Interrupts::End end);

  const Recording& recording_;
  const ReplayOptions options_;
  Interrupts& interrupts_;
  TKSMessageHost channel_;
  /// What the other side sent and nobody compared yet.
  std::deque<RecordedEvent> heard_;
  /// Why there will be no more of it.
  std::optional<std::string> broken_;
  ReplayResult result_;
};

}  // namespace tks::ctl
