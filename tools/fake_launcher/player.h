#pragma once

#include <deque>
#include <map>
#include <memory>
#include <string>

#include <tksinterface/TKSMessageHost.h>

#include "platform/main_loop.h"
#include "tools/fake_launcher/behaviour.h"

namespace tks::fake {

/// A launcher in conversation with its host that follows a script, one step after the other: what arrives during a wait
/// is dealt with after it. It talks over the library's side for launchers; only what a script wants to be wrong goes to
/// the channel past it. Main thread.
class Player : private TKSMessageHandlerDelegate {
 public:
  /// `bundle`: its own, which an update replaces.
  Player(TKSMessageHost& channel, Behaviour behaviour, std::string bundle);

  /// Opens the channel and begins. The main loop is stopped when the launcher is to end.
  void begin();
  /// What to end with.
  int exitCode() const { return exitCode_; }

 private:
  using Cause = std::shared_ptr<const TKSMessage>;
  struct Planned {
    Step step;
    Cause cause;
  };

  void handleMessage(const TKSMessage& message, TKSMessageHandlerDelegate* sender) override;
  void handleMessageHostFatalError(const std::string& description) override;

  const Steps& stepsFor(const std::string& type);
  void plan(const Steps& steps, const Cause& cause);
  void goOn();
  void perform(const Step& step, const Cause& cause);
  void answer(const TKSMessage& message);
  void update();
  void write(std::string_view bytes);
  void leave(int code);
  void watchHost();

  TKSMessageHost& channel_;
  const Behaviour behaviour_;
  const std::string bundle_;
  std::map<std::string, std::size_t> heard_;
  std::deque<Planned> planned_;
  std::unique_ptr<platform::MainLoop::Timer> wait_;
  std::unique_ptr<platform::MainLoop::Timer> watch_;
  int host_ = 0;
  bool isSilent_ = false;
  bool hasEnded_ = false;
  bool isOver_ = false;
  int exitCode_ = 0;
};

}  // namespace tks::fake
