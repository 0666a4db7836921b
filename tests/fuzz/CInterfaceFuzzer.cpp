#include <poll.h>
#include <tksinterface/c/tksinterface.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "tests/fuzz/Require.h"
#include "tests/interface/FakeWorld.h"
#include "tests/support/FakeBackgroundWork.h"
#include "tests/support/PlayedTimers.h"

// A host in C that calls what it likes, with whatever texts, and a launcher that says whatever it likes. Nothing is
// called after its context was released, each context is released once, and one call hears of one end.
//
// An input is a list of deeds, a byte each; one that needs a text takes the next byte as its length and the text after
// it.

namespace {

using tks::fuzz::require;
using tks::test::FakeWorld;
using tks::test::PlayedBackground;
using tks::test::PlayedTimers;
using tks::test::Wire;

constexpr std::size_t kMostDeeds = 40;
constexpr int kPlaysInOneWorld = 2000;

/// What a host keeps of one call.
struct Context {
  int finished = 0;
  int failed = 0;
  int released = 0;

  static Context& of(void* context) {
    Context& mine = *static_cast<Context*>(context);
    require(mine.released == 0);
    return mine;
  }
  static void finish(void* context) { ++of(context).finished; }
  static void fail(void* context, const tks_error* error) {
    ++of(context).failed;
    require(error->domain != nullptr && error->text != nullptr && error->suggestion != nullptr &&
            std::strlen(error->reason_name) > 0);
  }
  static void pid(void* context, std::int32_t number) { require(of(context).released == 0 && number > 0); }
  static void log(void* context, std::int32_t level, const char* line) {
    of(context);
    require(level > 0 && line != nullptr);
  }
  static void progress(void* context, std::int32_t step, std::int32_t steps, std::uint64_t done, std::uint64_t total) {
    of(context);
    require(step >= 1 && step <= steps && done <= total);
  }
  static void release(void* context) { ++of(context).released; }
};

/// The rest of an input.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  bool isEmpty() const { return size_ == 0; }
  std::uint8_t byte() {
    if (size_ == 0) return 0;
    --size_;
    return *data_++;
  }
  std::string text() {
    const std::size_t length = std::min<std::size_t>(byte(), size_);
    const std::string taken(reinterpret_cast<const char*>(data_), length);
    data_ += length;
    size_ -= length;
    return taken;
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
};

void drop(char* text) {
  require(text == nullptr || std::strlen(text) < std::size_t{1} << 24);
  tks_free(text);
}

class Host {
 public:
  Host() {
    world_.processes.onStart = [this] { makeNewPipes(); };
    tks_set_launcher(world_.bundle().c_str());
  }

  void play(Input input) {
    begin();
    for (std::size_t deeds = 0; deeds < kMostDeeds && !input.isEmpty(); ++deeds) {
      const Deed deed = kDeeds[input.byte() % std::size(kDeeds)];
      (this->*deed)(input);
      settle();
    }
    end();
  }

 private:
  using Deed = void (Host::*)(Input&);
  using Launch = void (*)(const char*, tks_finish_fn, tks_error_fn, void*, tks_release_fn);

  Context* made() {
    contexts_.push_back(std::make_unique<Context>());
    return contexts_.back().get();
  }
  /// Without a callback now and then.
  void call(Input& input, void (*operation)(tks_finish_fn, tks_error_fn, void*, tks_release_fn)) {
    const std::uint8_t without = input.byte();
    Context* const one = made();
    operation((without & 3) == 3 ? nullptr : &Context::finish, (without & 6) == 6 ? nullptr : &Context::fail, one,
              &Context::release);
  }
  void launchBy(Input& input, Launch operation) {
    const std::string text = input.text();
    operation(text.empty() ? nullptr : text.c_str(), &Context::finish, &Context::fail, made(), &Context::release);
  }

