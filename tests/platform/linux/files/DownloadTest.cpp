#include "platform/download.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <future>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/files/curl_download.h"
#include "tests/support/FakeHome.h"
#include "tests/support/Gate.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using tks::platform::DownloadRequest;
using tks::platform::DownloadResult;
using tks::test::contentOf;
using tks::test::LoopbackServer;
using tks::test::response;
using tks::test::ServerIdentity;
using tks::test::TestAuthority;
using tks::test::writeFile;

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Connection = LoopbackServer::Connection;

constexpr int kBadURL = -1000;
constexpr int kTimedOut = -1001;
constexpr int kUnsupportedURL = -1002;
constexpr int kCannotConnect = -1004;
constexpr int kConnectionLost = -1005;
constexpr int kTooManyRedirects = -1007;
constexpr int kCannotDecode = -1015;
constexpr int kFileMissing = -1100;
constexpr int kTooLarge = -1103;
constexpr int kNoSecureConnection = -1200;
constexpr int kUntrustedServer = -1202;

class Download : public ::testing::Test {
 protected:
  Download() { ::setenv("no_proxy", "*", 1); }

  DownloadResult fetch(const std::string& address) {
    request.url = TKSURL::URLWithString(address).value_or(TKSURL());
    std::promise<DownloadResult> answer;
    tks::gnulinux::CurlDownload(authorities).start(request, [&](DownloadResult result) {
      answer.set_value(std::move(result));
    });
    return answer.get_future().get();
  }

  /// The number of the error; the download leaves nothing behind.
  std::int64_t errorOf(const std::string& address) {
    const DownloadResult result = fetch(address);
    EXPECT_THAT(result.location, IsEmpty());
    EXPECT_THAT(temporaryFiles(), IsEmpty());
    if (!result.error) return 0;
    EXPECT_EQ(result.error->domain, "NSURLErrorDomain");
    EXPECT_THAT(result.error->localizedDescription, HasSubstr("download \"" + address + "\": "));
    return result.error->code;
  }

  std::vector<std::string> temporaryFiles() const {
    std::vector<std::string> found;
    for (const auto& entry : fs::recursive_directory_iterator(tks::platform::knownFolders().temporary())) {
      found.push_back(entry.path());
    }
    return found;
  }

  /// Makes the test's own authority one that is trusted.
  void trust(const TestAuthority& authority) {
    authorities = home / "authorities.pem";
    writeFile(authorities, authority.certificate());
  }

  tks::test::FakeHome home;
  DownloadRequest request;
  std::string authorities;
};

mode_t modeOf(const std::string& path) {
  struct stat facts {};
  return ::lstat(path.c_str(), &facts) == 0 ? facts.st_mode & 07777 : 0;
}

/// A body as a server packs it.
std::string packed(const std::string& content) {
  const tks::test::TemporaryFolder folder;
  writeFile(folder / "body", content);
  EXPECT_EQ(std::system(("gzip -9 '" + folder / "body" + "'").c_str()), 0);
  return contentOf(folder / "body.gz");
}

TEST_F(Download, AnswersAFileInAFolderOfItsOwnThatNobodyElseEnters) {
  LoopbackServer server([](Connection& connection) { connection.send(response(200, "the list")); });
  const DownloadResult result = fetch(server.address() + "/base/list.delta");
  EXPECT_FALSE(result.error);
  EXPECT_EQ(result.statusCode, 200);
  EXPECT_EQ(contentOf(result.location), "the list");
  EXPECT_EQ(modeOf(result.location), 0600u);
  EXPECT_EQ(modeOf(fs::path(result.location).parent_path()), 0700u);
  EXPECT_EQ(fs::path(result.location).parent_path().parent_path(), tks::platform::knownFolders().temporary());
  EXPECT_THAT(server.requests(), ElementsAre("/base/list.delta"));
}

TEST_F(Download, AsksTheServerEachTime) {
  LoopbackServer server(
      [](Connection& connection) { connection.send(response(200, "x", "Cache-Control: max-age=3600\r\n")); });
  EXPECT_NE(fetch(server.address() + "/a").location, fetch(server.address() + "/a").location);
  EXPECT_THAT(server.requests(), ElementsAre("/a", "/a"));
}

