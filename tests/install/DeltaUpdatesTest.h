#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "tests/codesign/Fixtures.h"
#include "tests/install/TarArchive.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeDownload.h"
#include "tests/support/FakeHome.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/TemporaryFolder.h"

// The list of delta packages, from a web server of the test's own, unpacked by the system's tar, with real signatures.

namespace tks::test {

inline const TKSError kNotConverted{"com.tarvo.kovra.TKSUtil", 0, "Convert the DeltaInfos to dictionary failed"};
inline constexpr const char* kList =
    R"([{"name":"5-1-0.delta","hash":"aa11","size":1024},{"name":"readme.txt","hash":"b"}])";
inline constexpr const char* kNoPackage = "Failed to get delta json file from server.";
inline constexpr const char* kName = "deltalist.json";
inline constexpr const char* kSideCar = "._deltalist.json";

class DeltaUpdates : public ::testing::Test {
 protected:
  DeltaUpdates() { ::setenv("no_proxy", "*", 1); }

  /// A list with the signature beside it, as archives from a Mac carry it.
  std::string signedArchive(std::string_view list, const std::string& kind = "maker") {
    sign(list, kind);
    return TarArchive().add(kSideCar, contentOf(stage / kSideCar)).add(kName, list).bytes();
  }

  void sign(std::string_view list, const std::string& kind, signing::Storage storage = signing::Storage::sideCar) {
    std::filesystem::remove(stage / kSideCar);
    writeFile(stage / kName, list);
    signAs(stage / kName, kind, [&](signing::SigningOptions& options) { options.storage = storage; });
  }

  /// An archive that the system's tool makes of the stage.
  std::string packed(const std::vector<std::string>& arguments) {
    const std::string archive = home / "made.tar";
    Arguments all = {"--xattrs", "--xattrs-include=user.*", "-cf", archive, "-C", stage.path()};
    all.insert(all.end(), arguments.begin(), arguments.end());
    EXPECT_EQ(ChildProcess::run("/usr/bin/tar", all).wait(), 0);
    return contentOf(archive);
  }

  /// Asks a server that answers with a body.
  std::optional<TKSDictionary> ask(const std::string& body, int status = 200) {
    LoopbackServer server([&](LoopbackServer::Connection& connection) { connection.send(response(status, body)); });
    return askAt(server.address() + "/updates");
  }

  std::optional<TKSDictionary> askAt(const std::string& address) {
    base = address;
    error = TKSError();
    log.clear();
    std::optional<TKSDictionary> answer = TKSUtilBase::avaliableDeltaUpdates(address, &error);
    EXPECT_THAT(temporaryFiles(), ::testing::IsEmpty());
    return answer;
  }

  std::vector<std::string> temporaryFiles() const {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(platform::knownFolders().temporary())) {
      found.push_back(entry.path());
    }
    return found;
  }

  /// The lines, with "DOWNLOAD" for the private folder that nobody can foresee.
  std::vector<LogLine> lines() const {
    const std::string folder = platform::knownFolders().temporary() + "/tksinterface-download-";
    const std::size_t length = folder.size() + std::string_view("XXXXXX").size();
    std::vector<LogLine> lines = log.lines();
    for (LogLine& line : lines) {
      for (std::size_t at; (at = line.text.find(folder)) != std::string::npos;)
        line.text.replace(at, length, "DOWNLOAD");
    }
    return lines;
  }

  std::vector<std::string> errors() const {
    std::vector<std::string> texts;
    for (const LogLine& line : lines()) {
      if (line.level == TKSILogLevelError) texts.push_back(line.text);
    }
    return texts;
  }

  LogLine begin() const {
    return {2, "Get remote deltaList, begin. DeltaListPath: " + base + "/deltalist.json.delta."};
  }

  FakeHome home;
  TemporaryFolder stage;
  LogRecorder log;
  TKSError error;
  std::string base;
};

inline const LogLine kEmptyEnd{2, "Get remote deltaList, end. deltaInfos: (\n)."};
inline const LogLine kNoPackageLine{8, kNoPackage};

}  // namespace tks::test
