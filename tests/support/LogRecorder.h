#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include <tksinterface/TKSILog.h>

namespace tks::test {

/// A log line as it reached the host.
struct LogLine {
  std::int32_t level = 0;
  std::string text;
  friend bool operator==(const LogLine&, const LogLine&) = default;
  friend std::ostream& operator<<(std::ostream& out, const LogLine& line) {
    return out << "level " << line.level << ": " << line.text;
  }
};

/// Plays the host that listens to the log, for a scope; then the callback that was installed before is back. Lines may
/// arrive from any thread.
///   LogRecorder log;
///   TKSUtilBase::getURLQueryDict("");
///   EXPECT_THAT(log.lines(), ElementsAre(LogLine{4, "URL string empty or nil, fail to get query dict."}));
class LogRecorder {
 public:
  LogRecorder() : before_(TKSILog::sharedInstance().logBlock()) {
    TKSILog::sharedInstance().setLogBlock([state = state_](std::int32_t level, const std::string& message) {
      const std::scoped_lock lock(state->mutex);
      state->lines.push_back({level, message});
      state->changed.notify_all();
    });
  }
  ~LogRecorder() { TKSILog::sharedInstance().setLogBlock(before_); }
  LogRecorder(const LogRecorder&) = delete;
  LogRecorder& operator=(const LogRecorder&) = delete;

  /// All lines since the beginning or the last clear(), oldest first.
  std::vector<LogLine> lines() const {
    const std::scoped_lock lock(state_->mutex);
    return state_->lines;
  }

  /// The texts of one level.
  std::vector<std::string> texts(std::int32_t level) const {
    std::vector<std::string> found;
    for (const LogLine& line : lines()) {
      if (line.level == level) found.push_back(line.text);
    }
    return found;
  }

  bool has(std::int32_t level, const std::string& text) const { return state_->contains({level, text}); }

  /// Waits until a line has come; false when the time is over first.
  bool waitFor(std::int32_t level, const std::string& text,
               std::chrono::milliseconds limit = std::chrono::seconds(10)) const {
    std::unique_lock lock(state_->mutex);
    return state_->changed.wait_for(lock, limit, [&] { return state_->find({level, text}); });
  }

  void clear() {
    const std::scoped_lock lock(state_->mutex);
    state_->lines.clear();
  }

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<LogLine> lines;

    bool find(const LogLine& wanted) const {
      for (const LogLine& line : lines) {
        if (line == wanted) return true;
      }
      return false;
    }
    bool contains(const LogLine& wanted) {
      const std::scoped_lock lock(mutex);
      return find(wanted);
    }
  };

  /// Shared with the callback: a line in delivery may outlive the recorder.
  std::shared_ptr<State> state_ = std::make_shared<State>();
  TKSLogBlock before_;
};

}  // namespace tks::test
