#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include <atomic>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/platform.h"
#include "tests/install/DeltaUpdatesTest.h"
#include "tests/support/FakeTools.h"
#include "tests/support/ForwardingFiles.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using tks::signing::Storage;
using tks::test::contentOf;
using tks::test::DeltaUpdates;
using tks::test::FakeDownload;
using tks::test::kEmptyEnd;
using tks::test::kList;
using tks::test::kName;
using tks::test::kNoPackage;
using tks::test::kNoPackageLine;
using tks::test::kNotConverted;
using tks::test::kSideCar;
using tks::test::LogLine;
using tks::test::LogRecorder;
using tks::test::LoopbackServer;
using tks::test::response;
using tks::test::TarArchive;
using tks::test::writeFile;

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;
using tks::test::FakeTools;
using Connection = LoopbackServer::Connection;

TEST_F(DeltaUpdates, ListsTheDeltaPackagesByVersion) {
  const auto packages = ask(signedArchive(kList));
  ASSERT_TRUE(packages);
  EXPECT_EQ(*packages, (TKSDictionary{{"5.1.0.delta", TKSDictionary{{"version", "5-1-0.delta"},
                                                                    {"hash", "aa11"},
                                                                    {"size", 1024},
                                                                    {"path", base + "/5-1-0.delta"}}}}));
  EXPECT_EQ(error, TKSError());
}

TEST_F(DeltaUpdates, ToldStepByStep) {
  ASSERT_TRUE(ask(signedArchive(R"([{"name":"5-1-0.delta"}])")));
  EXPECT_THAT(lines(), ElementsAre(begin(), LogLine{2, "untar Begin"}, LogLine{2, "Archive: DOWNLOAD/download"},
                                   LogLine{2, "Untar to: DOWNLOAD/"}, LogLine{2, "Untar End"},
                                   LogLine{2,
                                           "Get remote deltaList, end. deltaInfos: (\n        {\n        name = "
                                           "\"5-1-0.delta\";\n    }\n)."}));
}

TEST_F(DeltaUpdates, HashAndSizeAreTakenOverWhateverTheyAre) {
  const auto packages = ask(signedArchive(
      R"([{"name":"a.delta","hash":[1,"two"],"size":"big","more":1},{"name":"b.delta","hash":null},{"name":"c.delta"}])"));
  ASSERT_TRUE(packages);
  ASSERT_EQ(packages->size(), 3u);
  EXPECT_EQ((*packages)["a.delta"],
            (TKSDictionary{
                {"version", "a.delta"}, {"hash", TKSArray{1, "two"}}, {"size", "big"}, {"path", base + "/a.delta"}}));
  EXPECT_TRUE((*packages)["b.delta"]["hash"].isNull());
  EXPECT_TRUE((*packages)["c.delta"]["hash"].isNothing());
  EXPECT_EQ((*packages)["c.delta"]["path"], TKSValue(base + "/c.delta"));
}

TEST_F(DeltaUpdates, ALaterEntryReplacesAnEarlierOneOfTheSameVersion) {
  const auto packages = ask(signedArchive(R"([{"name":"5-1.0.delta","size":1},{"name":"5.1-0.delta","size":2}])"));
  ASSERT_TRUE(packages);
  ASSERT_EQ(packages->size(), 1u);
  EXPECT_EQ((*packages)["5.1.0.delta"]["version"], TKSValue("5.1-0.delta"));
  EXPECT_EQ((*packages)["5.1.0.delta"]["size"], TKSValue(2));
}

TEST_F(DeltaUpdates, EntriesThatAreNoObjectsOrHaveNoTextAsNameAreSkipped) {
  const auto packages = ask(signedArchive(
      R"([1,"x.delta",null,["y.delta"],{},{"name":7},{"name":null},{"name":""},{"name":"z.deltas"},{"name":"ok.delta"}])"));
  ASSERT_TRUE(packages);
  EXPECT_EQ(packages->size(), 1u);
  EXPECT_TRUE(packages->contains("ok.delta"));
  EXPECT_THAT(log.texts(TKSILogLevelWarning), IsEmpty());
}