TEST_F(Download, KeepsTheBodyOfAnyStatus) {
  for (const int status : {204, 404, 500}) {
    LoopbackServer server(
        [&](Connection& connection) { connection.send(response(status, status == 204 ? "" : "not what you want")); });
    const DownloadResult result = fetch(server.address() + "/");
    EXPECT_FALSE(result.error);
    EXPECT_EQ(result.statusCode, status);
    EXPECT_EQ(contentOf(result.location), status == 204 ? "" : "not what you want");
  }
}

TEST_F(Download, FollowsRedirects) {
  LoopbackServer server([](Connection& connection) {
    if (connection.path() == "/a") connection.send(response(301, "moved", "Location: /b\r\n"));
    if (connection.path() == "/b") connection.send(response(302, "moved", "Location: c\r\n"));
    if (connection.path() == "/c") connection.send(response(200, "here"));
  });
  const DownloadResult result = fetch(server.address() + "/a");
  EXPECT_EQ(result.statusCode, 200);
  EXPECT_EQ(contentOf(result.location), "here");
  EXPECT_THAT(server.requests(), ElementsAre("/a", "/b", "/c"));
}

TEST_F(Download, EndsInALoopOfRedirects) {
  LoopbackServer server([](Connection& connection) { connection.send(response(302, "", "Location: /again\r\n")); });
  EXPECT_EQ(errorOf(server.address() + "/"), kTooManyRedirects);
  EXPECT_LE(server.requests().size(), 20u);
}

TEST_F(Download, FollowsNoRedirectToAFileOfThisMachine) {
  writeFile(home / "secret", "secret");
  LoopbackServer server([&](Connection& connection) {
    connection.send(response(302, "", "Location: file://" + home / "secret" + "\r\n"));
  });
  EXPECT_EQ(errorOf(server.address() + "/"), kUnsupportedURL);
}

TEST_F(Download, FailsWithoutAServer) {
  std::string address;
  {
    const LoopbackServer gone([](Connection&) {});
    address = gone.address() + "/";
  }
  EXPECT_EQ(errorOf(address), kCannotConnect);
}

