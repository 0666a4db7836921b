#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/interface/FakeWorld.h"
#include "tests/support/FakeBackgroundWork.h"
#include "tests/support/HostLoop.h"

// A facade that the host destroys in its log callback, in the midst of whatever the line is about. What is touched
// afterwards shows under the address sanitizer; what is called afterwards shows here.

namespace {

using tks::test::drainUntil;
using tks::test::FakeWorld;

/// What the launcher says to a launch, and what the host does then.
struct Course {
  const char* name;
  const char* message;
  const char* body;
  bool hostStops;
};

constexpr Course kCourses[] = {
    {"ALaunch", "launch_meeting_ack", "\"\"", false},
    {"ARefusal", "error", R"({"error_code":"2005"})", false},
    {"AnUpdate", "host_notify", "\"\"", false},
    {"AStop", "message", "\"\"", true},
};

/// One meeting, whose facade is destroyed by the line of a number; none is left to call back then.
class Meeting {
 public:
  explicit Meeting(int line) : line_(line) {
    facade_->setTKSAppPath(world_.bundle());
    TKSILog::sharedInstance().setLogBlock([this, main = std::this_thread::get_id()](std::int32_t, const std::string&) {
      if (std::this_thread::get_id() != main || facade_ == nullptr || ++lines_ != line_) return;
      facade_.reset();
      destroyed_ = true;
    });
  }
  ~Meeting() {
    TKSILog::sharedInstance().setLogBlock({});
    facade_.reset();
    // A launch that nobody waits for any more still uses this world.
    EXPECT_TRUE(drainUntil([this] { return background_.isIdle(); }));
  }
  Meeting(const Meeting&) = delete;
  Meeting& operator=(const Meeting&) = delete;

  /// Returns whether there was a line of that number.
  bool take(const Course& course) {
    facade_->launchMeetingWithParam(TKSDictionary{{"gpcurlroot", "https://meet.example"}}, tell(), tellError());
    if (hears("hello")) world_.says("hello_ack");
    if (hears("launch_meeting")) world_.says(course.message, course.body);
    if (course.hostStops && facade_) facade_->stop(tell(), tellError());
    if (hears("disconnect")) world_.says("disconnect_ack");
    drainUntil([&] { return !facade_ || facade_->appManager->TKSAppStatus == TKSI_APP_STATUS_UNCONNECTED; });
    // Nothing that arrives late reaches anybody.
    for (const char* const late : {"hello_ack", "launch_meeting_ack", "disconnect_ack"}) world_.says(late);
    world_.channels.input->end();
    for (int turns = 0; turns < 3; ++turns) TKSMainLoop::drain();
    return destroyed_;
  }

 private:
  TKSFinishBlock tell() {
    return [this] { EXPECT_FALSE(destroyed_) << "called after line " << line_; };
  }
  TKSErrorBlock tellError() {
    return [this](const TKSError& error) {
      EXPECT_FALSE(destroyed_) << "called after line " << line_ << ": " << error.localizedDescription;
    };
  }
  /// False when the facade is gone first.
  bool hears(const std::string& type) {
    bool heard = false;
    drainUntil([&] {
      for (const std::string& each : world_.heard()) heard = heard || each == type;
      return heard || !facade_;
    });
    return heard && facade_ != nullptr;
  }

  FakeWorld world_;
  tks::test::CountedBackgroundWork background_;
  std::unique_ptr<TKSInterface> facade_ = std::make_unique<TKSInterface>();
  const int line_;
  int lines_ = 0;
  bool destroyed_ = false;
};

class FacadeDestroyedByALine : public testing::TestWithParam<Course> {};

TEST_P(FacadeDestroyedByALine, IsSilentAndTouchesNothingMore) {
  constexpr int kFewestLines = 30;
  int line = 1;
  while (Meeting(line).take(GetParam())) ++line;
  EXPECT_GT(line, kFewestLines);
}

INSTANTIATE_TEST_SUITE_P(In, FacadeDestroyedByALine, testing::ValuesIn(kCourses),
                         [](const auto& course) { return std::string(course.param.name); });

}  // namespace