TEST_F(DeltaUpdates, NamesThatLeaveTheBaseAddressAreSkippedWithALine) {
  const auto packages = ask(signedArchive(
      R"([{"name":"../x.delta"},{"name":"//host/x.delta"},{"name":"https://other/x.delta"},{"name":"/x.delta"},)"
      R"({"name":"a/b.delta"},{"name":"..\\x.delta"},{"name":"../readme.txt"},{"name":"..x.delta"}])"));
  ASSERT_TRUE(packages);
  EXPECT_EQ(packages->size(), 1u);
  EXPECT_EQ((*packages)["..x.delta"]["path"], TKSValue(base + "/..x.delta"));
  const std::string skipped = "Delta package name with a path separator, skip it: ";
  EXPECT_THAT(log.texts(TKSILogLevelWarning),
              ElementsAre(skipped + "../x.delta", skipped + "//host/x.delta", skipped + "https://other/x.delta",
                          skipped + "/x.delta", skipped + "a/b.delta", skipped + "..\\x.delta"));
}

TEST_F(DeltaUpdates, OneSlashJoinsBaseAndNameHoweverTheBaseEnds) {
  const std::string archive = signedArchive(kList);
  LoopbackServer server([&](Connection& connection) { connection.send(response(200, archive)); });
  const auto packages = askAt(server.address() + "/updates/");
  ASSERT_TRUE(packages);
  EXPECT_EQ((*packages)["5.1.0.delta"]["path"], TKSValue(server.address() + "/updates/5-1-0.delta"));
  EXPECT_THAT(server.requests(), ElementsAre("/updates/deltalist.json.delta"));
}

