#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "install/Patience.h"
#include "install/PlaceLock.h"
#include "platform/platform.h"
#include "tests/support/ForwardingFiles.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TemporaryFolder.h"

// How long an operation waits for other processes.

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using tks::install::Patience;
using tks::platform::FileLock;

/// Files whose locks another process has.
class HeldFiles final : public tks::test::ForwardingFiles {
 public:
  std::vector<milliseconds> waits;
  milliseconds takes{0};
  bool isFree = false;
  TKSErrorReason reason = TKSErrorReason::busy;

  std::unique_ptr<FileLock> lock(std::string_view path, milliseconds patience, TKSError* error) override {
    if (isFree) return tks::test::ForwardingFiles::lock(path, patience, error);
    waits.push_back(patience);
    if (patience > milliseconds(0)) std::this_thread::sleep_for(takes);
    if (error != nullptr) *error = {"POSIX", 1, "held", reason};
    return nullptr;
  }
};

class PatienceTest : public testing::Test {
 protected:
  std::unique_ptr<FileLock> lock(Patience& patience) {
    error_ = {};
    return patience.lock(folder_.path(), &error_);
  }
  std::vector<std::string> warnings() { return log_.texts(4); }

  tks::test::TemporaryFolder folder_;
  tks::test::LogRecorder log_;
  HeldFiles files_;
  TKSError error_;
};

TEST_F(PatienceTest, IsNotNeededWhereAPathNamesNoBundle) {
  for (const std::string path : {"", "/", "//", ".", "..", "../", "/..", "some/..", "some/."}) {
    Patience patience(std::chrono::minutes(10));
    EXPECT_EQ(tks::install::lockPlace(path, patience, &error_), nullptr) << path;
    EXPECT_FALSE(tks::install::isUsablePlace(path)) << path;
    EXPECT_THAT(files_.waits, IsEmpty()) << path << ": the folder above is nobody's place";
  }
  EXPECT_EQ(error_, TKSError());
}

TEST_F(PatienceTest, IsTwoSecondsOnTheMainThread) {
  Patience patience(std::chrono::minutes(10));
  EXPECT_FALSE(lock(patience));
  EXPECT_EQ(error_.localizedDescription, "held");
  EXPECT_THAT(files_.waits, ElementsAre(milliseconds(0), milliseconds(2000)));
}

TEST_F(PatienceTest, IsWhatIsSaidInTheBackground) {
  std::thread([&] {
    Patience patience(std::chrono::minutes(10));
    EXPECT_FALSE(lock(patience));
  }).join();
  EXPECT_THAT(files_.waits, ElementsAre(milliseconds(0), milliseconds(600'000)));
}

TEST_F(PatienceTest, IsOneForAllWaitsOfAnOperation) {
  Patience patience(milliseconds(1000));
  files_.takes = milliseconds(20);
  lock(patience);
  lock(patience);
  ASSERT_EQ(files_.waits.size(), 4u);
  EXPECT_LE(files_.waits.at(3), milliseconds(980));
}

TEST_F(PatienceTest, NamesOnceWhatIsWaitedFor) {
  Patience patience(milliseconds(1000));
  lock(patience);
  lock(patience);
  EXPECT_THAT(warnings(), ElementsAre("Waiting for another process at: " + folder_.path()));
}

TEST_F(PatienceTest, OfNoneAsksOnceAndIsSilent) {
  Patience patience(milliseconds(0));
  EXPECT_FALSE(lock(patience));
  EXPECT_THAT(files_.waits, ElementsAre(milliseconds(0)));
  EXPECT_THAT(warnings(), IsEmpty());
}

TEST_F(PatienceTest, IsNotNeededForAPlaceThatNobodyHas) {
  files_.isFree = true;
  Patience patience(milliseconds(1000));
  EXPECT_TRUE(lock(patience));
  EXPECT_THAT(warnings(), IsEmpty());
}

/// A log callback runs while an installation holds its locks, and may install as well: two that wait for each other's
/// locks would wait for nothing.
TEST_F(PatienceTest, IsNoneWhileTheThreadHoldsALockOfAnotherOperation) {
  files_.isFree = true;
  Patience outer(std::chrono::minutes(10));
  const std::unique_ptr<FileLock> held = lock(outer);
  ASSERT_TRUE(held);
  files_.isFree = false;
  Patience inner(std::chrono::minutes(10));
  EXPECT_FALSE(lock(inner));
  EXPECT_EQ(error_.reason, TKSErrorReason::busy);
  EXPECT_THAT(files_.waits, ElementsAre(milliseconds(0)));
  EXPECT_THAT(warnings(), IsEmpty());
}

TEST_F(PatienceTest, IsTheSameAgainWhenTheLockIsGone) {
  files_.isFree = true;
  Patience outer(std::chrono::minutes(10));
  lock(outer).reset();
  files_.isFree = false;
  Patience inner(milliseconds(1000));
  EXPECT_FALSE(lock(inner));
  EXPECT_THAT(files_.waits, ElementsAre(milliseconds(0), milliseconds(1000)));
}

TEST_F(PatienceTest, IsNotLostByTheFirstLockOfTheSameOperation) {
  files_.isFree = true;
  Patience patience(milliseconds(1000));
  const std::unique_ptr<FileLock> held = lock(patience);
  files_.isFree = false;
  EXPECT_FALSE(lock(patience));
  EXPECT_THAT(files_.waits, ElementsAre(milliseconds(0), milliseconds(1000)));
}

TEST_F(PatienceTest, IsNotLostByTheLocksOfAnotherThread) {
  files_.isFree = true;
  Patience outer(std::chrono::minutes(10));
  const std::unique_ptr<FileLock> held = lock(outer);
  files_.isFree = false;
  std::thread([&] {
    Patience other(milliseconds(1000));
    EXPECT_FALSE(lock(other));
  }).join();
  EXPECT_THAT(files_.waits, ElementsAre(milliseconds(0), milliseconds(1000)));
}

TEST_F(PatienceTest, DoesNotHelpAgainstAnythingButAnotherProcess) {
  files_.reason = TKSErrorReason::noPermission;
  Patience patience(milliseconds(1000));
  EXPECT_FALSE(lock(patience));
  EXPECT_THAT(files_.waits, ElementsAre(milliseconds(0)));
  EXPECT_THAT(warnings(), IsEmpty());
}

}  // namespace
