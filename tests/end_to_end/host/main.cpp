// A host for tests with real processes: does what it is told over a socket, and tells what happens to it.
//
//   e2e_host --control DESCRIPTOR --folder FOLDER [--real-clock] [--check-trust]
//
// FOLDER takes the place of the user's home and temporary folder. Without --real-clock nobody sleeps for long: the
// pauses between looks are a millisecond. Without --check-trust this is a lab device, which starts any launcher.
//
// Commands, one a line; NAME names the callbacks of a call:
//   path PATH | start NAME | stop NAME | launch NAME [JSON] | relaunch NAME | cleanup | status
//   nested NAME COMMAND...   when a callback of NAME has been called, do the command inside it
//   throw NAME               let the callbacks of NAME throw
//   cycle COUNT              start and stop so many times, one after the other
//   repeat COUNT             launch so many times, one after the other
//   options JSON             set the library's options
//   handles                  tell what standard input and output are
//   exit                     end by exit, as a program that comes to its end does
//   quit
//
// Events, one a line, line ends inside as "\n":
//   ready | set | handles KIND KIND | log LEVEL TEXT | finish NAME | error NAME DOMAIN CODE TEXT | pid NUMBER | status
//   NUMBER PID | done COUNT

#include <sys/stat.h>
#include <tksinterface/tksinterface.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

#include "platform/platform.h"

namespace {

using tks::platform::Clock;
using tks::platform::KnownFolders;
using tks::platform::Replaced;

class TestFolders final : public KnownFolders {
 public:
  explicit TestFolders(std::string folder) : folder_(std::move(folder)) {}
  std::string realHome() override { return folder_ + "/home"; }
  std::string temporary() override { return folder_ + "/tmp"; }
  std::string documents() override { return folder_ + "/home/Documents"; }

 private:
  std::string folder_;
};

class HastyClock final : public Clock {
 public:
  explicit HastyClock(Clock& real) : real_(real) {}
  std::string localTimestamp() override { return real_.localTimestamp(); }
  double secondsSince1970() override { return real_.secondsSince1970(); }
  void sleep(std::chrono::microseconds) override { real_.sleep(std::chrono::milliseconds(1)); }

 private:
  Clock& real_;
};

class Host {
 public:
  Host(int control, bool checksTrust) : control_(control), tks_(TKSInterface::sharedInstance()) {
    tks_.setLogBlock(
        [this](std::int32_t level, const std::string& text) { tell("log " + std::to_string(level) + " " + text); });
    tks_.launchedTKSPidBlock([this](std::int32_t pid) { tell("pid " + std::to_string(pid)); });
    TKSUtilBase::setPreference({std::string(TKSUserDefaultsKeyIsLabDevice)}, !checksTrust);
  }

  /// Reads commands until the socket ends.
  void serve() {
    tell("ready");
    std::string pending;
    char buffer[4096];
    while (true) {
      const ssize_t count = ::read(control_, buffer, sizeof buffer);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) break;
      pending.append(buffer, static_cast<std::size_t>(count));
      for (std::size_t end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
        follow(pending.substr(0, end));
        pending.erase(0, end + 1);
      }
    }
    TKSMainLoop::stop();
  }

 private:
  void tell(const std::string& event) {
    std::string line;
    for (const char c : event) c == '\n' ? line += "\\n" : line += c;
    line += '\n';
    const std::scoped_lock lock(mutex_);
    std::string_view rest = line;
    while (!rest.empty()) {
      const ssize_t count = ::write(control_, rest.data(), rest.size());
      if (count < 0 && errno != EINTR) return;
      if (count > 0) rest.remove_prefix(static_cast<std::size_t>(count));
    }
  }

  /// The operations may be called from here, on another thread than the main one: they are done there in this order.
  void follow(const std::string& command) {
    std::istringstream words(command);
    std::string verb;
    std::string name;
    words >> verb >> name;
    std::string rest;
    std::getline(words >> std::ws, rest);
    if (verb == "path") tks_.setTKSAppPath(command.substr(5));
    if (verb == "start") tks_.start(finish(name), error(name));
    if (verb == "stop") tks_.stop(finish(name), error(name));
    if (verb == "launch") tks_.launchMeetingWithParam(parameters(rest), finish(name), error(name));
    if (verb == "relaunch") tks_.relaunchTKSWhenUpdateDone(parameters(rest), finish(name), error(name));
    if (verb == "cleanup") tks_.cleanupConnectStatus4FileIPC();
    if (verb == "nested") nested_[name] = rest;
    if (verb == "throw") throwing_.insert(name);
    if (verb == "cycle") cycle(std::atoi(name.c_str()), 0);
    if (verb == "repeat") repeat(std::atoi(name.c_str()), 0);
    // After the step that the main thread is in.
    if (verb == "status") later([this] { tellStatus(); });
    if (verb == "options") setOptions(command.substr(8));
    if (verb == "exit") later([] { std::exit(0); });
    if (verb == "handles") later([this] { tellHandles(); });
    if (verb == "quit") TKSMainLoop::stop();
  }

