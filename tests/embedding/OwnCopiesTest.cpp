#include <gtest/gtest.h>

#include "tests/support/ChildProcess.h"

namespace {

TEST(OwnCopies, OfAHostAndThoseInsideTheLibraryDoNotMeet) {
  tks::test::ChildProcess host = tks::test::ChildProcess::run(TKS_OWN_COPIES, {});
  EXPECT_EQ(host.wait(), 0) << host.output();
}

}  // namespace
