// The bars of load, see bars.h. Started by benchmarks/load.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "benchmarks/bars/bars.h"

extern char** environ;

namespace {

using namespace tks::bars;

struct Bar {
  std::string_view name;
  Verdict (*hold)(double scale);
  const char* what;
};
constexpr Bar kBars[] = {
    {"messages", holdMessages, "15,000 messages a second there and back, none lost"},
    {"hosts", startHostsAtOnce, "200 hosts at once on one launcher"},
    {"starts", startAndStop, "10,000 starts and stops, memory, descriptors and threads flat"},
    {"kills", killInstallations, "100 kills at random during installation, never a mixture"},
};

struct Role {
  std::string_view name;
  int (*play)(const std::vector<std::string>& arguments);
};
constexpr Role kRoles[] = {{"echo", echoMessages}, {"host", launchOneMeeting}, {"install", installOnce}};

bool holdBar(const Bar& bar, double scale) {
  const auto begin = std::chrono::steady_clock::now();
  const Verdict verdict = bar.hold(scale);
  const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - begin;
  // To standard error: a bar may stand on standard output with a launcher.
  std::fprintf(stderr, "%s  %s: %s (%s, %.0f s)\n", verdict.holds ? "pass" : "MISS", std::string(bar.name).c_str(),
               bar.what, verdict.words.c_str(), spent.count());
  return verdict.holds;
}

}  // namespace

pid_t tks::bars::startRole(const std::string& role, const std::vector<std::string>& arguments, int input, int output) {
  std::vector<std::string> words = {"load_bars", "--role=" + role};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  if (input >= 0) ::posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  if (output >= 0) ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  pid_t process = -1;
  const int error = ::posix_spawn(&process, "/proc/self/exe", &actions, nullptr, pointers.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  return error == 0 ? process : -1;
}

int tks::bars::waitFor(pid_t process) {
  int status = 0;
  while (::waitpid(process, &status, 0) < 0) {
    if (errno != EINTR) return 255;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

tks::bars::Home::Home(std::string folder) : folder_(std::move(folder)) {
  std::filesystem::create_directories(folder_ + "/tmp");
}

/// load_bars SCALE BAR... holds these bars; load_bars --role=NAME ... is one of the processes of a bar.
int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  constexpr std::string_view kRole = "--role=";
  if (!arguments.empty() && arguments.front().starts_with(kRole)) {
    for (const Role& role : kRoles) {
      if (arguments.front().substr(kRole.size()) == role.name)
        return role.play({arguments.begin() + 1, arguments.end()});
    }
    return 2;
  }
  bool all = arguments.size() > 1;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    bool known = false;
    for (const Bar& bar : kBars) {
      if (bar.name != arguments[i]) continue;
      known = true;
      all = holdBar(bar, std::atof(arguments.front().c_str())) && all;
    }
    if (!known) std::fprintf(stderr, "load: no bar is named %s\n", arguments[i].c_str());
    all = all && known;
  }
  return all ? 0 : 1;
}
