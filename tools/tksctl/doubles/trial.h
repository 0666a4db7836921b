#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tksinterface/TKSMessageHost.h>

#include "tools/tksctl/doubles/channel_files.h"
#include "tools/tksctl/frame/interrupts.h"
#include "tools/tksctl/parts/file_host.h"
#include "tools/tksctl/recording/joined_command.h"

namespace tks::ctl {

/// Which channel a trial's launcher is told to use.
enum class TrialChannel : std::uint8_t {
  pipe,     ///< "-Communicate Pipe"
  unnamed,  ///< nothing is said, which means pipes as well
  files,    ///< "-Communicate File", with the folder of two files
};

/// One conversation with a launcher under test, which is started for it alone and ended with it. The library's side for
/// hosts talks to it; what breaks a rule on purpose goes past that. Main thread, one at a time.
class Trial : private TKSMessageHandlerDelegate {
 public:
  /// `command`: the launcher's executable and arguments of its own.
  Trial(std::vector<std::string> command, TrialChannel channel, Interrupts& interrupts,
        std::chrono::milliseconds patience);
  ~Trial() override;

  /// Opens the channel and starts the launcher.
  bool start(TKSError* error);

  /// Sends a message; without a body its own name is the body.
  void say(std::string_view type, TKSValue body = {});
  /// Writes bytes to the launcher's standard input as they are. False when it does not take them.
  bool write(std::string_view bytes);
  /// The frame of a message, to be written so.
  static std::string frameOf(const TKSDictionary& message);
  /// The frame around a payload as it stands.
  static std::string frameAround(std::string_view payload);

  /// What came next, as it stood in its frame; nothing when nothing comes, and `silence` says why.
  std::optional<TKSValue> next();
  /// The same for what must not come: waits a moment only.
  std::optional<TKSValue> more();
  /// Whether the launcher ends in time, without being told to.
  bool ends();
  /// Closes the launcher's standard input.
  void closeItsInput();

  /// Why nothing came: "nothing came within 5 s", "it ended with exit code: 3".
  const std::string& silence() const { return silence_; }
  bool hasEnded() const { return command_.hasEnded(); }
  bool isBroken() const { return broken_.has_value(); }
  /// Broken by its end, not by what stood in it.
  bool isClosed() const;
  /// In the middle of a frame that nobody finishes.
  bool isInsideFrame() const { return channel_.pendingDataSize > 0; }
  bool wasInterrupted() const { return wasInterrupted_; }
  /// What the launcher did to the two files that it may not do; nothing over pipes.
  std::optional<std::string> fileFault() { return files_ ? files_->fault(leastSaid_) : std::nullopt; }

 private:
  void handleMessage(const TKSMessage& message, TKSMessageHandlerDelegate* sender) override;
  void handleMessageHostFatalError(const std::string& description) override;

  std::vector<std::string> words() const;
  bool waitFor(const std::function<bool()>& isDone, std::chrono::milliseconds limit);
  std::optional<TKSValue> take(std::chrono::milliseconds limit);

  const std::vector<std::string> given_;
  const TrialChannel kind_;
  Interrupts& interrupts_;
  const std::chrono::milliseconds patience_;
  /// A host over files is one by its bundle's identifier.
  const std::unique_ptr<ActsAsFileHost> fileHost_;
  TKSMessageHost channel_;
  JoinedCommand command_;
  std::string folder_;
  /// As they were before the launcher was started.
  std::optional<ChannelFiles> files_;
  /// Bytes that were sent, or less.
  std::size_t leastSaid_ = 0;
  std::deque<TKSValue> heard_;
  std::optional<std::string> broken_;
  std::string silence_;
  bool wasInterrupted_ = false;
};

}  // namespace tks::ctl
