#include "tools/fake_launcher/player.h"

#include <fcntl.h>
#include <poll.h>
#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSMainLoop.h>
#include <tksinterface/TKSMessageVocabulary.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <utility>

#include "foundation/values/FilePaths.h"
#include "platform/platform.h"
#include "platform/posix/file_descriptor.h"

namespace tks::fake {
namespace {

/// What ends a launcher whose host left without a word.
constexpr int kHostIsGone = 1;

void say(const std::string& text) { std::fprintf(stderr, "fake launcher: %s\n", text.c_str()); }

TKSMessage acknowledgement(std::string_view type) {
  TKSMessage message;
  message.messageType = std::string(type);
  message.message = type;
  return message;
}

/// Everything, waiting for room where there is none; what the other end does not take any more is lost.
void writeOut(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
    if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
    if (count >= 0 || errno == EINTR) continue;
    if (errno != EAGAIN) return;
    pollfd room{descriptor, POLLOUT, 0};
    ::poll(&room, 1, -1);
  }
}

/// Puts the launcher that lies in a bundle in the bundle's place. The bundle itself is gone then.
bool replaceByUpdate(const std::string& bundle) {
  platform::Files& files = platform::files();
  TKSError error;
  const std::string next = joinedPath(joinedPath(bundle, kUpdateInBundle), TKSAppName);
  const auto folder = files.makePrivateDirectory(joinedPath(folderOf(bundle), ".update-"), &error);
  const std::string fresh = folder ? joinedPath(*folder, TKSAppName) : "";
  const bool isDone = folder && files.copy(next, fresh, &error) && files.exchange(fresh, bundle, &error);
  if (!isDone) say("no update: " + error.localizedDescription);
  if (folder) files.remove(*folder, nullptr);
  return isDone;
}

}  // namespace

Player::Player(TKSMessageHost& channel, Behaviour behaviour, std::string bundle)
    : channel_(channel), behaviour_(std::move(behaviour)), bundle_(std::move(bundle)), host_(::getppid()) {}

void Player::begin() {
  // A host that is gone is noticed by the end of its channel.
  std::signal(SIGPIPE, SIG_IGN);
  channel_.openWithMessengeHandler(this);
  // Files have no end that would show.
  if (channel_.ipcByFile) watchHost();
  plan(behaviour_.start, nullptr);
}

void Player::watchHost() {
  constexpr std::chrono::milliseconds kPause{200};
  watch_ = platform::mainLoop().after(kPause, [this] {
    if (::getppid() != host_) return handleMessageHostFatalError("the host is gone");
    watchHost();
  });
}

void Player::handleMessage(const TKSMessage& message, TKSMessageHandlerDelegate*) {
  if (isSilent_) return;
  plan(stepsFor(message.messageType.value_or("")), std::make_shared<const TKSMessage>(message));
}

void Player::handleMessageHostFatalError(const std::string& description) {
  if (std::exchange(hasEnded_, true) || isOver_) return;
  say(description);
  channel_.close();
  planned_.clear();
  wait_.reset();
  Steps last = behaviour_.end;
  last.push_back({Step::Kind::exit, 0, {}, {}, kHostIsGone});
  plan(last, nullptr);
}

const Steps& Player::stepsFor(const std::string& type) {
  static const Steps kHealthy{Step{}};
  const auto found = behaviour_.on.find(type);
  if (found == behaviour_.on.end() || found->second.empty()) return kHealthy;
  return found->second[std::min(heard_[type]++, found->second.size() - 1)];
}

void Player::plan(const Steps& steps, const Cause& cause) {
  for (const Step& step : steps) planned_.push_back({step, cause});
  goOn();
}

void Player::goOn() {
  while (!planned_.empty() && !wait_ && !isOver_) {
    const Planned next = std::move(planned_.front());
    planned_.pop_front();
    perform(next.step, next.cause);
  }
}

void Player::perform(const Step& step, const Cause& cause) {
  switch (step.kind) {
    case Step::Kind::answer:
      return cause ? answer(*cause) : void();
    case Step::Kind::wait:
      wait_ = platform::mainLoop().after(
          std::chrono::ceil<std::chrono::milliseconds>(std::chrono::duration<double>(step.seconds)), [this] {
            wait_.reset();
            goOn();
          });
      return;
    case Step::Kind::send:
      return channel_.sendMessage(step.message);
    case Step::Kind::raw:
      return write(step.bytes);
    case Step::Kind::silence:
      isSilent_ = true;
      planned_.clear();
      return;
    case Step::Kind::update:
      return update();
    case Step::Kind::exit:
      return leave(step.number);
    case Step::Kind::signal:
      std::signal(step.number, SIG_DFL);
      ::kill(::getpid(), step.number);
      return;
  }
}

void Player::answer(const TKSMessage& message) {
  const std::string type = message.messageType.value_or("");
  if (type == tks_message_type_hello) channel_.sendMessage(acknowledgement(tks_message_type_hello_ack));
  if (type == tks_message_type_launch_meeting) {
    TKSDictionary parameters = message.message.dictionary();
    channel_.sendMessage(TKSMessage::generateLaunchAckMessage(&parameters));
  }
  if (type == tks_message_type_disconnect) {
    channel_.sendMessage(acknowledgement(tks_message_type_disconnect_ack));
    leave(0);
  }
}

void Player::update() {
  if (replaceByUpdate(bundle_)) channel_.sendMessage(acknowledgement(tks_message_type_update_done));
}

void Player::write(std::string_view bytes) {
  if (!channel_.ipcByFile) return writeOut(STDOUT_FILENO, bytes);
  const std::string& path = channel_.tempIPCFileFullPathFromTKS2Interface;
  const posix::FileDescriptor file(::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  if (file) writeOut(file.get(), bytes);
}

void Player::leave(int code) {
  isOver_ = true;
  exitCode_ = code;
  TKSMainLoop::stop();
}

}  // namespace tks::fake
