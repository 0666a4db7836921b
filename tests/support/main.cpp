#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>

#include "tests/support/ChildProcess.h"

namespace {

/// Macs start with 256, and fresh processes report on a higher number.
void allowAThousandDescriptors() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= 1024) return;
  limit.rlim_cur = std::min<rlim_t>(1024, limit.rlim_max);
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

int main(int argc, char** argv) {
  allowAThousandDescriptors();
  if (const std::optional<int> result = tks::test::ChildRole::play(argc, argv)) return *result;
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
