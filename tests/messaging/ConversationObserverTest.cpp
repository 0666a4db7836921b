#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <tksinterface/TKSConversationObserver.h>
#include <tksinterface/TKSMessage.h>
#include <tksinterface/TKSMessageHost.h>

#include "tests/messaging/Conversation.h"

// Who watches the conversations of a process.

namespace {

using Event = TKSConversationEvent;
using Kind = TKSConversationEvent::Kind;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// An observer that keeps what it was told, for a scope.
class Watch {
 public:
  Watch() {
    TKSConversationObserver::observe([this](const Event& event) {
      events.push_back(event);
      texts.emplace_back(event.text);
    });
  }
  ~Watch() { TKSConversationObserver::observe(nullptr); }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  std::vector<Kind> kinds() const {
    std::vector<Kind> found;
    for (const Event& event : events) found.push_back(event.kind);
    return found;
  }

  std::vector<Event> events;
  /// Those of the events, which hold no text of their own.
  std::vector<std::string> texts;
};

constexpr std::string_view kHelloAnswer = R"({"message_type":"hello_ack","message":"hello_ack"})";

TKSMessage message(const std::string& type) {
  TKSMessage made;
  made.messageType = type;
  return made;
}

class ConversationObserver : public testing::Test {
 protected:
  ~ConversationObserver() override { TKSConversationObserver::observe(nullptr); }

  tks::test::Conversation conversation_;
};

TEST_F(ConversationObserver, IsToldOfAConversationInItsOrder) {
  const Watch watch;
  conversation_.hello();
  conversation_.says(kHelloAnswer);
  conversation_.settle();
  conversation_.disconnect();
  conversation_.saysType("disconnect_ack");
  conversation_.settle();
  EXPECT_THAT(watch.kinds(),
              ElementsAre(Kind::opened, Kind::sent, Kind::received, Kind::sent, Kind::received, Kind::closed));
  ASSERT_EQ(watch.texts.size(), 6u);
  EXPECT_THAT(watch.texts[1], HasSubstr(R"("hello")"));
  EXPECT_EQ(watch.texts[2], kHelloAnswer);
  EXPECT_THAT(watch.texts[3], HasSubstr(R"("disconnect")"));
}

TEST_F(ConversationObserver, IsToldWhoTellsAndWhen) {
  const Watch watch;
  const auto before = std::chrono::steady_clock::now();
  const double earliest = tks::platform::clock().secondsSince1970();
  conversation_.hello();
  ASSERT_EQ(watch.events.size(), 2u);
  for (const Event& event : watch.events) {
    EXPECT_EQ(event.side, tksMessageHostTypeInterface);
    EXPECT_FALSE(event.byFile);
    EXPECT_EQ(event.processIdentifier, 0);
    EXPECT_GE(event.time, before);
    EXPECT_LE(event.time, std::chrono::steady_clock::now());
    EXPECT_GE(event.secondsSince1970, earliest);
  }
  EXPECT_LE(watch.events[0].time, watch.events[1].time);
}

TEST_F(ConversationObserver, SeesAMessageBeforeTheOtherSideDoes) {
  std::string writtenBefore = "never called";
  TKSConversationObserver::observe([&](const Event& event) {
    if (event.kind == Kind::sent) writtenBefore = conversation_.channels.output->written;
  });
  conversation_.hello();
  EXPECT_EQ(writtenBefore, "");
  EXPECT_THAT(conversation_.channels.output->written, HasSubstr("hello"));
}

TEST_F(ConversationObserver, IsToldWhyAMessageNeverArrives) {
  conversation_.connect();
  const Watch watch;
  conversation_.channels.output->writeFailure = TKSError{"NSPOSIXErrorDomain", 32, "Broken pipe"};
  conversation_.launch();
  ASSERT_GE(watch.events.size(), 2u);
  EXPECT_EQ(watch.events[0].kind, Kind::sent);
  EXPECT_EQ(watch.events[1].kind, Kind::notSent);
  EXPECT_THAT(watch.texts[1], HasSubstr("Broken pipe"));
}

TEST_F(ConversationObserver, SeesWhatIsNoMessageAsItCameAndThenTheFatalError) {
  conversation_.connect();
  const Watch watch;
  conversation_.says("no JSON at all");
  conversation_.settle();
  ASSERT_GE(watch.events.size(), 2u);
  EXPECT_EQ(watch.events[0].kind, Kind::received);
  EXPECT_EQ(watch.texts[0], "no JSON at all");
  EXPECT_EQ(watch.events[1].kind, Kind::fatalError);
  EXPECT_THAT(watch.texts[1], HasSubstr("Error when parse JSON"));
}

TEST_F(ConversationObserver, MayThrowAndNothingComesOfIt) {
  TKSConversationObserver::observe([](const Event&) { throw std::runtime_error("watcher's own"); });
  conversation_.hello();
  conversation_.says(kHelloAnswer);
  EXPECT_THAT(conversation_.events(), testing::Contains("calls hello"));
}

TEST_F(ConversationObserver, IsServedEightDeepWhenItCausesEventsItself) {
  TKSMessageHost host(tksMessageHostTypeInterface);
  host.openWithMessengeHandler(nullptr);
  int calls = 0;
  TKSConversationObserver::observe([&](const Event& event) {
    ++calls;
    if (event.kind == Kind::sent) host.sendMessage(message("again"));
  });
  host.sendMessage(message("first"));
  EXPECT_EQ(calls, 8);
  TKSConversationObserver::observe(nullptr);
  host.close();
}

TEST_F(ConversationObserver, ThatIsReplacedWhileItRunsLivesUntilItReturns) {
  const auto held = std::make_shared<int>(0);
  long ownersInside = 0;
  TKSConversationObserver::observe([&, held](const Event&) {
    TKSConversationObserver::observe(nullptr);
    ownersInside = held.use_count();
  });
  conversation_.hello();
  EXPECT_EQ(ownersInside, 2);
  EXPECT_EQ(held.use_count(), 1);
  EXPECT_FALSE(TKSConversationObserver::isObserving());
  EXPECT_FALSE(TKSConversationObserver::observer());
}

TEST_F(ConversationObserver, IsGivenBackToThoseWhoWantToPassEventsOn) {
  const Watch watch;
  const TKSConversationObserver::Block first = TKSConversationObserver::observer();
  int seen = 0;
  TKSConversationObserver::observe([&](const Event& event) {
    ++seen;
    first(event);
  });
  conversation_.hello();
  EXPECT_EQ(seen, 2);
  EXPECT_EQ(watch.events.size(), 2u);
}

TEST_F(ConversationObserver, IsReplacedWhileSeveralThreadsSend) {
  TKSMessageHost host(tksMessageHostTypeInterface);
  host.openWithMessengeHandler(nullptr);
  std::atomic<int> calls = 0;
  std::atomic<bool> done = false;
  std::vector<std::thread> senders;
  for (int i = 0; i < 4; ++i) {
    senders.emplace_back([&] {
      for (int n = 0; n < 200; ++n) host.sendMessage(message("any"));
      done = true;
    });
  }
  while (!done) {
    TKSConversationObserver::observe([&](const Event&) { ++calls; });
    TKSConversationObserver::observe(nullptr);
  }
  for (std::thread& sender : senders) sender.join();
  const int seen = calls;
  host.sendMessage(message("any"));
  EXPECT_EQ(calls, seen);
  host.close();
}

}  // namespace
