#include "tools/tksctl/recording/joined_command.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <system_error>

#include "interface/LaunchExecutable.h"
#include "platform/platform.h"

namespace tks::ctl {
namespace {

constexpr std::chrono::seconds kTimeToEnd{2};

}  // namespace

bool JoinedCommand::start(const std::vector<std::string>& words, TKSError* error, bool isJoined) {
  std::error_code ignored;
  executable_ = std::filesystem::absolute(words.front(), ignored).lexically_normal().string();
  const platform::ChildRequest request{executable_, {words.begin() + 1, words.end()}, isJoined};
  // A command that is gone is noticed by its end.
  std::signal(SIGPIPE, SIG_IGN);
  processIdentifier_ = platform::childProcesses().start(
      request, [this](platform::ChildEnd end) { end_ = end; }, error);
  return processIdentifier_ > 0;
}

std::string JoinedCommand::endInWords() const { return described(end_.value_or(platform::ChildEnd())); }

bool JoinedCommand::succeeded() const {
  return end_ && end_->how == platform::ChildEnd::How::exited && end_->number == 0;
}

void JoinedCommand::end(Interrupts& interrupts) {
  for (const int signal : {SIGTERM, SIGKILL}) {
    if (!hasEnded()) ::kill(processIdentifier_, signal);
    if (interrupts.finishWithin(kTimeToEnd, [this] { return hasEnded(); })) return;
  }
}

}  // namespace tks::ctl
