#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <cerrno>

#include "platform/platform.h"
#include "tests/platform/RunningApplicationsTest.h"
#include "tests/support/InjectedSystemCall.h"

// Ending applications where the kernel has no descriptors of processes, or a filter refuses them.

namespace {

using tks::gnulinux::SystemCalls;
using tks::platform::runningApplications;
using tks::test::InjectedSystemCall;
using tks::test::refusing;
using tks::test::RunningApplications;
using tks::test::Started;

TEST_F(RunningApplications, AProcessThatOnlyHasTheSameIdentifierIsLeftAloneByAnOldKernelToo) {
  const Started started(launcher);
  const InjectedSystemCall oldKernel(&SystemCalls::pidfdOpen, refusing<ENOSYS>);
  TKSRunningApplication earlier = *runningApplications().find(started.pid());
  earlier.startTime -= 1;
  EXPECT_FALSE(runningApplications().forceTerminate(earlier));
  EXPECT_FALSE(runningApplications().terminate(earlier));
  EXPECT_TRUE(runningApplications().find(started.pid()));
}

TEST_F(RunningApplications, EndWithoutDescriptorsOfProcessesAsWell) {
  const InjectedSystemCall oldKernel(&SystemCalls::pidfdOpen, refusing<ENOSYS>);
  Started first(launcher);
  EXPECT_TRUE(runningApplications().forceTerminate(*runningApplications().find(first.pid())));
  EXPECT_EQ(first.wait(), 128 + SIGKILL);
}

TEST_F(RunningApplications, EndWhereProcessesCannotBeSignalledByDescriptor) {
  const InjectedSystemCall oldKernel(&SystemCalls::pidfdSendSignal, refusing<ENOSYS>);
  Started started(launcher);
  EXPECT_TRUE(runningApplications().forceTerminate(*runningApplications().find(started.pid())));
  EXPECT_EQ(started.wait(), 128 + SIGKILL);
}

}  // namespace
