#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <cerrno>
#include <chrono>
#include <filesystem>

#include "tests/platform/ChildProcessesTest.h"
#include "tests/support/FakeLauncher.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/InjectedSystemCall.h"
#include "tests/support/ProcessState.h"

// Children where the kernel is old, or a filter refuses its newer calls.

namespace {

using tks::gnulinux::SystemCalls;
using tks::platform::ChildEnd;
using tks::test::Child;
using tks::test::ChildProcesses;
using tks::test::children;
using tks::test::FakeLauncher;
using tks::test::InjectedSystemCall;
using tks::test::numbers;
using tks::test::refusing;

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(ChildProcesses, TheEndIsNoticedWithoutDescriptorsOfProcesses) {
  const FakeLauncher launcher({"--exit", "3"});
  const auto expectEnd = [&] {
    Child child;
    ASSERT_TRUE(child.start(launcher.executable()));
    ASSERT_TRUE(child.waitForEnd(std::chrono::seconds(2)));
    EXPECT_EQ(child.ends[0].how, ChildEnd::How::exited);
    EXPECT_EQ(child.ends[0].number, 3);
    EXPECT_THAT(children(), IsEmpty());
  };
  {
    const InjectedSystemCall olderKernel(&SystemCalls::cloneDescriptorFlag, 0);
    expectEnd();
  }
  const InjectedSystemCall olderKernel(&SystemCalls::cloneDescriptorFlag, 0);
  {
    const InjectedSystemCall oldKernel(&SystemCalls::pidfdOpen, refusing<ENOSYS>);
    expectEnd();
  }
  {
    const InjectedSystemCall filter(&SystemCalls::pidfdOpen, refusing<EPERM>);
    expectEnd();
  }
  const InjectedSystemCall noneLeft(&SystemCalls::pidfdOpen, refusing<EMFILE>);
  expectEnd();
}

TEST_F(ChildProcesses, TheEndOfAChildThatSomebodyElseCollectsIsNoticedWithoutDescriptorsToo) {
  TKS_IN_FRESH_PROCESS();
  ::signal(SIGCHLD, SIG_IGN);
  const InjectedSystemCall olderKernel(&SystemCalls::cloneDescriptorFlag, 0);
  const InjectedSystemCall oldKernel(&SystemCalls::pidfdOpen, refusing<ENOSYS>);
  const FakeLauncher launcher({"--exit", "3"});
  Child child;
  ASSERT_TRUE(child.start(launcher.executable()));
  ASSERT_TRUE(child.waitForEnd(std::chrono::seconds(2)));
  EXPECT_EQ(child.ends[0].how, ChildEnd::How::unknown);
}

TEST_F(ChildProcesses, AChildSeesThreeDescriptorsWhereTheyCannotBeClosedAtOnce) {
  TKS_IN_FRESH_PROCESS();
  if (!tks::test::holdManyDescriptors()) GTEST_SKIP() << "no room for so many descriptors";
  const FakeLauncher launcher({"--dump-descriptors", "descriptors", "--exit", "0"});
  const auto expectThree = [&] {
    std::filesystem::remove(launcher.file("descriptors"));
    Child child;
    ASSERT_TRUE(child.start(launcher.executable())) << child.error.description();
    EXPECT_THAT(numbers(launcher.report("descriptors")), ElementsAre("0", "1", "2"));
    EXPECT_TRUE(child.waitForEnd());
  };
  {
    const InjectedSystemCall oldKernel(&SystemCalls::closeRange, refusing<ENOSYS>);
    expectThree();
  }
  {
    const InjectedSystemCall withoutTheFlag(&SystemCalls::closeRange, refusing<EINVAL>);
    expectThree();
  }
  const InjectedSystemCall filter(&SystemCalls::closeRange, refusing<EPERM>);
  expectThree();
}

}  // namespace
