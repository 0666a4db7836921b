#include <gmock/gmock.h>

#include <chrono>
#include <string>

#include "tests/install/DeltaUpdatesTest.h"
#include "tests/support/FakeClock.h"
#include "tests/support/ScopedOptions.h"

// The options for the list of updates: how long it may take, by which way it comes, and how old it may be.

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using tks::test::DeltaUpdates;
using tks::test::LoopbackServer;
using tks::test::response;
using tks::test::ScopedOptions;

/// A list with a package and an entry of its own.
std::string listWith(const std::string& entry) {
  return R"([{"name":"5-1-0.delta","hash":"aa11","size":1024}, )" + entry + "]";
}

class DeltaOptions : public DeltaUpdates {
 protected:
  bool accepts(const std::string& list) { return ask(signedArchive(list)).has_value(); }
  std::string now(double later = 0) const {
    return std::to_string(static_cast<std::int64_t>(tks::platform::clock().secondsSince1970() + later));
  }

  tks::test::FakeClock clock_;
  ScopedOptions options_;
};

TEST_F(DeltaOptions, ListThatTellsOfItselfIsReadLikeEveryOther) {
  const auto packages = ask(signedArchive(listWith(R"({"expires": 1, "listVersion": 3})")));
  ASSERT_TRUE(packages);
  EXPECT_EQ(packages->size(), 1U);
}

TEST_F(DeltaOptions, ListMustNotBeExpired) {
  options_.set({.listExpiry = true});
  EXPECT_TRUE(accepts(listWith(R"({"expires": )" + now(3600) + "}")));
  EXPECT_FALSE(accepts(listWith(R"({"expires": )" + now(-1) + "}")));
  EXPECT_THAT(errors(), Contains(HasSubstr("The list of updates has expired.")));
  EXPECT_EQ(error.reason, TKSErrorReason::wrongVersion);
  EXPECT_FALSE(accepts(listWith(R"({"listVersion": 7})")));
  EXPECT_THAT(errors(), Contains(HasSubstr("The list of updates does not say when it expires.")));
  EXPECT_FALSE(accepts(listWith(R"({"expires": "never"})")));
  EXPECT_FALSE(accepts(listWith(R"({"expires": 9e99})"))) << "no whole number";
}

TEST_F(DeltaOptions, ExpiryIsAskedOfTheClock) {
  options_.set({.listExpiry = true});
  const std::string list = listWith(R"({"expires": )" + now(3600) + "}");
  EXPECT_TRUE(accepts(list));
  clock_.sleep(std::chrono::hours(2));
  EXPECT_FALSE(accepts(list));
}

TEST_F(DeltaOptions, ListMustNotBeOlderThanTheLowestVersion) {
  options_.set({.lowestListVersion = 12});
  EXPECT_TRUE(accepts(listWith(R"({"listVersion": 12})")));
  EXPECT_TRUE(accepts(listWith(R"({"listVersion": 13})")));
  EXPECT_FALSE(accepts(listWith(R"({"listVersion": 11})")));
  EXPECT_THAT(errors(), Contains(HasSubstr("The list of updates is older than the lowest accepted one: 11.")));
  EXPECT_FALSE(accepts(listWith(R"({"expires": 4102444800})")));
}

TEST_F(DeltaOptions, HttpsAloneIsAskedAndFollowed) {
  options_.set({.httpsOnly = true});
  LoopbackServer plain([](LoopbackServer::Connection& connection) { connection.send(response(404, "")); });
  EXPECT_EQ(askAt(plain.address()), std::nullopt);
  EXPECT_EQ(error.code, -1002);
  EXPECT_THAT(plain.requests(), IsEmpty());
  tks::test::writeFile(stage / "deltalist.json.delta", signedArchive(tks::test::kList));
  EXPECT_EQ(askAt("file://" + stage.path()), std::nullopt);
  EXPECT_EQ(error.code, -1002);
}

TEST_F(DeltaOptions, PlainHttpIsFineWithoutTheOption) { EXPECT_TRUE(accepts(tks::test::kList)); }

TEST_F(DeltaOptions, DownloadThatPausesIsFineWithoutTheLimit) {
  const std::string archive = signedArchive(tks::test::kList);
  LoopbackServer server([&](LoopbackServer::Connection& connection) {
    const std::string whole = response(200, archive);
    connection.send(whole.substr(0, whole.size() / 2));
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    connection.send(whole.substr(whole.size() / 2));
  });
  EXPECT_TRUE(askAt(server.address()));
}

TEST_F(DeltaOptions, DownloadThatTricklesIsEndedByTheLimit) {
  options_.set({.downloadLimit = 300});
  LoopbackServer server([](LoopbackServer::Connection& connection) {
    connection.send("HTTP/1.1 200 OK\r\n\r\n");
    while (connection.send("x")) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  });
  EXPECT_EQ(askAt(server.address()), std::nullopt);
  EXPECT_EQ(error.code, -1001);
}

}  // namespace
