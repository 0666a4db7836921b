#include <chrono>
#include <ctime>

#include "platform/linux/files/curl_download.h"
#include "tests/install/DeltaUpdatesTest.h"

// How the list of delta packages is downloaded.

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tks::test::DeltaUpdates;
using tks::test::FakeDownload;
using tks::test::kEmptyEnd;
using tks::test::kList;
using tks::test::kNoPackageLine;
using tks::test::kNotConverted;
using tks::test::LogLine;
using tks::test::LoopbackServer;
using tks::test::response;
using tks::test::TestAuthority;
using tks::test::writeFile;
using Connection = LoopbackServer::Connection;
namespace fs = std::filesystem;

TEST_F(DeltaUpdates, AnEmptyBaseAddressAsksNobody) {
  FakeDownload download;
  error = {"before", 1, "before"};
  EXPECT_EQ(TKSUtilBase::avaliableDeltaUpdates("", &error), std::nullopt);
  EXPECT_THAT(download.requests, IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(error, (TKSError{"before", 1, "before"}));
}

TEST_F(DeltaUpdates, AddressesThatAreNoneFailInTheDownload) {
  EXPECT_EQ(askAt("no address"), std::nullopt);
  EXPECT_EQ(error.domain, "NSURLErrorDomain");
  EXPECT_EQ(error.code, -1002);
  EXPECT_EQ(lines().front(), (LogLine{2, "Get remote deltaList, begin. DeltaListPath: (null)."}));
  EXPECT_EQ(askAt("127.0.0.1/updates"), std::nullopt);
  EXPECT_EQ(error.code, -1002);
}

TEST_F(DeltaUpdates, AsksWithTheLimitsOfARequest) {
  FakeDownload download;
  download.answer = [] { return tks::platform::DownloadResult{{}, {}, TKSError{"NSURLErrorDomain", -1, "no"}}; };
  askAt("https://a.example/updates?channel=1");
  ASSERT_EQ(download.requests.size(), 1u);
  EXPECT_EQ(download.requests[0].url.absoluteString(), "https://a.example/updates/deltalist.json.delta?channel=1");
  EXPECT_EQ(download.requests[0].idleTimeout, std::chrono::seconds(5));
  EXPECT_EQ(download.requests[0].limit, 64u * 1024 * 1024);
}

TEST_F(DeltaUpdates, AFailedDownloadHandsItsOwnErrorOn) {
  std::string address;
  {
    const LoopbackServer gone([](Connection&) {});
    address = gone.address() + "/updates";
  }
  EXPECT_EQ(askAt(address), std::nullopt);
  EXPECT_EQ(error.domain, "NSURLErrorDomain");
  EXPECT_EQ(error.code, -1004);
  EXPECT_THAT(lines(), ElementsAre(begin(), LogLine{8, "Get remote deltaList has error: " + error.description()},
                                   kEmptyEnd, kNoPackageLine));
}

TEST_F(DeltaUpdates, ADownloadWithoutFileAndErrorCountsAsFailed) {
  FakeDownload download;
  download.answer = [] { return tks::platform::DownloadResult{{}, 200, std::nullopt}; };
  EXPECT_EQ(askAt("https://a.example"), std::nullopt);
  EXPECT_EQ(error, TKSError());
  EXPECT_THAT(lines(),
              ElementsAre(begin(), LogLine{8, "Get remote deltaList has error: (null)"}, kEmptyEnd, kNoPackageLine));
}

TEST_F(DeltaUpdates, AResetInsideTheBodyIsAFailedDownload) {
  LoopbackServer server([&](Connection& connection) {
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 9000\r\n\r\nbeginning");
    connection.reset();
  });
  EXPECT_EQ(askAt(server.address()), std::nullopt);
  EXPECT_EQ(error.code, -1005);
}

TEST_F(DeltaUpdates, ASilentServerEndsTheWaitAfterFiveSeconds) {
  LoopbackServer server([](Connection& connection) { connection.waitForEnd(); });
  FakeDownload download;
  download.haste = 10;
  EXPECT_EQ(askAt(server.address()), std::nullopt);
  EXPECT_EQ(error.code, -1001);
  ASSERT_EQ(download.requests.size(), 1u);
  EXPECT_EQ(download.requests[0].idleTimeout, std::chrono::seconds(5));
}

TEST_F(DeltaUpdates, ABodyWithoutEndIsAFailedDownload) {
  LoopbackServer server([](Connection& connection) {
    connection.send("HTTP/1.1 200 OK\r\n\r\n");
    const std::string piece(1024 * 1024, '\0');
    while (connection.send(piece)) continue;
  });
  EXPECT_EQ(askAt(server.address()), std::nullopt);
  EXPECT_EQ(error.code, -1103);
}

TEST_F(DeltaUpdates, AnyStatusButSuccessIsRefusedWhateverWasDownloaded) {
  const std::string archive = signedArchive(kList);
  for (const int status : {404, 500, 201, 204}) {
    EXPECT_EQ(ask(status == 204 ? "" : archive, status), std::nullopt);
    EXPECT_EQ(error, kNotConverted);
    EXPECT_THAT(
        lines(),
        ElementsAre(begin(),
                    LogLine{8, "Check the delta download response statusCode failed: " + std::to_string(status)},
                    LogLine{8, "Convert the DeltaInfos to dictionary failed: (null)"}, kEmptyEnd, kNoPackageLine));
  }
}

TEST_F(DeltaUpdates, RedirectsLeadToTheList) {
  const std::string archive = signedArchive(kList);
  LoopbackServer server([&](Connection& connection) {
    connection.send(connection.path() == "/there" ? response(200, archive) : response(302, "", "Location: /there\r\n"));
  });
  const auto packages = askAt(server.address() + "/here");
  ASSERT_TRUE(packages);
  EXPECT_EQ((*packages)["5.1.0.delta"]["path"], TKSValue(server.address() + "/here/5-1-0.delta"));
}

TEST_F(DeltaUpdates, ALoopOfRedirectsIsAFailedDownload) {
  LoopbackServer server([](Connection& connection) { connection.send(response(302, "", "Location: /\r\n")); });
  EXPECT_EQ(askAt(server.address()), std::nullopt);
  EXPECT_EQ(error.code, -1007);
}

TEST_F(DeltaUpdates, TakesSecureServersThatProveTheirName) {
  const TestAuthority authority;
  writeFile(home / "authorities.pem", authority.certificate());
  tks::gnulinux::CurlDownload download(home / "authorities.pem");
  const tks::platform::Replaced<tks::platform::Download> replaced(download);
  const std::string archive = signedArchive(kList);
  const auto answer = [&](Connection& connection) { connection.send(response(200, archive)); };

  const tks::test::ServerIdentity good = authority.issue("IP:127.0.0.1");
  LoopbackServer server(answer, &good);
  EXPECT_TRUE(askAt(server.address()));

  const std::time_t now = std::time(nullptr);
  for (const auto& bad : {authority.issue("IP:127.0.0.1", now - 1000000, now - 1000), authority.issue("DNS:a.example"),
                          TestAuthority::selfSigned("IP:127.0.0.1")}) {
    LoopbackServer untrusted(answer, &bad);
    EXPECT_EQ(askAt(untrusted.address()), std::nullopt);
    EXPECT_EQ(error.code, -1202);
  }
}

TEST_F(DeltaUpdates, TakesPlainServersAndRedirectsToThem) {
  const TestAuthority authority;
  writeFile(home / "authorities.pem", authority.certificate());
  tks::gnulinux::CurlDownload download(home / "authorities.pem");
  const tks::platform::Replaced<tks::platform::Download> replaced(download);
  const std::string archive = signedArchive(kList);
  LoopbackServer plain([&](Connection& connection) { connection.send(response(200, archive)); });
  const tks::test::ServerIdentity identity = authority.issue("IP:127.0.0.1");
  LoopbackServer secure(
      [&](Connection& connection) { connection.send(response(302, "", "Location: " + plain.address() + "/list\r\n")); },
      &identity);
  EXPECT_TRUE(askAt(plain.address()));
  EXPECT_TRUE(askAt(secure.address()));
}

TEST_F(DeltaUpdates, ReadsListsFromFolders) {
  writeFile(home / "updates/deltalist.json.delta", signedArchive(kList));
  const auto packages = askAt("file://" + home / "updates");
  ASSERT_TRUE(packages);
  EXPECT_EQ((*packages)["5.1.0.delta"]["path"], TKSValue("file://" + home / "updates/5-1-0.delta"));
  EXPECT_TRUE(fs::exists(home / "updates/deltalist.json.delta"));
}

}  // namespace