TEST_F(DeltaUpdates, TheSignatureMayBeAnAttributeOfTheList) {
  sign(kList, "maker", Storage::attributes);
  ASSERT_FALSE(fs::exists(stage / kSideCar));
  EXPECT_TRUE(ask(packed({kName})));
  EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(DeltaUpdates, TheArchiveMayBeWhatTarMakesOfAFolder) {
  sign(kList, "maker");
  EXPECT_TRUE(ask(packed({kSideCar, kName})));
  EXPECT_TRUE(ask(packed({"."})));
  EXPECT_TRUE(ask(packed({"-z", "."})));
  EXPECT_TRUE(ask(packed({"--format=pax", "."})));
}

TEST_F(DeltaUpdates, WhatTheMakerDidNotSignIsRefused) {
  const std::string unsignedList = TarArchive().add(kName, kList).bytes();
  const std::string begins = "Check the DeltaInfos Codesign failed: Error Domain=com.tarvo.kovra.codesign Code=0 \"";
  std::string altered = signedArchive(kList);
  altered.replace(altered.find("aa11"), 4, "bb22");
  const struct {
    const char* what;
    std::string archive;
    const char* reason;
  } cases[] = {
      {"unsigned", unsignedList, "Code object is not signed at all. Internal error details: "},
      {"altered", altered, "Codesign verify failed, error code: -67061. Internal error details: "},
      {"by nobody", signedArchive(kList, "nobody"), "No certificate info included in code signature info.\""},
      {"by another team", signedArchive(kList, "other team"), "Codesign verify failed, not from Tarvo.\""},
      {"two levels", signedArchive(kList, "two levels"), "Codesign verify failed, wrong certificate structure."},
  };
  for (const auto& [what, archive, reason] : cases) {
    EXPECT_EQ(ask(archive), std::nullopt) << what;
    EXPECT_EQ(error, kNotConverted) << what;
    const std::vector<std::string> said = errors();
    ASSERT_EQ(said.size(), 3u) << what;
    EXPECT_THAT(said[0], StartsWith(begins + reason)) << what;
    EXPECT_EQ(said[1], "Convert the DeltaInfos to dictionary failed: " +
                           said[0].substr(std::string_view("Check the DeltaInfos Codesign failed: ").size()));
    EXPECT_EQ(said[2], kNoPackage);
  }
}

TEST_F(DeltaUpdates, WhatCannotBeUnpackedIsRefused) {
  const std::string whole = signedArchive(kList);
  for (const std::string& body : {std::string("no archive"), std::string(), std::string(2000, '\0'),
                                  TarArchive().add("other.json", kList).bytes(), std::string("\x1f\x8b\x08 cut")}) {
    EXPECT_EQ(ask(body), std::nullopt);
    EXPECT_EQ(error, kNotConverted);
    EXPECT_THAT(lines(), ElementsAre(begin(), LogLine{2, "untar Begin"}, LogLine{2, "Archive: DOWNLOAD/download"},
                                     LogLine{2, "Untar to: DOWNLOAD/"}, LogLine{2, "Untar End"},
                                     LogLine{8, "untar fail DOWNLOAD/download"},
                                     LogLine{8, "Convert the DeltaInfos to dictionary failed: (null)"}, kEmptyEnd,
                                     kNoPackageLine));
  }
}

TEST_F(DeltaUpdates, ACutArchiveIsRefused) {
  const std::string whole = signedArchive(kList);
  for (std::size_t length = 0; length < whole.size() - 1024; length += 509) {
    EXPECT_EQ(ask(whole.substr(0, length)), std::nullopt) << length;
    EXPECT_EQ(error, kNotConverted) << length;
  }
}

TEST_F(DeltaUpdates, ASignedTextThatIsNoListIsRefused) {
  for (const char* text : {"not JSON", "", "[{\"name\":\"a.delta\"}", "\"a.delta\"", "[\"\xff\"]"}) {
    EXPECT_EQ(ask(signedArchive(text)), std::nullopt) << text;
    EXPECT_EQ(error, kNotConverted) << text;
    const std::vector<std::string> said = errors();
    ASSERT_EQ(said.size(), 2u) << text;
    EXPECT_THAT(said[0], AllOf(StartsWith("Convert the DeltaInfos to dictionary failed: Error Domain="),
                               Not(HasSubstr("(null)"))));
    EXPECT_EQ(said[1], kNoPackage);
  }
}

TEST_F(DeltaUpdates, AListWithoutPackagesLeavesTheErrorAsItWas) {
  for (const char* text : {"[]", R"([{"name":"readme.txt"}])", R"({"name":"5-1-0.delta"})"}) {
    const std::string archive = signedArchive(text);
    LoopbackServer server([&](Connection& connection) { connection.send(response(200, archive)); });
    log.clear();
    error = {"before", 1, "before"};
    EXPECT_EQ(TKSUtilBase::avaliableDeltaUpdates(server.address(), &error), std::nullopt) << text;
    EXPECT_EQ(error, (TKSError{"before", 1, "before"}));
    EXPECT_THAT(errors(), ElementsAre(kNoPackage));
  }
  EXPECT_THAT(log.texts(TKSILogLevelInfo),
              Contains("Get remote deltaList, end. deltaInfos: {\n    name = \"5-1-0.delta\";\n}."));
}

TEST_F(DeltaUpdates, WorksWithoutASlotForTheError) {
  const std::string archive = signedArchive(kList);
  LoopbackServer good([&](Connection& connection) { connection.send(response(200, archive)); });
  EXPECT_TRUE(TKSUtilBase::avaliableDeltaUpdates(good.address(), nullptr));
  LoopbackServer bad([](Connection& connection) { connection.send(response(404, "")); });
  EXPECT_FALSE(TKSUtilBase::avaliableDeltaUpdates(bad.address(), nullptr));
}

/// Archives that would write elsewhere, or put something else in the list's place: all are refused before unpacking.
TEST_F(DeltaUpdates, RefusesArchivesThatHoldMoreThanPlainFiles) {
  sign(kList, "maker");
  const std::string sideCar = contentOf(stage / kSideCar);
  const std::string outside = home / "outside";
  const auto list = [&] { return TarArchive().add(kSideCar, sideCar).add(kName, kList); };
  const struct {
    std::string reason;
    TarArchive archive;
  } cases[] = {
      {"a name leads out of the folder: \"../escaped\"", list().add("../escaped", "x")},
      {"a name leads out of the folder: \"a/../../escaped\"", list().add("a/../../escaped", "x")},
      {"a name leads out of the folder: \"" + outside + "\"", list().add(outside, "x")},
      {"a name leads out of the folder: \"/" + std::string(kName) + "\"", TarArchive().add("/deltalist.json", kList)},
      {"a link: \"deltalist.json\"", TarArchive().add(kName, TarArchive::link, "", stage / kName)},
      {"a link: \"folder\"", list().add("folder", TarArchive::link, "", "/tmp").add("folder/escaped", "x")},
      {"neither file, folder nor link: \"deltalist.json\"",
       TarArchive().add(kName, TarArchive::hardLink, "", stage / kName)},
      {"neither file, folder nor link: \"deltalist.json\"", TarArchive().add(kName, TarArchive::pipe, "")},
      {"neither file, folder nor link: \"device\"", list().add("device", TarArchive::characterDevice, "")},
      {"a name is used twice: \"deltalist.json\"", list().add(kName, "[]")},
      {"a name is used twice: \"./deltalist.json\"", list().add("./deltalist.json", "[]")},
      {"a name is used twice: \"._deltalist.json\"", list().add(kSideCar, sideCar)},
      {"more than may be unpacked: \"large\"", list().announce("large", 0x1ffffffffULL)},
  };
  for (const auto& [reason, archive] : cases) {
    EXPECT_EQ(ask(archive.bytes()), std::nullopt) << reason;
    EXPECT_EQ(error, kNotConverted) << reason;
    EXPECT_THAT(lines(), ElementsAre(begin(), LogLine{8, "Refuse to unpack: DOWNLOAD/download, " + reason},
                                     LogLine{8, "Convert the DeltaInfos to dictionary failed: (null)"}, kEmptyEnd,
                                     kNoPackageLine));
    EXPECT_FALSE(fs::exists(outside)) << reason;
    EXPECT_FALSE(fs::exists(tks::platform::knownFolders().temporary() + "/escaped")) << reason;
  }
}

TEST_F(DeltaUpdates, APipeAfterGarbageIsNotWaitedFor) {
  // The look gives up at the garbage; the tool skips it.
  const std::string garbage(512, 'x');
  EXPECT_EQ(ask(garbage + TarArchive().add(kName, TarArchive::pipe, "").bytes()), std::nullopt);
  EXPECT_EQ(error, kNotConverted);
  EXPECT_EQ(ask(garbage + TarArchive().add(kName, TarArchive::link, "", "/dev/zero").bytes()), std::nullopt);
  EXPECT_EQ(error, kNotConverted);
}

TEST_F(DeltaUpdates, RefusesArchivesThatGrowAThousandfold) {
  sign(kList, "maker");
  fs::resize_file(stage / kName, 129u * 1024 * 1024);
  const std::string bomb = packed({"-z", kName});
  ASSERT_LT(bomb.size(), 1024u * 1024);
  EXPECT_EQ(ask(bomb), std::nullopt);
  EXPECT_THAT(errors(), Contains("Refuse to unpack: DOWNLOAD/download, more than may be unpacked: \"deltalist.json\""));
  EXPECT_EQ(ask(std::string(200'000, 'x')), std::nullopt);
  EXPECT_THAT(errors()[0], StartsWith("Refuse to unpack: DOWNLOAD/download, read archive"));
}

TEST_F(DeltaUpdates, BoundsWhatTheUnpackerMayWrite) {
  FakeTools tools;
  EXPECT_TRUE(ask(signedArchive(kList)));
  ASSERT_EQ(tools.requests.size(), 1u);
  EXPECT_EQ(tools.requests[0].tool, tks::platform::Tool::tar);
  EXPECT_EQ(tools.requests[0].writeLimit, 256u * 1024 * 1024);
  // It works on a copy, in a folder made for this.
  EXPECT_THAT(tools.requests[0].arguments[1], testing::MatchesRegex(".*/\\.unpacking-[^/]+/archive"));
  EXPECT_THAT(tools.requests[0].arguments[3], testing::MatchesRegex(".*/\\.unpacking-[^/]+/unpacked"));
}

/// An archive in a folder where an earlier list is.
class LeftOverList : public DeltaUpdates {
 protected:
  LeftOverList() {
    writeFile(folder + "/deltalist.json", "[{\"name\":\"old.delta\"}]");
    tks::test::signAs(folder + "/deltalist.json");
    writeFile(folder + "/._deltalist.json", "");
    download.answer = [this] { return tks::platform::DownloadResult{folder + "/download", 200, std::nullopt}; };
  }

  const std::string folder = tks::platform::knownFolders().temporary() + "/shared";
  FakeDownload download;
};

TEST_F(LeftOverList, NeverPassesForTheNewOne) {
  writeFile(folder + "/download", "broken");
  EXPECT_EQ(askAt("https://a.example"), std::nullopt);
  EXPECT_EQ(error, kNotConverted);
  EXPECT_EQ(lines()[1], (LogLine{2, "Clean existed temp app result: 1, any error: (null)"}));
  EXPECT_THAT(errors(), Contains("untar fail " + folder + "/download"));
}

TEST_F(LeftOverList, MakesRoomForTheNewOne) {
  writeFile(folder + "/download", signedArchive(kList));
  const auto packages = askAt("https://a.example");
  ASSERT_TRUE(packages);
  EXPECT_TRUE(packages->contains("5.1.0.delta"));
  EXPECT_FALSE(packages->contains("old.delta"));
}

TEST_F(LeftOverList, ThatCannotBeRemovedEndsTheAttempt) {
  class Stubborn final : public tks::test::ForwardingFiles {
    bool remove(std::string_view path, TKSError* error) override {
      if (!path.ends_with("deltalist.json")) return ForwardingFiles::remove(path, error);
      *error = {"NSPOSIXErrorDomain", 1, "not permitted"};
      return false;
    }
  } const files;
  writeFile(folder + "/download", signedArchive(kList));
  EXPECT_EQ(askAt("https://a.example"), std::nullopt);
  EXPECT_EQ(error, kNotConverted);
  const std::string reason = "Error Domain=NSPOSIXErrorDomain Code=1 \"not permitted\"";
  EXPECT_THAT(lines(), ElementsAre(begin(), LogLine{2, "Clean existed temp app result: 0, any error: " + reason},
                                   LogLine{8, "Convert the DeltaInfos to dictionary failed: " + reason}, kEmptyEnd,
                                   kNoPackageLine));
}

TEST_F(DeltaUpdates, AListOfAMillionEntriesIsRead) {
  std::string list = "[";
  for (int i = 0; i < 1'000'000; ++i) list += "{\"name\":\"5-" + std::to_string(i) + ".delta\",\"size\":1},";
  list.back() = ']';
  const std::string archive = signedArchive(list);
  LoopbackServer server([&](Connection& connection) { connection.send(response(200, archive)); });
  // No line is wanted: the list would be printed.
  TKSILog::sharedInstance().setLogBlock(nullptr);
  const auto packages = TKSUtilBase::avaliableDeltaUpdates(server.address(), &error);
  ASSERT_TRUE(packages);
  EXPECT_EQ(packages->size(), 1'000'000u);
  EXPECT_EQ((*packages)["5.999999.delta"]["version"], TKSValue("5-999999.delta"));
}

TEST_F(DeltaUpdates, KeepsNothingOpenAndRunning) {
  const std::string archive = signedArchive(kList);
  ASSERT_TRUE(ask(archive));
  const std::set<int> descriptors = tks::test::openDescriptors();
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(ask(archive).has_value(), true);
    EXPECT_EQ(ask("no archive").has_value(), false);
    EXPECT_EQ(ask("", 404).has_value(), false);
  }
  EXPECT_EQ(tks::test::openDescriptors(), descriptors);
  EXPECT_THAT(tks::test::children(), IsEmpty());
}

TEST_F(DeltaUpdates, SeveralThreadsAskAtOnce) {
  const std::string archive = signedArchive(kList);
  LoopbackServer server([&](Connection& connection) { connection.send(response(200, archive)); });
  std::vector<std::thread> threads;
  std::atomic<int> found = 0;
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([&] {
      TKSError mine;
      if (TKSUtilBase::avaliableDeltaUpdates(server.address(), &mine)) ++found;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(found, 6);
  EXPECT_THAT(temporaryFiles(), IsEmpty());
}

}  // namespace
