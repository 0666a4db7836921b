#include "tests/support/FreshProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/support/ChildProcess.h"
#include "tests/support/ProcessState.h"

namespace tks::test {
namespace {

/// Holds the number of the descriptor that takes what gtest prints.
constexpr const char* kVariable = "TKS_FRESH_PROCESS";
/// Above all that a test may want to count or limit.
constexpr int kReport = 900;

void redirectReport(int descriptor) {
  ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  std::fflush(stdout);
  FILE* report = ::fdopen(descriptor, "w");
  std::setvbuf(report, nullptr, _IOLBF, 0);
  stdout = report;
}

std::string nameOfThisTest() {
  const ::testing::TestInfo& test = *::testing::UnitTest::GetInstance()->current_test_info();
  return std::string(test.test_suite_name()) + "." + test.name();
}

pid_t startFresh(int report) {
  const std::string executable = ownExecutable();
  const std::string filter = "--gtest_filter=" + nameOfThisTest();
  const std::array<char*, 3> arguments = {const_cast<char*>(executable.c_str()), const_cast<char*>(filter.c_str()),
                                          nullptr};
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  ::posix_spawn_file_actions_adddup2(&actions, report, kReport);
  // What this process has inherited from its own caller would disturb tests that count.
  for (const int number : openDescriptors()) {
    if (number > 2 && number != kReport) ::posix_spawn_file_actions_addclose(&actions, number);
  }
  ::setenv(kVariable, "1", 1);
  pid_t process = -1;
  if (::posix_spawn(&process, executable.c_str(), &actions, nullptr, arguments.data(), environ) != 0) process = -1;
  ::unsetenv(kVariable);
  ::posix_spawn_file_actions_destroy(&actions);
  return process;
}

std::string readToTheEnd(int descriptor) {
  std::string text;
  std::array<char, 4096> piece;
  for (;;) {
    const ssize_t count = ::read(descriptor, piece.data(), piece.size());
    if (count > 0) text.append(piece.data(), static_cast<std::size_t>(count));
    if (count == 0 || (count < 0 && errno != EINTR)) return text;
  }
}

void runFresh() {
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC), 0);
  const pid_t process = startFresh(pipe[1]);
  ::close(pipe[1]);
  ASSERT_GT(process, 0);
  const std::string output = readToTheEnd(pipe[0]);
  ::close(pipe[0]);
  int status = 0;
  while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    ADD_FAILURE() << "in the fresh process (status " << status << "):\n" << output;
  } else if (output.find("[  SKIPPED ]") != std::string::npos) {
    GTEST_SKIP() << output;
  } else if (output.find("[  PASSED  ] 1 test") == std::string::npos) {
    ADD_FAILURE() << "the fresh process did not run the test:\n" << output;
  }
}

}  // namespace

bool inFreshProcess() {
  if (std::getenv(kVariable) == nullptr) {
    runFresh();
    return false;
  }
  ::unsetenv(kVariable);
  redirectReport(kReport);
  return true;
}

}  // namespace tks::test