TEST_F(Download, FailsWhenTheConnectionBreaksInsideTheBody) {
  LoopbackServer broken([](Connection& connection) {
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nbeginning");
    connection.reset();
  });
  EXPECT_EQ(errorOf(broken.address() + "/"), kConnectionLost);
  LoopbackServer ended(
      [](Connection& connection) { connection.send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nbeginning"); });
  EXPECT_EQ(errorOf(ended.address() + "/"), kConnectionLost);
}

TEST_F(Download, FailsWithoutAnAnswer) {
  LoopbackServer server([](Connection&) {});
  EXPECT_EQ(errorOf(server.address() + "/"), kConnectionLost);
}

TEST_F(Download, WaitsFiveSecondsForTheNextByteAndTakesSixtyFourMebibytesUnlessToldOtherwise) {
  EXPECT_EQ(DownloadRequest().idleTimeout, 5s);
  EXPECT_EQ(DownloadRequest().limit, 64u * 1024 * 1024);
}

TEST_F(Download, EndsWhenTheServerFallsSilent) {
  request.idleTimeout = 300ms;
  for (const char* beginning :
       {"", "HTTP/1.1 200 OK\r\nContent-Le", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nbegin"}) {
    LoopbackServer server([&](Connection& connection) {
      connection.send(beginning);
      connection.waitForEnd();
    });
    EXPECT_EQ(errorOf(server.address() + "/"), kTimedOut) << beginning;
  }
}

TEST_F(Download, EndsWhenTheGreetingOfTlsIsNotAnswered) {
  request.idleTimeout = 300ms;
  trust(TestAuthority());
  // It waits for the head of a plain request.
  LoopbackServer server([](Connection&) {});
  std::string address = server.address();
  EXPECT_EQ(errorOf(address.replace(0, 4, "https") + "/"), kTimedOut);
}

TEST_F(Download, TakesLinesOfAHeaderForSignsOfLife) {
  request.idleTimeout = 1500ms;
  LoopbackServer server([](Connection& connection) {
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n");
    for (int i = 0; i < 6; ++i) {
      std::this_thread::sleep_for(400ms);
      connection.send("X-Line: " + std::to_string(i) + "\r\n");
    }
    connection.send("\r\nok");
  });
  EXPECT_EQ(contentOf(fetch(server.address() + "/").location), "ok");
}

TEST_F(Download, EndsABodyWithoutEnd) {
  std::uint64_t sent = 0;
  LoopbackServer server([&](Connection& connection) {
    const std::string piece(1024 * 1024, 'x');
    connection.send("HTTP/1.1 200 OK\r\n\r\n");
    while (connection.send(piece)) sent += piece.size();
  });
  EXPECT_EQ(errorOf(server.address() + "/"), kTooLarge);
}

TEST_F(Download, RefusesATooLargeBodyWhenItIsAnnounced) {
  LoopbackServer server([](Connection& connection) {
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10000000000\r\n\r\n");
    connection.waitForEnd();
  });
  EXPECT_EQ(errorOf(server.address() + "/"), kTooLarge);
}

TEST_F(Download, TakesABodyOfExactlyTheLimit) {
  request.limit = 1000;
  LoopbackServer server([](Connection& connection) {
    connection.send(response(200, std::string(connection.path() == "/more" ? 1001 : 1000, 'x')));
  });
  EXPECT_EQ(contentOf(fetch(server.address() + "/").location).size(), 1000u);
  EXPECT_EQ(fetch(server.address() + "/more").error->code, kTooLarge);
}

TEST_F(Download, AsksForTheBodyAsItIs) {
  std::string head;
  LoopbackServer server([&](Connection& connection) {
    head = connection.head();
    connection.send(response(200, "as it is"));
  });
  EXPECT_EQ(contentOf(fetch(server.address() + "/").location), "as it is");
  EXPECT_THAT(head, HasSubstr("Accept-Encoding: identity\r\n"));
}

TEST_F(Download, UnpacksABodyThatAServerPacksNevertheless) {
  const std::string content = "the list, " + std::string(100'000, 'x');
  for (const char* encoding : {"gzip", "x-gzip", "GZIP"}) {
    LoopbackServer server([&](Connection& connection) {
      connection.send(
          response(200, packed(content), std::string("Content-Encoding: ").append(encoding).append("\r\n")));
    });
    const DownloadResult result = fetch(server.address() + "/");
    EXPECT_FALSE(result.error) << result.error->description();
    EXPECT_EQ(contentOf(result.location), content) << encoding;
    fs::remove_all(fs::path(result.location).parent_path());
  }
}

TEST_F(Download, EndsAPackedBodyAtTheLimitOfWhatItIsUnpacked) {
  request.limit = 1'000'000;
  const std::string muchMore = packed(std::string(50 * request.limit, 'x'));
  ASSERT_LT(muchMore.size(), request.limit / 10) << "it is short as it is sent";
  const std::map<std::string, std::string> bodies = {
      {"/whole", packed(std::string(request.limit, 'x'))},
      {"/more", packed(std::string(request.limit + 1, 'x'))},
      {"/muchMore", muchMore},
      {"/twice", packed(muchMore)},
  };
  LoopbackServer server([&](Connection& connection) {
    const char* encoding = connection.path() == "/twice" ? "gzip, gzip" : "gzip";
    connection.send(
        response(200, bodies.at(connection.path()), std::string("Content-Encoding: ").append(encoding).append("\r\n")));
  });
  EXPECT_EQ(errorOf(server.address() + "/more"), kTooLarge);
  EXPECT_EQ(errorOf(server.address() + "/muchMore"), kTooLarge);
  EXPECT_EQ(errorOf(server.address() + "/twice"), kTooLarge);
  EXPECT_EQ(contentOf(fetch(server.address() + "/whole").location).size(), request.limit);
}

TEST_F(Download, FailsWhenAPackedBodyIsNone) {
  for (const char* headers : {"Content-Encoding: gzip\r\n", "Content-Encoding: unheard-of\r\n"}) {
    LoopbackServer server(
        [&](Connection& connection) { connection.send(response(200, "in truth it is plain", headers)); });
    EXPECT_EQ(errorOf(server.address() + "/"), kCannotDecode) << headers;
  }
}

TEST_F(Download, TrustsAServerWithACertificateOfAKnownAuthority) {
  const TestAuthority authority;
  trust(authority);
  const ServerIdentity identity = authority.issue("IP:127.0.0.1");
  LoopbackServer server([](Connection& connection) { connection.send(response(200, "safe")); }, &identity);
  const DownloadResult result = fetch(server.address() + "/");
  EXPECT_FALSE(result.error) << result.error->description();
  EXPECT_EQ(contentOf(result.location), "safe");
}

TEST_F(Download, OverHttpsAloneAsksAndFollowsNothingElse) {
  request.httpsOnly = true;
  const TestAuthority authority;
  trust(authority);
  const ServerIdentity identity = authority.issue("IP:127.0.0.1");
  LoopbackServer plain([](Connection& connection) { connection.send(response(200, "plain")); });
  LoopbackServer safe(
      [&](Connection& connection) {
        const bool leads = connection.path() != "/";
        const std::string there = connection.path() == "/safe" ? "/" : plain.address() + "/";
        connection.send(leads ? response(302, "", "Location: " + there + "\r\n") : response(200, "safe"));
      },
      &identity);
  EXPECT_EQ(errorOf(safe.address() + "/plain"), kUnsupportedURL);
  EXPECT_EQ(errorOf(plain.address() + "/"), kUnsupportedURL);
  writeFile(home / "file", "from a file");
  EXPECT_EQ(errorOf(TKSURL::fileURLWithPath(home / "file").absoluteString()), kUnsupportedURL);
  EXPECT_EQ(contentOf(fetch(safe.address() + "/safe").location), "safe");
  EXPECT_THAT(plain.requests(), IsEmpty());
  request.httpsOnly = false;
  EXPECT_EQ(contentOf(fetch(safe.address() + "/plain").location), "plain");
}

TEST_F(Download, ThatTricklesEndsAtItsWholeTime) {
  LoopbackServer server([](Connection& connection) {
    connection.send("HTTP/1.1 200 OK\r\n\r\n");
    while (connection.send("x")) std::this_thread::sleep_for(20ms);
  });
  request.totalTimeout = 200ms;
  EXPECT_EQ(errorOf(server.address() + "/"), kTimedOut);
}

TEST_F(Download, TrustsNoServerThatCannotProveItsName) {
  const TestAuthority authority;
  const TestAuthority stranger("Another Authority");
  trust(authority);
  const std::time_t now = std::time(nullptr);
  const struct {
    const char* what;
    ServerIdentity identity;
  } cases[] = {
      {"expired", authority.issue("IP:127.0.0.1", now - 1000000, now - 1000)},
      {"not yet valid", authority.issue("IP:127.0.0.1", now + 100000, now + 1000000)},
      {"other host", authority.issue("DNS:other.example")},
      {"self-signed", TestAuthority::selfSigned("IP:127.0.0.1")},
      {"unknown authority", stranger.issue("IP:127.0.0.1")},
  };
  for (const auto& [what, identity] : cases) {
    LoopbackServer server([](Connection& connection) { connection.send(response(200, "unsafe")); }, &identity);
    EXPECT_EQ(errorOf(server.address() + "/"), kUntrustedServer) << what;
    EXPECT_THAT(server.requests(), IsEmpty()) << what;
  }
}

TEST_F(Download, TrustsNobodyWhenTheAuthoritiesAreMissing) {
  authorities = home / "missing.pem";
  const ServerIdentity identity = TestAuthority().issue("IP:127.0.0.1");
  LoopbackServer server([](Connection& connection) { connection.send(response(200, "unsafe")); }, &identity);
  EXPECT_EQ(errorOf(server.address() + "/"), kNoSecureConnection);
}

TEST_F(Download, FailsWhenTheServerSpeaksNoTls) {
  trust(TestAuthority());
  LoopbackServer server([](Connection& connection) { connection.send(response(200, "plain")); });
  std::string address = server.address() + "/";
  // Its greeting has no blank line: the server ends the connection when the test ends it, or the client before.
  request.idleTimeout = 300ms;
  const std::int64_t code = errorOf(address.replace(0, 4, "https"));
  EXPECT_TRUE(code == kNoSecureConnection || code == kTimedOut) << code;
}

TEST_F(Download, ReadsFilesByTheirAddress) {
  writeFile(home / "a folder/list ä.delta", "from a file");
  const DownloadResult result = fetch(TKSURL::fileURLWithPath(home / "a folder/list ä.delta").absoluteString());
  EXPECT_FALSE(result.error);
  EXPECT_EQ(result.statusCode, std::nullopt);
  EXPECT_EQ(contentOf(result.location), "from a file");
}

TEST_F(Download, FailsForAFileThatIsMissingOrNone) {
  EXPECT_EQ(errorOf("file://" + home / "missing"), kFileMissing);
  fs::create_directory(home / "folder");
  EXPECT_EQ(errorOf("file://" + home / "folder"), kFileMissing);
  ASSERT_EQ(::mkfifo((home / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(errorOf("file://" + home / "pipe"), kFileMissing);
}

TEST_F(Download, KnowsThreeSchemesAndGuessesNone) {
  EXPECT_EQ(errorOf("ftp://127.0.0.1/list"), kUnsupportedURL);
  EXPECT_EQ(errorOf("127.0.0.1/list"), kUnsupportedURL);
  EXPECT_EQ(errorOf(home / "list"), kUnsupportedURL);
  EXPECT_EQ(errorOf(""), kUnsupportedURL);
  EXPECT_EQ(errorOf("http://[bad/list"), kBadURL);
}

TEST_F(Download, NeedsATemporaryFolder) {
  home.setTemporary(home / "missing");
  const DownloadResult result = fetch("http://127.0.0.1:1/");
  ASSERT_TRUE(result.error);
  EXPECT_THAT(result.error->localizedDescription, HasSubstr("create folder"));
  EXPECT_EQ(result.location, "");
}

TEST_F(Download, WaitsForNoBackgroundWorkWhichMayWaitForIt) {
  constexpr int kMoreThanThePoolHasThreads = 100;
  writeFile(home / "file", "content");
  auto gate = std::make_shared<tks::test::Gate>();
  for (int i = 0; i < kMoreThanThePoolHasThreads; ++i) {
    ASSERT_TRUE(tks::platform::backgroundWork().submit([gate] { gate->wait(); }));
  }
  request.url = TKSURL::fileURLWithPath(home / "file");
  auto answer = std::make_shared<std::promise<DownloadResult>>();
  std::future<DownloadResult> arrived = answer->get_future();
  tks::gnulinux::CurlDownload().start(request,
                                      [answer](DownloadResult result) { answer->set_value(std::move(result)); });
  EXPECT_EQ(arrived.wait_for(20s), std::future_status::ready);
  gate->open();
  EXPECT_EQ(contentOf(arrived.get().location), "content");
  EXPECT_TRUE(tks::test::waitUntil([&] { return gate->waiting() == 0; }));
}

TEST_F(Download, RunsManyAtOnceAndKeepsNothingOpen) {
  const auto run = [&](int count) {
    LoopbackServer server([](Connection& connection) { connection.send(response(200, connection.path())); });
    tks::gnulinux::CurlDownload download;
    std::vector<std::future<DownloadResult>> answers;
    for (int i = 0; i < count; ++i) {
      auto answer = std::make_shared<std::promise<DownloadResult>>();
      answers.push_back(answer->get_future());
      request.url = *TKSURL::URLWithString(server.address() + "/" + std::to_string(i));
      download.start(request, [answer](DownloadResult result) { answer->set_value(std::move(result)); });
    }
    for (std::size_t i = 0; i < answers.size(); ++i) {
      EXPECT_EQ(contentOf(answers[i].get().location), "/" + std::to_string(i));
    }
  };
  run(1);  // what is made once for the process is there now
  const std::set<int> before = tks::test::openDescriptors();
  run(12);
  EXPECT_EQ(tks::test::openDescriptors(), before);
}

}  // namespace
