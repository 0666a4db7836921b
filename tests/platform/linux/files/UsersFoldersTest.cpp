#include "platform/linux/files/users_folders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tksinterface/TKSILog.h>

#include "platform/platform.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using tks::gnulinux::usersFoldersWith;

TEST(UsersFolders, AreHomeAndTheFolderOfTheRealHome) {
  EXPECT_THAT(usersFoldersWith("/home/jane"), ElementsAre("/home/"));
  EXPECT_THAT(usersFoldersWith("/Data/Staff/jane"), ElementsAre("/data/staff/", "/home/"));
  EXPECT_THAT(usersFoldersWith("/nfs/jane"), ElementsAre("/home/", "/nfs/"));
  EXPECT_THAT(usersFoldersWith("/home/team/jane"), ElementsAre("/home/team/", "/home/"));
}

TEST(UsersFolders, AreNeverTheWholeSystem) {
  for (const char* home : {"/root", "/", "", "jane", "/Users/jane"}) {
    EXPECT_THAT(usersFoldersWith(home), ElementsAre("/home/")) << home;
  }
}

TEST(UsersFolders, OfThisProcessAreAskedForByTheMaskingOfTexts) {
  EXPECT_THAT(tks::platform::usersFolders().list(), Contains("/home/"));
  EXPECT_EQ(TKSILog::removeSensitiveInformation("/home/jane/x /Home/joe/y"), "/home/****/x /Home/***/y");
}

}  // namespace