  void tellHandles() {
    struct stat facts {};
    std::string kinds;
    for (const int number : {STDIN_FILENO, STDOUT_FILENO}) {
      const bool known = ::fstat(number, &facts) == 0;
      kinds += !known ? " closed" : S_ISFIFO(facts.st_mode) ? " pipe" : S_ISCHR(facts.st_mode) ? " device" : " other";
    }
    tell("handles" + kinds);
  }

  void setOptions(const std::string& json) {
    TKSError error;
    const auto options = TKSOptions::optionsFromDictionary(TKSUtilBase::JSONStringToObject(json).dictionary(), &error);
    const bool set = options && TKSOptions::setOptions(*options, &error);
    tell(set ? "set" : "error options - 0 " + error.localizedDescription);
  }

  static TKSValue parameters(const std::string& json) {
    return json.empty() ? TKSValue(TKSDictionary{{"gpcurlroot", "https://meet.tarvo.example"}})
                        : TKSUtilBase::JSONStringToObject(json);
  }

  void tellStatus() {
    tell("status " + std::to_string(tks_.appManager->TKSAppStatus) + " " + std::to_string(tks_.connectedTKSAppPid()));
  }

  TKSFinishBlock finish(const std::string& name) {
    return [this, name] {
      tell("finish " + name);
      afterCallback(name);
    };
  }
  TKSErrorBlock error(const std::string& name) {
    return [this, name](const TKSError& error) {
      tell("error " + name + " " + error.domain + " " + std::to_string(error.code) + " " + error.localizedDescription);
      afterCallback(name);
    };
  }
  void afterCallback(const std::string& name) {
    const auto command = nested_.extract(name);
    if (command) follow(command.mapped());
    if (throwing_.contains(name)) throw std::runtime_error("thrown by " + name);
  }

  void cycle(int count, int done) {
    if (done == count) return tell("done " + std::to_string(done));
    const TKSErrorBlock failed = [this](const TKSError& error) { tell("error cycle - 0 " + error.description()); };
    tks_.start(
        [this, count, done, failed] {
          tks_.stop([this, count, done] { later([this, count, done] { cycle(count, done + 1); }); }, failed);
        },
        failed);
  }

  /// The next launch waits for the end of the goodbye.
  void repeat(int count, int done) {
    if (tks_.isTKSAppProcessing()) {
      timer_ = tks::platform::mainLoop().after(std::chrono::milliseconds(1), [=, this] { repeat(count, done); });
      return;
    }
    if (done == count) return tell("done " + std::to_string(done));
    tks_.launchMeetingWithParam(
        parameters(""), [=, this] { later([=, this] { repeat(count, done + 1); }); },
        [this](const TKSError& error) { tell("error repeat - 0 " + error.description()); });
  }

  static void later(std::function<void()> work) { tks::platform::mainLoop().post(std::move(work)); }

  const int control_;
  std::mutex mutex_;
  TKSInterface& tks_;
  std::map<std::string, std::string> nested_;
  std::set<std::string> throwing_;
  std::unique_ptr<tks::platform::MainLoop::Timer> timer_;
};

}  // namespace

int main(int count, char** arguments) {
  int control = -1;
  std::string folder;
  bool realClock = false;
  bool checksTrust = false;
  for (int i = 1; i < count; ++i) {
    const std::string word = arguments[i];
    if (word == "--control" && i + 1 < count) control = std::atoi(arguments[++i]);
    if (word == "--folder" && i + 1 < count) folder = arguments[++i];
    if (word == "--real-clock") realClock = true;
    if (word == "--check-trust") checksTrust = true;
  }
  if (control < 0 || folder.empty()) return 64;
  std::filesystem::create_directories(folder + "/home");
  std::filesystem::create_directories(folder + "/tmp");

  auto& folders = *new TestFolders(folder);
  static Replaced<KnownFolders> replacedFolders(folders);
  auto& clock = *new HastyClock(tks::platform::clock());
  if (!realClock) static Replaced<Clock> replacedClock(clock);

  auto& host = *new Host(control, checksTrust);
  std::thread([&host] { host.serve(); }).detach();
  TKSMainLoop::run();
  std::_Exit(0);
}
