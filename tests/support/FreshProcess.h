#pragma once

namespace tks::test {

/// For TKS_IN_FRESH_PROCESS: true in the fresh process; false, once that has ended and its failures are reported, in
/// the test program that started it.
bool inFreshProcess();

}  // namespace tks::test

/// As the first line of a test: runs the rest of it in a new process of this program, in which no other test has been
/// and whose standard descriptors, limits and signals it may change. Standard input and output are /dev/null there;
/// what gtest prints goes another way.
#define TKS_IN_FRESH_PROCESS() \
  if (!::tks::test::inFreshProcess()) return
