#include <fcntl.h>
#include <sys/resource.h>
#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSMainLoop.h>
#include <tksinterface/TKSMessageHost.h>
#include <tksinterface/TKSMessageVocabulary.h>
#include <unistd.h>

#include <algorithm>

#include "benchmarks/bars/bars.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/standard_handles.h"

// Messages at a fixed rate from a host to a launcher over pipes, each answered; numbered, so that none is lost, doubled
// or out of its place. Both ends are the library's message hosts.

namespace tks::bars {
namespace {

using Clock = std::chrono::steady_clock;

constexpr double kRate = 15'000;
constexpr double kSeconds = 30;
constexpr std::chrono::milliseconds kBetweenBatches{5};
/// The longest that a message may take there and back once the rate is held.
constexpr std::chrono::seconds kLongest{2};

TKSMessage numbered(std::int64_t number) {
  TKSMessage message;
  message.messageType = tks_message_type_launch_meeting;
  message.message = TKSDictionary{{"number", number}, {"gpcurlroot", "https://meet.tarvo.example"}};
  return message;
}

/// Answers each message with the same.
class Echo final : public TKSMessageHandlerDelegate {
 public:
  explicit Echo(TKSMessageHost& host) : host_(host) {}
  void handleMessage(const TKSMessage& message, TKSMessageHandlerDelegate*) override { host_.sendMessage(message); }
  void handleMessageHostFatalError(const std::string&) override { TKSMainLoop::stop(); }

 private:
  TKSMessageHost& host_;
};

/// Sends by the clock and counts what comes back.
class Talk final : public TKSMessageHandlerDelegate {
 public:
  Talk(TKSMessageHost& host, std::int64_t total) : host_(host), total_(total) {}

  void begin() {
    begin_ = Clock::now();
    sendDue();
  }
  void handleMessage(const TKSMessage& message, TKSMessageHandlerDelegate*) override {
    if (message.message["number"].integer() != received_) ++misplaced_;
    const double due = static_cast<double>(received_) / kRate;
    longest_ = std::max(longest_, std::chrono::duration<double>(Clock::now() - begin_).count() - due);
    if (++received_ == total_) TKSMainLoop::stop();
  }
  void handleMessageHostFatalError(const std::string&) override {
    broken_ = true;
    TKSMainLoop::stop();
  }

  Verdict verdict() const {
    const double seconds = std::chrono::duration<double>(Clock::now() - begin_).count();
    const bool held = longest_ <= std::chrono::duration<double>(kLongest).count();
    return {received_ == total_ && misplaced_ == 0 && !broken_ && held,
            std::to_string(received_) + " of " + std::to_string(total_) + " came back in " + std::to_string(seconds) +
                " s, the latest " + std::to_string(static_cast<int>(longest_ * 1000)) + " ms after it was due"};
  }

 private:
  void sendDue() {
    const double seconds = std::chrono::duration<double>(Clock::now() - begin_).count();
    const auto due = std::min(total_, static_cast<std::int64_t>(seconds * kRate));
    while (sent_ < due) host_.sendMessage(numbered(sent_++));
    if (sent_ < total_) timer_ = platform::mainLoop().after(kBetweenBatches, [this] { sendDue(); });
  }

  TKSMessageHost& host_;
  const std::int64_t total_;
  Clock::time_point begin_;
  std::int64_t sent_ = 0;
  std::int64_t received_ = 0;
  std::int64_t misplaced_ = 0;
  double longest_ = 0;
  bool broken_ = false;
  std::unique_ptr<platform::MainLoop::Timer> timer_;
};

/// Puts a launcher's pipes on this process's standard handles, for a scope.
class Joined {
 public:
  Joined(posix::FileDescriptor input, posix::FileDescriptor output)
      : input_(::fcntl(0, F_DUPFD_CLOEXEC, 3)), output_(::fcntl(1, F_DUPFD_CLOEXEC, 3)) {
    ::dup2(input.get(), 0);
    ::dup2(output.get(), 1);
  }
  ~Joined() {
    ::dup2(input_.get(), 0);
    ::dup2(output_.get(), 1);
  }

 private:
  posix::FileDescriptor input_;
  posix::FileDescriptor output_;
};

}  // namespace

int echoMessages(const std::vector<std::string>&) {
  TKSMessageHost host(tksMessageHostTypeTKS);
  Echo echo(host);
  host.openWithMessengeHandler(&echo);
  TKSMainLoop::run();
  host.close();
  return 0;
}

Verdict holdMessages(double scale) {
  posix::Pipe there = posix::makePipe();
  posix::Pipe back = posix::makePipe();
  const pid_t launcher = startRole("echo", {}, there.reader.get(), back.writer.get());
  there.reader.reset();
  back.writer.reset();
  Verdict verdict;
  {
    const Joined joined(std::move(back.reader), std::move(there.writer));
    TKSMessageHost host(tksMessageHostTypeInterface);
    Talk talk(host, static_cast<std::int64_t>(kRate * kSeconds * scale));
    host.openWithMessengeHandler(&talk);
    talk.begin();
    const auto patience = std::chrono::milliseconds(static_cast<int>((kSeconds * scale + 20) * 1000));
    const auto end = platform::mainLoop().after(patience, [] { TKSMainLoop::stop(); });
    TKSMainLoop::run();
    verdict = talk.verdict();
    host.close();
  }
  const int ended = waitFor(launcher);
  verdict.holds = verdict.holds && ended == 0;
  return verdict;
}

}  // namespace tks::bars