  void start(Input& input) { call(input, &tks_start); }
  void stop(Input& input) { call(input, &tks_stop); }
  void launch(Input& input) { launchBy(input, &tks_launch); }
  void launchDirectly(Input& input) { launchBy(input, &tks_launch_directly); }
  void launchAfterUpdate(Input& input) { launchBy(input, &tks_launch_after_update); }
  void launchAMeeting(Input&) {
    tks_launch(R"({"gpcurlroot":"https://meet.example"})", &Context::finish, &Context::fail, made(), &Context::release);
  }
  void cleanUp(Input&) { tks_clean_up_file_channel(); }
  void listenForPids(Input& input) {
    tks_set_pid_callback(input.byte() % 2 == 0 ? &Context::pid : nullptr, made(), &Context::release);
  }
  void listenToTheLog(Input& input) {
    tks_set_log(input.byte() % 2 == 0 ? &Context::log : nullptr, made(), &Context::release);
  }
  void listenToProgress(Input& input) {
    tks_set_install_progress(input.byte() % 2 == 0 ? &Context::progress : nullptr, made(), &Context::release);
  }
  void writeToTheLog(Input& input) {
    const std::int32_t level = 1 << input.byte() % 4;
    tks_log(level, input.text().c_str());
  }
  void mask(Input& input) {
    const std::string text = input.text();
    drop(tks_mask(text.c_str()));
    drop(tks_add_mask(text.c_str()));
    drop(tks_mask(nullptr));
  }
  void ask(Input&) {
    drop(tks_recorded_sites());
    drop(tks_launcher());
    require(tks_status() >= 1 && tks_status() <= 4 && tks_connected_pid() >= 0);
  }
  /// Names in the world's own folder alone, because a broken launcher is removed.
  void nameLauncher(Input& input) {
    std::string name = input.text();
    std::ranges::replace_if(
        name, [](char byte) { return byte == '/' || byte == '.'; }, '_');
    tks_set_launcher(name.empty() ? world_.bundle().c_str() : (world_.folder / name).c_str());
  }
  void nameArchive(Input& input) {
    const std::string version = input.text();
    tks_set_backup_archive(version.empty() ? nullptr : (world_.folder / "none.zip").c_str(), version.c_str());
  }
  void checkTrust(Input& input) {
    const std::string path = input.text();
    Context one;
    const bool trusted = tks_check_trust(path.empty() ? nullptr : path.c_str(), &Context::fail, &one);
    require(trusted == (one.failed == 0));
  }

  // The launcher.

  void answer(Input&) {
    if (heard_.empty()) return;
    const std::string type = heard_.front();
    heard_.pop_front();
    world_.says(type == "launch_meeting" ? "launch_meeting_ack" : type + "_ack", "{}");
  }
  void say(Input& input) { world_.channels.input->arrive(tks::test::frame(input.text())); }
  void babble(Input& input) { world_.channels.input->arrive(input.text()); }
  void update(Input&) { world_.says("host_notify"); }
  void refuse(Input&) { world_.says("error", R"({"error_code":"2003","error_message":"failed"})"); }
  void endChannel(Input&) { world_.channels.input->end(); }
  void endProcess(Input&) { endLastProcess(); }
  void endLastProcess() {
    const std::size_t count = world_.processes.count();
    if (count > 0) world_.processes.end(count - 1, {tks::platform::ChildEnd::How::exited, 0});
    settle();
    timers_.pass(std::chrono::seconds(1));
  }

  static constexpr Deed kDeeds[] = {
      &Host::start,
      &Host::stop,
      &Host::launch,
      &Host::launchDirectly,
      &Host::launchAfterUpdate,
      &Host::launchAMeeting,
      &Host::cleanUp,
      &Host::listenForPids,
      &Host::listenToTheLog,
      &Host::listenToProgress,
      &Host::writeToTheLog,
      &Host::mask,
      &Host::ask,
      &Host::nameLauncher,
      &Host::nameArchive,
      &Host::checkTrust,
      &Host::answer,
      &Host::answer,
      &Host::say,
      &Host::babble,
      &Host::update,
      &Host::refuse,
      &Host::endChannel,
      &Host::endProcess,
  };

  void makeNewPipes() {
    world_.channels.input = std::make_shared<Wire>();
    world_.channels.output = std::make_shared<Wire>();
    heard_.clear();
  }
  void settle() {
    pollfd watched{.fd = TKSMainLoop::descriptor(), .events = POLLIN, .revents = 0};
    do {
      background_.doAll();
      TKSMainLoop::drain();
    } while (::poll(&watched, 1, 0) > 0 || !background_.queue.empty());
    for (const std::string& type : world_.heard()) heard_.push_back(type);
  }
  void begin() {
    makeNewPipes();
    tks_set_launcher(world_.bundle().c_str());
    tks_set_backup_archive(nullptr, "");
  }
  /// Lets everything come to its end: every context that listens has heard of its own, and is released.
  void end() {
    for (int round = 0; round < 8; ++round) {
      world_.channels.input->end();
      settle();
      endLastProcess();
      settle();
      tks_stop(&Context::finish, &Context::fail, made(), &Context::release);
      settle();
    }
    require(tks_status() == TKS_STATUS_UNCONNECTED);
    tks_set_pid_callback(nullptr, nullptr, nullptr);
    tks_set_log(nullptr, nullptr, nullptr);
    tks_set_install_progress(nullptr, nullptr, nullptr);
    // A launch that fails at once takes what the conversation keeps of the one before.
    tks_set_launcher((world_.folder / "nowhere").c_str());
    launchNothing();
    settle();
    for (const auto& one : contexts_) require(one->released == 1 && one->finished + one->failed <= 1);
    contexts_.clear();
  }
  void launchNothing() { tks_launch("{}", &Context::finish, &Context::fail, made(), &Context::release); }

  PlayedTimers timers_;
  FakeWorld world_;
  PlayedBackground background_;
  std::deque<std::string> heard_;
  std::vector<std::unique_ptr<Context>> contexts_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static std::unique_ptr<Host> host;
  static int plays = 0;
  // A world keeps what happened in it.
  if (plays++ % kPlaysInOneWorld == 0) {
    host.reset();
    host = std::make_unique<Host>();
  }
  host->play({data, size});
  return 0;
}
