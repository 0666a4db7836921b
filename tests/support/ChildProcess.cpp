#include "tests/support/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <map>
#include <stdexcept>
#include <utility>

#include "tests/support/ProcessTable.h"

extern char** environ;

namespace tks::test {
namespace {

constexpr std::string_view kSwitch = "--child=";

std::map<std::string, ChildRole::Function>& roles() {
  static auto& registered = *new std::map<std::string, ChildRole::Function>;
  return registered;
}

Arguments changedEnvironment(const Arguments& changes) {
  std::map<std::string, std::string> variables;
  const auto apply = [&](const std::string& pair) {
    const std::size_t equals = pair.find('=');
    if (equals == std::string::npos) {
      variables.erase(pair);
    } else {
      variables[pair.substr(0, equals)] = pair.substr(equals + 1);
    }
  };
  for (char** variable = environ; *variable != nullptr; ++variable) apply(*variable);
  for (const std::string& change : changes) apply(change);
  Arguments pairs;
  for (const auto& [name, value] : variables) pairs.push_back(name + "=" + value);
  return pairs;
}

std::vector<char*> pointersTo(const Arguments& texts) {
  std::vector<char*> pointers;
  for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

ChildRole::ChildRole(std::string_view name, Function function) { roles().emplace(name, function); }

std::optional<int> ChildRole::play(int argc, char** argv) {
  if (argc < 2 || !std::string_view(argv[1]).starts_with(kSwitch)) return std::nullopt;
  const auto role = roles().find(argv[1] + kSwitch.size());
  if (role == roles().end()) return 127;
  return role->second(Arguments(argv + 2, argv + argc));
}

std::string ownExecutable() { return executableOf(::getpid()); }

ChildProcess ChildProcess::inRole(std::string_view role, Arguments arguments, const Arguments& environment) {
  arguments.insert(arguments.begin(), std::string(kSwitch).append(role));
  return run(ownExecutable(), arguments, environment);
}

ChildProcess ChildProcess::run(const std::string& executable, const Arguments& arguments,
                               const Arguments& environment) {
  std::array<int, 2> pipe{};
  if (::pipe2(pipe.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  Arguments all{executable};
  all.insert(all.end(), arguments.begin(), arguments.end());
  const Arguments variables = changedEnvironment(environment);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_adddup2(&actions, pipe[1], 1);
  pid_t pid = 0;
  const int failure =
      ::posix_spawn(&pid, executable.c_str(), &actions, nullptr, pointersTo(all).data(), pointersTo(variables).data());
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(pipe[1]);
  if (failure != 0) {
    ::close(pipe[0]);
    throw std::runtime_error("cannot start " + executable);
  }
  return ChildProcess(pid, pipe[0]);
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, 0)),
      descriptor_(std::exchange(other.descriptor_, -1)),
      output_(std::move(other.output_)),
      result_(other.result_) {}

ChildProcess::~ChildProcess() {
  if (pid_ == 0) return;
  if (!result_) ::kill(pid_, SIGKILL);
  wait();
}

int ChildProcess::wait() {
  if (result_) return *result_;
  std::array<char, 4096> buffer;
  for (;;) {
    const ssize_t count = ::read(descriptor_, buffer.data(), buffer.size());
    if (count > 0) output_.append(buffer.data(), static_cast<std::size_t>(count));
    if (count == 0 || (count < 0 && errno != EINTR)) break;
  }
  ::close(descriptor_);
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  result_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return *result_;
}

}  // namespace tks::test
