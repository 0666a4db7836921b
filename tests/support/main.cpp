#include <gtest/gtest.h>

#include "tests/support/ChildProcess.h"

int main(int argc, char** argv) {
  if (const std::optional<int> result = tks::test::ChildRole::play(argc, argv)) return *result;
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
