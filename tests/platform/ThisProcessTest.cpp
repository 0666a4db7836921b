#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <set>
#include <string>
#include <thread>

#include "platform/platform.h"

// What every implementation of the contract promises. On macOS a thread is described by Foundation, and identifiers are
// made by Core Foundation.

namespace {

using tks::platform::thisProcess;

TEST(ThisProcess, IdentifierIsTheSystems) { EXPECT_EQ(thisProcess().identifier(), ::getpid()); }

TEST(ThisProcess, EveryThreadHasANumberOfItsOwn) {
  const std::uint32_t here = thisProcess().threadNumber();
  std::uint32_t there = 0;
  std::thread([&] { there = thisProcess().threadNumber(); }).join();
  EXPECT_NE(here, there);
  EXPECT_EQ(here, thisProcess().threadNumber());
}

TEST(ThisProcess, ThreadDescriptionTellsNumberAndName) {
  // macOS counts the threads that it describes by itself.
  EXPECT_THAT(thisProcess().threadDescription(),
              testing::AnyOf(testing::HasSubstr(std::to_string(thisProcess().threadNumber())),
                             testing::MatchesRegex("<_?NS(Main)?Thread: 0x[0-9a-f]+>.number = [0-9]+, name = .*")));
}

TEST(ThisProcess, RandomUUIDsAreOfVersionFourAndNeverTwiceTheSame) {
  std::set<std::string> seen;
  for (int number = 0; number < 1000; ++number) {
    const std::string uuid = thisProcess().randomUUID();
    EXPECT_THAT(uuid, testing::MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"));
    EXPECT_TRUE(seen.insert(uuid).second);
  }
}

TEST(ThisProcess, SystemCountsAsNewEnough) { EXPECT_TRUE(thisProcess().isCatalinaOrLater()); }

}  // namespace
