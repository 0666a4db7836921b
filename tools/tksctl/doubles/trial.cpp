#include "tools/tksctl/doubles/trial.h"

#include <fcntl.h>
#include <poll.h>
#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSConversationObserver.h>
#include <tksinterface/TKSLaunchVocabulary.h>
#include <tksinterface/TKSMessageVocabulary.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "foundation/values/FilePaths.h"
#include "foundation/values/JsonWriter.h"
#include "messaging/Frame.h"
#include "messaging/Transport.h"
#include "platform/platform.h"
#include "platform/posix/file_descriptor.h"

namespace tks::ctl {
namespace {

/// How long what must not come is waited for, and what may still stand in a channel whose launcher has ended.
constexpr std::chrono::milliseconds kMoment{200};

std::string option(std::string_view name) { return "-" + std::string(name); }

/// A child that is not joined writes to standard error what it writes to standard output, which is for data.
void putNotesInTheWay() {
  const posix::FileDescriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
  ::dup2(nothing.get(), STDIN_FILENO);
  ::dup2(STDERR_FILENO, STDOUT_FILENO);
}

}  // namespace

Trial::Trial(std::vector<std::string> command, TrialChannel channel, Interrupts& interrupts,
             std::chrono::milliseconds patience)
    : given_(std::move(command)),
      kind_(channel),
      interrupts_(interrupts),
      patience_(patience),
      fileHost_(channel == TrialChannel::files ? std::make_unique<ActsAsFileHost>() : nullptr),
      channel_(tksMessageHostTypeInterface) {
  TKSConversationObserver::observe([this](const TKSConversationEvent& event) {
    // What comes after a fault is no message any more.
    if (event.kind != TKSConversationEvent::Kind::received || broken_) return;
    heard_.push_back(TKSMessage::JSONStringToObject(event.text));
  });
}

Trial::~Trial() {
  TKSConversationObserver::observe(nullptr);
  channel_.close();
  command_.end(interrupts_);
}

std::vector<std::string> Trial::words() const {
  std::vector<std::string> all = given_;
  all.insert(all.end(), {option(TKSLaunchArgNameLaunchMethod), std::string(TKSLaunchArgValueLaunchMethodTKSInterface)});
  if (kind_ == TrialChannel::unnamed) return all;
  const bool isFiles = kind_ == TrialChannel::files;
  all.push_back(option(TKSLaunchArgNameCommunicate));
  all.emplace_back(isFiles ? TKSLaunchArgValueCommunicateFile : TKSLaunchArgValueCommunicatePipe);
  if (isFiles) all.insert(all.end(), {option(TKSLaunchArgNameTempIPCFilePath), folder_});
  return all;
}

bool Trial::start(TKSError* error) {
  if (kind_ != TrialChannel::files) {
    if (!command_.start(words(), error)) return false;
    channel_.openWithMessengeHandler(this);
    return true;
  }
  putNotesInTheWay();
  messaging::Transport& transport = messaging::Transport::of(channel_);
  folder_ = transport.useNewFolder(joinedPath(platform::knownFolders().temporary(), "ipcFile_fakehost_0"));
  channel_.openWithMessengeHandler(this);
  if (const std::optional<TKSError>& failure = transport.openingFailure()) {
    *error = *failure;
    return false;
  }
  files_.emplace(folder_);
  return command_.start(words(), error, false);
}

void Trial::say(std::string_view type, TKSValue body) {
  TKSMessage message;
  message.messageType = std::string(type);
  message.message = body.isNothing() ? TKSValue(type) : std::move(body);
  channel_.sendMessage(message);
  leastSaid_ += messaging::kHeaderBytes + type.size();
}

std::string Trial::frameOf(const TKSDictionary& message) {
  std::string payload;
  json::append(message, payload, nullptr);
  return frameAround(payload);
}

std::string Trial::frameAround(std::string_view payload) {
  std::string frame;
  messaging::beginFrame(frame);
  frame.append(payload);
  messaging::finishFrame(frame);
  return frame;
}

bool Trial::write(std::string_view bytes) {
  const auto end = std::chrono::steady_clock::now() + patience_;
  while (!bytes.empty()) {
    const ssize_t count = ::write(STDOUT_FILENO, bytes.data(), bytes.size());
    if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
    if (count >= 0 || errno == EINTR) continue;
    if (errno != EAGAIN || std::chrono::steady_clock::now() > end) return false;
    // It may answer before it has read everything.
    waitFor([] { return false; }, std::chrono::milliseconds(1));
  }
  return true;
}

void Trial::handleMessage(const TKSMessage&, TKSMessageHandlerDelegate*) {}

void Trial::handleMessageHostFatalError(const std::string& description) {
  if (!broken_) broken_ = description;
}

bool Trial::waitFor(const std::function<bool()>& isDone, std::chrono::milliseconds limit) {
  const Interrupts::End end = interrupts_.runUntil(isDone, limit);
  wasInterrupted_ = wasInterrupted_ || end == Interrupts::End::interrupted;
  return end == Interrupts::End::done;
}

std::optional<TKSValue> Trial::take(std::chrono::milliseconds limit) {
  waitFor([this] { return !heard_.empty() || broken_ || hasEnded(); }, limit);
  // The channel of a launcher that ends is gone before its process is.
  if (heard_.empty() && isClosed()) waitFor([this] { return hasEnded(); }, limit);
  // What an ended launcher has written may still be on its way.
  if (heard_.empty() && hasEnded()) waitFor([this] { return !heard_.empty(); }, kMoment);
  if (heard_.empty()) {
    silence_ = "nothing came within " + std::to_string(limit.count() / 1000) + " s";
    if (broken_) silence_ = "the channel broke: " + *broken_;
    if (hasEnded()) silence_ = "it ended with " + command_.endInWords();
    return std::nullopt;
  }
  TKSValue value = std::move(heard_.front());
  heard_.pop_front();
  return value;
}

std::optional<TKSValue> Trial::next() { return take(patience_); }

std::optional<TKSValue> Trial::more() { return take(kMoment); }

bool Trial::isClosed() const { return broken_ && broken_->starts_with("Message data "); }

bool Trial::ends() {
  return waitFor([this] { return hasEnded(); }, patience_);
}

void Trial::closeItsInput() {
  channel_.close();
  const posix::FileDescriptor nothing(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  ::dup2(nothing.get(), STDOUT_FILENO);
}

}  // namespace tks::ctl
