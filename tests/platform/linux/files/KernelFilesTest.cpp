#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>

#include "platform/files.h"
#include "platform/platform.h"

// The kernel's own volumes.

namespace {

using tks::platform::files;

TEST(KernelFiles, WhatAnnouncesNoSizeIsReadAsWell) {
  TKSError error;
  const std::optional<TKSData> content = files().read("/proc/self/status", 1 << 20, &error);
  ASSERT_TRUE(content) << error.description();
  EXPECT_THAT(std::string(content->begin(), content->end()), ::testing::HasSubstr("\nPid:"));
}

TEST(KernelFiles, KeepNobodyOutWhereThereAreNoLocks) {
  // There are none for what is not opened for writing, or no files to lock at all.
  TKSError error;
  EXPECT_TRUE(files().lock("/proc", std::chrono::milliseconds(0), &error)) << error.description();
}

}  // namespace
