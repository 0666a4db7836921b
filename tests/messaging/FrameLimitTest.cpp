#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "messaging/FrameReader.h"
#include "tests/messaging/HandlerTest.h"
#include "tests/support/Frames.h"
#include "tests/support/HostLoop.h"
#include "tests/support/MemoryChannels.h"
#include "tests/support/PlayedTimers.h"
#include "tests/support/ScopedOptions.h"

// The option that limits how long a frame may take from its first byte to its last, and the one for its size.

namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using tks::messaging::FrameReader;
using tks::test::frame;
using tks::test::PlayedTimers;
using tks::test::ScopedOptions;
using tks::test::Wire;
using tks::test::WireSource;

class FrameLimit : public testing::Test {
 protected:
  FrameLimit() { reader_->start(std::make_unique<WireSource>(wire_)); }

  void arrive(std::string_view bytes) {
    wire_->arrive(std::string(bytes));
    EXPECT_TRUE(tks::test::drainUntil([this] { return wire_->unread() == 0; }));
  }

  PlayedTimers time_;
  ScopedOptions options_{{.frameLimit = 1000}};
  std::shared_ptr<Wire> wire_ = std::make_shared<Wire>();
  std::vector<std::chrono::milliseconds> slow_;
  std::shared_ptr<FrameReader> reader_ =
      std::make_shared<FrameReader>([](std::string_view) {}, [](const TKSError&) {},
                                    [this](std::chrono::milliseconds limit) { slow_.push_back(limit); });
  const std::string whole_ = frame("a message");
};

TEST_F(FrameLimit, CountsFromTheFirstByteOfTheHeader) {
  time_.pass(24h);
  arrive(whole_.substr(0, 1));
  time_.pass(600ms);
  arrive(whole_.substr(1, 6));
  time_.pass(399ms);
  EXPECT_THAT(slow_, IsEmpty());
  time_.pass(1ms);
  EXPECT_THAT(slow_, ElementsAre(1000ms));
}

TEST_F(FrameLimit, FrameThatIsWholeInTimeIsFine) {
  arrive(whole_.substr(0, 5));
  time_.pass(999ms);
  arrive(whole_.substr(5));
  time_.pass(24h);
  EXPECT_THAT(slow_, IsEmpty());
  EXPECT_EQ(time_.pending(), 0U);
}

TEST_F(FrameLimit, EachFrameHasTheWholeTime) {
  for (int i = 0; i < 5; ++i) {
    arrive(whole_.substr(i == 0 ? 0 : 3) + whole_.substr(0, 3));
    time_.pass(999ms);
  }
  EXPECT_THAT(slow_, IsEmpty());
  time_.pass(1ms);
  EXPECT_THAT(slow_, ElementsAre(1000ms));
}

TEST_F(FrameLimit, WhatHasComeByThenCounts) {
  arrive(whole_.substr(0, 5));
  wire_->arrive(whole_.substr(5));  // and nobody drains the loop
  time_.pass(1s);
  EXPECT_THAT(slow_, IsEmpty());
}

TEST_F(FrameLimit, IsToldAgainWhileTheFrameGoesOn) {
  arrive(whole_.substr(0, 5));
  time_.pass(2s);
  EXPECT_THAT(slow_, ElementsAre(1000ms, 1000ms));
}

TEST_F(FrameLimit, EndsWithTheReading) {
  arrive(whole_.substr(0, 5));
  reader_->stop();
  time_.pass(24h);
  EXPECT_THAT(slow_, IsEmpty());
}

TEST_F(FrameLimit, IsOffAtFirst) {
  options_.set({});
  arrive(whole_.substr(0, 5));
  EXPECT_EQ(time_.pending(), 0U);
}

class FrameOptions : public tks::test::HandlerTest {
 protected:
  PlayedTimers time_;
  ScopedOptions options_;
};

TEST_F(FrameOptions, SlowFrameEndsTheConversation) {
  options_.set({.frameLimit = 30000});
  talk_.connect();
  talk_.launch();
  talk_.events();
  talk_.channels.input->arrive(frame(R"({"message_type":"launch_meeting_ack"})").substr(0, 20));
  talk_.settle();
  time_.pass(30s);
  EXPECT_THAT(talk_.events(),
              ElementsAre("notifies 1", "calls launchError TKSIDefaultDomain 0 Message not whole within 30000 ms."));
  EXPECT_FALSE(handler().messageHost->isOpened);
  time_.pass(24h);
  EXPECT_THAT(talk_.events(), IsEmpty());
}

TEST_F(FrameOptions, LargerMessageThanTheOptionAllowsIsRefused) {
  options_.set({.largestFrame = 64});
  talk_.hello();
  talk_.events();
  const std::string fits = R"({"message_type":"client_status","message":")";
  talk_.says(fits + std::string(64 - fits.size() - 2, 'x') + "\"}");
  EXPECT_THAT(talk_.events(), IsEmpty());
  EXPECT_THAT(talk_.log.texts(8), IsEmpty());
  talk_.status = TKSI_APP_STATUS_STARTING;
  talk_.says(fits + std::string(64 - fits.size() - 1, 'x') + "\"}");
  EXPECT_THAT(talk_.events(), Contains(HasSubstr("Unexpected telling data size: 65, exceed max message size: 64")));
}

TEST_F(FrameOptions, LargeMessageIsFineWithoutTheOption) {
  talk_.hello();
  talk_.events();
  talk_.says(R"({"message_type":"hello_ack","message":")" + std::string(2'000'000, 'x') + "\"}");
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 3", "calls hello"));
  EXPECT_THAT(talk_.log.texts(8), IsEmpty());
}

TEST_F(FrameOptions, OptionNeverRaisesTheLargestMessage) {
  options_.set({.largestFrame = 4294967295});
  EXPECT_EQ(tks::messaging::largestMessage(), static_cast<std::uint64_t>(tks_max_msg_size));
}

}  // namespace
