#include "tests/end_to_end/HostProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "tests/support/ProcessState.h"

namespace tks::test {
namespace {

constexpr int kControl = 3;

const char* programOf(HostKind kind) {
  switch (kind) {
    case HostKind::plain:
      return TKS_E2E_HOST;
    case HostKind::ember:
      return TKS_E2E_HOST_EMBER;
    case HostKind::emberDebug:
      return TKS_E2E_HOST_EMBER_DEBUG;
  }
  return "";
}

/// In the child, between fork and exec: system calls only.
[[noreturn]] void becomeHost(const HostOptions& options, int control, char* const* arguments) {
  if (control == kControl) {
    ::fcntl(control, F_SETFD, 0);
  } else {
    ::dup2(control, kControl);
  }
  if (options.ignoresChildren) ::signal(SIGCHLD, SIG_IGN);
  const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  for (int standard = 0; standard <= 2; ++standard) {
    if (options.withoutStandardDescriptors) {
      ::close(standard);
    } else {
      ::dup2(null, standard);
    }
  }
  if (options.openDescriptors > 0) {
    const rlim_t wanted = static_cast<rlim_t>(options.openDescriptors) + 200;
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::max(limit.rlim_cur, wanted);
    limit.rlim_max = std::max(limit.rlim_max, limit.rlim_cur);
    ::setrlimit(RLIMIT_NOFILE, &limit);
    for (int i = 0; i < options.openDescriptors; ++i) {
      if (::fcntl(kControl, F_DUPFD, kControl + 1) < 0) ::_exit(71);
    }
  }
  ::execv(arguments[0], arguments);
  ::_exit(70);
}

}  // namespace

HostProcess::HostProcess(const HostOptions& options) {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) throw std::runtime_error("no socket");
  control_ = ends[0];
  const std::string control = std::to_string(kControl);
  std::vector<const char*> arguments = {programOf(options.kind), "--control", control.c_str(), "--folder",
                                        folder_.path().c_str()};
  if (options.realClock) arguments.push_back("--real-clock");
  if (options.checksTrust) arguments.push_back("--check-trust");
  arguments.push_back(nullptr);
  pid_ = ::fork();
  if (pid_ == 0) becomeHost(options, ends[1], const_cast<char* const*>(arguments.data()));
  ::close(ends[1]);
  if (pid_ < 0) throw std::runtime_error("no process");
  reader_ = std::thread([this] { read(); });
  if (!waitFor("ready")) throw std::runtime_error("the host does not begin");
}

HostProcess::~HostProcess() {
  if (!result_) ::kill(pid_, SIGKILL);
  collect();
  ::shutdown(control_, SHUT_RDWR);
  reader_.join();
  ::close(control_);
}

void HostProcess::read() {
  std::string pending;
  std::array<char, 4096> buffer;
  for (;;) {
    const ssize_t count = ::read(control_, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    pending.append(buffer.data(), static_cast<std::size_t>(count));
    const std::scoped_lock lock(mutex_);
    for (std::size_t end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
      events_.push_back(pending.substr(0, end));
      pending.erase(0, end + 1);
    }
    changed_.notify_all();
  }
  const std::scoped_lock lock(mutex_);
  ended_ = true;
  changed_.notify_all();
}

void HostProcess::command(const std::string& line) {
  const std::string whole = line + "\n";
  std::size_t written = 0;
  while (written < whole.size()) {
    const ssize_t count = ::send(control_, whole.data() + written, whole.size() - written, MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return;
    written += static_cast<std::size_t>(count);
  }
}

bool HostProcess::waitUntil(const Wanted& wanted, std::chrono::milliseconds limit) const {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, limit, [&] { return ended_ || wanted(events_); });
  return wanted(events_);
}

std::optional<std::string> HostProcess::waitFor(const std::string& beginning, std::chrono::milliseconds limit) const {
  std::optional<std::string> found;
  waitUntil(
      [&](const std::vector<std::string>& events) {
        const auto event = std::find_if(events.begin(), events.end(),
                                        [&](const std::string& one) { return one.starts_with(beginning); });
        if (event != events.end()) found = *event;
        return found.has_value();
      },
      limit);
  return found;
}

std::vector<std::string> HostProcess::events() const {
  const std::scoped_lock lock(mutex_);
  return events_;
}

std::vector<std::string> HostProcess::events(const std::string& beginning) const {
  std::vector<std::string> found;
  for (const std::string& event : events()) {
    if (event.starts_with(beginning)) found.push_back(event);
  }
  return found;
}

void HostProcess::forget() {
  const std::scoped_lock lock(mutex_);
  events_.clear();
}

std::pair<int, int> HostProcess::status() {
  const std::size_t before = events("status ").size();
  command("status");
  std::string answer;
  waitUntil([&](const std::vector<std::string>& events) {
    std::size_t count = 0;
    for (const std::string& event : events) {
      if (event.starts_with("status ") && ++count > before) answer = event;
    }
    return !answer.empty();
  });
  std::pair<int, int> status{-1, -1};
  std::istringstream(answer.substr(std::min<std::size_t>(7, answer.size()))) >> status.first >> status.second;
  return status;
}

bool HostProcess::waitForStatus(int wanted) {
  return tks::test::waitUntil([&] { return status().first == wanted; }, std::chrono::seconds(30));
}

std::size_t HostProcess::descriptors() const { return descriptorCount(pid_); }

bool HostProcess::waitForDescriptors(std::size_t atMost) const {
  return tks::test::waitUntil([&] { return descriptors() <= atMost; });
}

std::size_t HostProcess::threads() const { return threadCount(pid_); }

std::set<int> HostProcess::children() const { return tks::test::children(pid_); }

bool HostProcess::isAlive() const {
  siginfo_t info{};
  return ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == 0;
}

std::vector<std::string> HostProcess::temporaryFiles() const {
  std::vector<std::string> found;
  std::error_code gone;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_ / "tmp", gone)) {
    // The folder of the host itself stays; the folders of its conversations do not.
    if (entry.path().filename().string().starts_with("ipcFile_")) found.push_back(entry.path());
  }
  return found;
}

void HostProcess::kill() {
  ::kill(pid_, SIGKILL);
  collect();
}

int HostProcess::quit() {
  command("quit");
  return collect();
}

int HostProcess::exit() {
  command("exit");
  return collect();
}

int HostProcess::collect() {
  if (result_) return *result_;
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  result_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return *result_;
}

}  // namespace tks::test
