#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "tests/reach/SignedLauncher.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/ProcessState.h"
#include "tests/support/Sanitized.h"

// The programs of examples/, as their users run them: real processes over the shared library.

namespace {

namespace fs = std::filesystem;
using namespace tks::test;
using testing::HasSubstr;
using testing::IsEmpty;

struct ExampleProgram {
  std::string name;
  std::vector<std::string> command;
};

void PrintTo(const ExampleProgram& program, std::ostream* out) { *out << program.name; }

const std::vector<ExampleProgram>& programs() {
  static const auto& all = *new std::vector<ExampleProgram>{
#include "ExamplePrograms.inc"
  };
  return all;
}

/// One run of a program with a launcher of its own.
class ExampleHost : public testing::TestWithParam<ExampleProgram> {
 protected:
  void SetUp() override {
    if (!fs::exists(GetParam().command.front())) GTEST_SKIP() << "not built: " << GetParam().command.front();
  }

  int run(const std::string& launcherPath, const std::string& orders = "") {
    fs::create_directory(folder_ / "tmp");
    fs::permissions(folder_ / "tmp", fs::perms::owner_all);
    // What people read comes on standard error; standard output is the launcher's.
    Arguments words{"-c", "exec \"$@\" 2>&1", "sh"};
    words.insert(words.end(), GetParam().command.begin(), GetParam().command.end());
    words.push_back(launcherPath);
    Arguments environment{"TMPDIR=" + folder_ / "tmp", "TKS_FAKE_LAUNCHER=" + orders};
    if (GetParam().name == "python" && kSanitized) {
      // A sanitizer wants to be loaded first. What the interpreter keeps until its end is no leak of the library.
      environment.push_back("LD_PRELOAD=" + std::string(TKS_SANITIZER_LIBRARY));
      environment.push_back("ASAN_OPTIONS=detect_leaks=0");
    }
    ChildProcess host = ChildProcess::run("/bin/sh", words, environment);
    const int code = host.wait();
    said_ = host.output();
    return code;
  }

  void expectNothingLeft() {
    EXPECT_TRUE(waitUntil([&] { return launcher_.processes().empty(); })) << "a launcher runs on";
    std::vector<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder_ / "tmp")) {
      if (entry.is_regular_file()) files.push_back(entry.path());
    }
    EXPECT_THAT(files, IsEmpty());
  }

  TemporaryFolder folder_;
  SignedLauncher launcher_;
  std::string said_;
};

INSTANTIATE_TEST_SUITE_P(Each, ExampleHost, testing::ValuesIn(programs()),
                         [](const auto& tested) { return tested.param.name; });

TEST_P(ExampleHost, LaunchesAMeetingAndLeavesNothing) {
  EXPECT_EQ(run(launcher_.bundle()), 0) << said_;
  EXPECT_THAT(said_, HasSubstr("The meeting was launched."));
  expectNothingLeft();
}

TEST_P(ExampleHost, HearsOfALaunchersError) {
  EXPECT_EQ(run(launcher_.bundle(), "--error-code 2003 --error-text no_such_meeting"), 1) << said_;
  EXPECT_THAT(said_, HasSubstr("no_such_meeting"));
  expectNothingLeft();
}

TEST_P(ExampleHost, HearsThatThereIsNoLauncher) {
  EXPECT_EQ(run(folder_ / "Nowhere.app"), 1) << said_;
  EXPECT_THAT(said_, HasSubstr("Component binary file not exists: "));
  expectNothingLeft();
}

}  // namespace
