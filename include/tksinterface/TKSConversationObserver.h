#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string_view>

#include <tksinterface/TKSExport.h>

/// One event of a conversation between a host and the launcher, in the process that tells of it.
struct TKSConversationEvent {
  /// What happened.
  enum class Kind : std::uint8_t {
    opened,      ///< a message host was opened; `text` is empty
    closed,      ///< an open message host was closed; `text` is empty
    sent,        ///< a message is handed to the channel; `text` is its JSON
    notSent,     ///< the message told of just before, on this thread, will never arrive; `text` says why
    received,    ///< a whole message came; `text` is its payload, before anybody parsed it
    fatalError,  ///< the channel or what it carried is broken; `text` says how
    started,     ///< a launcher was started as a child of this process; `text` is the path of its executable
    ended,       ///< such a launcher has ended; `text` says how: "exit code: N", "signal: N", "status unknown"
  };
  /// What happened; `text` means what its kind says.
  Kind kind = Kind::opened;
  /// tksMessageHostTypeInterface or tksMessageHostTypeTKS: which side of the conversation tells of it. What becomes of
  /// processes is told by the interface.
  std::int32_t side = 0;
  /// Over a pair of files, not over pipes. False for `started` and `ended`.
  bool byFile = false;
  /// UTF-8, not masked: messages carry names, addresses and tokens. Lives until the observer returns.
  std::string_view text{};
  /// Of the launcher that was started or has ended; 0 otherwise.
  std::int32_t processIdentifier = 0;
  /// When it happened, by a clock that never jumps.
  std::chrono::steady_clock::time_point time{};
  /// When it happened, in seconds from 1970-01-01 00:00:00 UTC.
  double secondsSince1970 = 0;
};

/// Watches the conversations of this process: for recordings, diagrams and tests. Without an observer each message
/// costs one load and one branch more.
///
/// An observer is called on the thread on which an event happens: sending and starting may happen on any thread and on
/// several at once, all else on the main thread; never with a lock held. It sees a message that is sent before the
/// other side does. It must not open, close or destroy message hosts, nor wait for another thread. Events that it
/// causes itself are told up to eight deep. What it throws is dropped.
class TKS_EXPORT TKSConversationObserver {
 public:
  /// Called with each event, which lives until it returns.
  using Block = std::function<void(const TKSConversationEvent& event)>;

  /// Replaces the observer of this process; an empty one ends the watching. One that is running while it is replaced
  /// is kept alive until it returns. Any thread.
  static void observe(Block block);
  /// The observer of this process; empty when there is none. Any thread.
  static Block observer();
  /// Whether there is an observer. Any thread.
  static bool isObserving() noexcept { return observing_.load(std::memory_order_relaxed); }

 private:
  static std::atomic<bool> observing_;
};
