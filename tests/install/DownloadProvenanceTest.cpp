#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <tksinterface/TKSUtilBase.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "formats/apple_double.h"
#include "platform/linux/processes/tool_runner.h"
#include "platform/platform.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FakeHostProcess.h"
#include "tests/support/ForwardingFiles.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TemporaryFolder.h"

// Where downloaded files came from: real attributes and side-cars, and a script in the place of the reset tool.

namespace {

namespace fs = std::filesystem;
using tks::platform::PropertyLists;
using tks::platform::Tool;
using tks::test::contentOf;
using tks::test::LogLine;
using tks::test::LogRecorder;
using tks::test::writeFile;

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr const char* kWhereFroms = "com.apple.metadata:kMDItemWhereFroms";
constexpr const char* kAddress = "https://download.tarvo.example/Setup.pkg";
constexpr const char* kReferrer = "https://www.tarvo.example/download";

TKSData listOf(const TKSValue& value, PropertyLists::Format format = PropertyLists::Format::binary) {
  return tks::platform::propertyLists().serialize(value, format, nullptr).value_or(TKSData());
}

TKSData bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

/// A system that counts as older than macOS 10.15.
class OldSystem final : public tks::platform::ThisProcess {
 public:
  std::int32_t identifier() override { return replaced_.before().identifier(); }
  bool refusesAsForkedCopy(std::string_view operation) override {
    return replaced_.before().refusesAsForkedCopy(operation);
  }
  void giveMemoryBack() override {}
  std::uint32_t threadNumber() override { return replaced_.before().threadNumber(); }
  std::string threadDescription() override { return replaced_.before().threadDescription(); }
  std::string randomUUID() override { return replaced_.before().randomUUID(); }
  bool isCatalinaOrLater() override { return false; }

 private:
  tks::platform::Replaced<tks::platform::ThisProcess> replaced_{*this};
};

/// Files that count how often attributes are read, and may do something before.
class CountedFiles final : public tks::test::ForwardingFiles {
 public:
  int reads = 0;
  std::function<void(int read)> before;
  std::optional<tks::platform::FileAttributes> attributes(std::string_view path, TKSError* error) override {
    ++reads;
    if (before) before(reads);
    return ForwardingFiles::attributes(path, error);
  }
};

class DownloadProvenance : public ::testing::Test {
 protected:
  DownloadProvenance() : package(home / "Downloads/Setup.pkg") {
    writeFile(package, "package");
    setResetTool("echo Successfully reset");
    log.clear();
  }

  void SetUp() override {
    if (::setxattr(package.c_str(), "user.probe", "", 0, 0) != 0) GTEST_SKIP() << "no attributes here";
  }

  /// A script that notes its arguments.
  void setResetTool(const std::string& lines) {
    writeFile(home / "tccutil",
              "#!/bin/sh\nfor word; do echo \"$word\" >>'" + home / "runs" + "'; done\n" + lines + "\n");
    fs::permissions(home / "tccutil", fs::perms::owner_all);
  }

  void setAttribute(const TKSData& content, const char* name = kWhereFroms) {
    const std::string full = std::string("user.") + name;
    ASSERT_EQ(::setxattr(package.c_str(), full.c_str(), content.data(), content.size(), 0), 0);
  }
  void setSideCar(const TKSData& content) {
    tks::formats::AppleDouble sideCar;
    sideCar.attributes.set(kWhereFroms, content);
    const TKSData bytes = tks::formats::serializeAppleDouble(sideCar).value();
    writeFile(*tks::formats::sideCarPath(package), {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  }

  TKSValue property() { return TKSUtilBase::getProperty(kWhereFroms, package); }
  TKSValue address() { return TKSUtilBase::getDownloadURLFromFile(package); }
  /// The words of all runs of the reset tool.
  std::string resets() const { return contentOf(home / "runs"); }

  std::string noProperty() const {
    return std::string("No property:") + kWhereFroms + " metadata for file: " + shown() + ".";
  }

  /// The package's path as lines show it: what follows "/home/" is a user's name.
  std::string shown() const { return TKSILog::removeSensitiveInformation(package); }

  tks::test::FakeHome home;
  const std::string package;
  LogRecorder log;
  tks::test::FakeHostProcess host;
  CountedFiles files;
  std::unique_ptr<tks::platform::SystemTools> tools = tks::gnulinux::makeSystemTools(
      [this](Tool tool) { return tool == Tool::tccutil ? home / "tccutil" : std::string(); });
  tks::platform::Replaced<tks::platform::SystemTools> replacedTools{*tools};
};

const std::vector<LogLine> kReset = {
    {4, "OS version is 10.15 at least. Try to reset access to the folder and get property again."},
    {2, "Reset access to folder begin."},
    {2, "Get SystemPolicyFolderToResetAccess: SystemPolicyDownloadsFolder."},
    {2, "ResetTask Output: Successfully reset\n"},
    {2, "Reset access to folder end."},
};

TEST_F(DownloadProvenance, IsTheFirstAddressOfTheAttribute) {
  setAttribute(listOf(TKSArray{kAddress, kReferrer}));
  EXPECT_EQ(address(), TKSValue(kAddress));
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, std::string("Get download Url from file: ") + kAddress}));
  EXPECT_EQ(files.reads, 1);
  EXPECT_EQ(resets(), "");
}

TEST_F(DownloadProvenance, IsReadFromASideCarToo) {
  setSideCar(listOf(TKSArray{kAddress}));
  EXPECT_EQ(address(), TKSValue(kAddress));
  setAttribute(listOf(TKSArray{kReferrer}));
  EXPECT_EQ(address(), TKSValue(kReferrer));
}

TEST_F(DownloadProvenance, PropertyAnswersTheWholeArrayInAnyForm) {
  const TKSArray both{kAddress, kReferrer};
  setAttribute(listOf(both));
  EXPECT_EQ(property(), TKSValue(both));
  setAttribute(listOf(both, PropertyLists::Format::xml));
  EXPECT_EQ(property(), TKSValue(both));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(DownloadProvenance, PropertyReadsAnyAttribute) {
  setAttribute(listOf(TKSArray{"blue", 7}), "com.apple.metadata:_kMDItemUserTags");
  EXPECT_EQ(TKSUtilBase::getProperty("com.apple.metadata:_kMDItemUserTags", package), TKSValue(TKSArray{"blue", 7}));
}

TEST_F(DownloadProvenance, PropertyNeedsAPath) {
  EXPECT_TRUE(TKSUtilBase::getProperty(kWhereFroms, "").isNothing());
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{8, std::string("Cannot get property:") + kWhereFroms +
                                                      " from pkg, because pkgPath is nil or empty!"}));
  EXPECT_EQ(files.reads, 0);
}

TEST_F(DownloadProvenance, PropertyOfAFileWithoutAttributesSaysWhy) {
  const std::string missing = home / "missing.pkg";
  EXPECT_TRUE(TKSUtilBase::getProperty(kWhereFroms, missing).isNothing());
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].level, 8);
  EXPECT_THAT(log.lines()[0].text, StartsWith("Get file attributes failed. Pkg Path: " + missing +
                                              ", error: Error Domain=NSPOSIXErrorDomain Code=2 "));
  EXPECT_EQ(resets(), "");
}

TEST_F(DownloadProvenance, AMissingAttributeCausesOneResetAndOneSecondRead) {
  host.bundleIdentifier = "com.tarvo.host";
  EXPECT_TRUE(property().isNothing());
  std::vector<LogLine> expected = {{8, noProperty()}};
  expected.insert(expected.end(), kReset.begin(), kReset.end());
  expected.push_back({8, std::string("After reset access, still no property:") + kWhereFroms +
                             " metadata for file: " + shown() + "."});
  EXPECT_EQ(log.lines(), expected);
  EXPECT_EQ(files.reads, 2);
  EXPECT_EQ(resets(), "reset\nSystemPolicyDownloadsFolder\ncom.tarvo.host\n");
}

TEST_F(DownloadProvenance, AnAttributeThatShowsAfterTheResetIsAnswered) {
  files.before = [&](int read) {
    if (read == 2) setAttribute(listOf(TKSArray{kAddress}));
  };
  EXPECT_EQ(address(), TKSValue(kAddress));
  std::vector<LogLine> expected = {{8, noProperty()}};
  expected.insert(expected.end(), kReset.begin(), kReset.end());
  expected.push_back({2, std::string("Get download Url from file: ") + kAddress});
  EXPECT_EQ(log.lines(), expected);
}

TEST_F(DownloadProvenance, AnEmptyAttributeCountsAsMissing) {
  setAttribute({});
  EXPECT_TRUE(property().isNothing());
  EXPECT_EQ(log.lines()[0], (LogLine{8, noProperty()}));
  EXPECT_EQ(files.reads, 2);
}

TEST_F(DownloadProvenance, AFileThatVanishesDuringTheResetHasNone) {
  files.before = [&](int read) {
    if (read == 2) fs::remove(package);
  };
  EXPECT_TRUE(property().isNothing());
  EXPECT_THAT(log.texts(8), ElementsAre(noProperty(), StartsWith("After reset access, still no property:")));
}

TEST_F(DownloadProvenance, AnOlderSystemResetsNothing) {
  const OldSystem old;
  EXPECT_TRUE(property().isNothing());
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{8, noProperty()}));
  EXPECT_EQ(files.reads, 1);
  EXPECT_EQ(resets(), "");
}

TEST_F(DownloadProvenance, AnAttributeThatIsNoPropertyListIsNone) {
  for (const TKSData& content : {bytesOf("no list"), bytesOf("bplist00"), bytesOf(std::string(2000, '\0')),
                                 bytesOf("<?xml version=\"1.0\"?><plist><array>"), bytesOf("\xff\xfe\x00\x01")}) {
    setAttribute(content);
    log.clear();
    EXPECT_TRUE(address().isNothing());
    ASSERT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(log.lines()[0].level, 8);
    EXPECT_THAT(log.lines()[0].text, StartsWith("Convert data to plist failed: Error Domain="));
    EXPECT_EQ(log.lines()[1], (LogLine{8, "kMDItemWhereFroms Plist obj is not array"}));
  }
  EXPECT_EQ(resets(), "");
}

TEST_F(DownloadProvenance, APropertyListThatIsNoArrayIsNone) {
  const struct {
    TKSValue value;
    const char* shown;
  } cases[] = {{TKSDictionary{{"a", 1}}, "{\n    a = 1;\n}"}, {kAddress, kAddress}, {7, "7"}, {true, "1"}};
  for (const auto& [value, shown] : cases) {
    setAttribute(listOf(value));
    log.clear();
    EXPECT_TRUE(address().isNothing());
    EXPECT_THAT(log.lines(), ElementsAre(LogLine{8, std::string("Plist obj is not array: ") + shown},
                                         LogLine{8, "kMDItemWhereFroms Plist obj is not array"}));
  }
}

TEST_F(DownloadProvenance, AnEmptyArrayIsNone) {
  setAttribute(listOf(TKSArray()));
  EXPECT_TRUE(address().isNothing());
  EXPECT_THAT(log.lines(),
              ElementsAre(LogLine{8, "Plist obj is empty."}, LogLine{8, "kMDItemWhereFroms Plist obj is not array"}));
}

TEST_F(DownloadProvenance, AFirstEntryThatIsNoAddressIsAnsweredAllTheSame) {
  const struct {
    TKSValue first;
    const char* shown;
  } cases[] = {{"", "\"\""}, {7, "7"}, {TKSArray{"x"}, "    (\n        x\n    )"}};
  for (const auto& [first, shown] : cases) {
    setAttribute(listOf(TKSArray{first, "second"}));
    log.clear();
    EXPECT_EQ(address(), first);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].level, 8);
    EXPECT_THAT(log.lines()[0].text,
                AllOf(StartsWith("Get URL string failed with plist obj: (\n"), HasSubstr(shown), HasSubstr("second")));
  }
}

TEST_F(DownloadProvenance, OddAddressesAreAnsweredAsTheyStand) {
  for (const std::string odd :
       {"javascript:alert(1)", "file:///etc/passwd", "no address at all", "\n\x1b[31m", "//x"}) {
    setAttribute(listOf(TKSArray{odd}));
    EXPECT_EQ(address(), TKSValue(odd));
  }
  const std::string longAddress = "https://a.example/" + std::string(3000, 'x');
  setAttribute(listOf(TKSArray{longAddress}));
  EXPECT_EQ(address(), TKSValue(longAddress));
}

TEST_F(DownloadProvenance, PersonalDataInAddressesAndPathsIsMasked) {
  setAttribute(listOf(TKSArray{"https://a.example/x?mail=ann.example@tarvo.example"}));
  EXPECT_EQ(address(), TKSValue("https://a.example/x?mail=ann.example@tarvo.example"));
  EXPECT_THAT(log.texts(2), Contains(AllOf(HasSubstr("ann.exa****@tarvo.example"))));
  TKSUtilBase::getProperty(kWhereFroms, "/Users/annexample/missing.pkg");
  for (const std::string& text : log.texts(8)) EXPECT_EQ(text.find("annexample"), std::string::npos) << text;
}

TEST_F(DownloadProvenance, AnAttributeOfMoreThanAMebibyteIsLeftAside) {
  // Attributes of such a size come in side-cars only.
  const TKSValue below = TKSArray{std::string(1000 * 1000, 'x')};
  setSideCar(listOf(below));
  EXPECT_EQ(property(), below);
  EXPECT_EQ(files.reads, 1);
  setSideCar(listOf(TKSArray{std::string(1100 * 1000, 'x')}));
  EXPECT_TRUE(property().isNothing());
  EXPECT_EQ(log.lines()[0], (LogLine{8, noProperty()}));
  EXPECT_EQ(files.reads, 3);
}

TEST_F(DownloadProvenance, AttributesThatWereMadeToDoHarmAreNone) {
  std::string nested;
  for (int i = 0; i < 3000; ++i) nested += "<array>";
  // A binary list whose only array holds itself, and one that claims 2^60 entries.
  const std::string trailer("\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0\x01\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x0a", 32);
  const std::string itself = std::string("bplist00\xa1\x00", 10) + std::string("\x08", 1) + trailer;
  const std::string huge = std::string("bplist00\xaf\x13\x10\0\0\0\0\0\0\0", 18) + std::string("\x08", 1) + trailer;
  for (const std::string& content : {"<plist version=\"1.0\">" + nested, itself, huge}) {
    setSideCar(bytesOf(content));
    EXPECT_TRUE(property().isNothing());
  }
  EXPECT_THAT(log.texts(8), ::testing::Each(StartsWith("Convert data to plist failed: ")));
}

TEST_F(DownloadProvenance, ABrokenSideCarHoldsNothing) {
  const std::string sideCar = *tks::formats::sideCarPath(package);
  setSideCar(listOf(TKSArray{kAddress}));
  const std::string whole = contentOf(sideCar);
  for (std::size_t length = 0; length + 1 < whole.size(); length += 7) {
    writeFile(sideCar, std::string_view(whole).substr(0, length));
    EXPECT_TRUE(property().isNothing()) << length;
  }
}

TEST_F(DownloadProvenance, ALinkHasAttributesOfItsOwn) {
  setAttribute(listOf(TKSArray{kAddress}));
  fs::create_symlink(package, home / "link.pkg");
  EXPECT_TRUE(TKSUtilBase::getProperty(kWhereFroms, home / "link.pkg").isNothing());
}

TEST_F(DownloadProvenance, ResetPassesServiceAndHost) {
  host.bundleIdentifier = "com.tarvo.host";
  TKSUtilBase::resetAppAccessWithPkgPath("/tmp/Setup.pkg");
  EXPECT_EQ(resets(), "reset\nAll\ncom.tarvo.host\n");
  EXPECT_THAT(
      log.lines(),
      ElementsAre(LogLine{2, "Reset access to folder begin."}, LogLine{2, "Get SystemPolicyFolderToResetAccess: All."},
                  LogLine{2, "ResetTask Output: Successfully reset\n"}, LogLine{2, "Reset access to folder end."}));
}

TEST_F(DownloadProvenance, ResetOfAHostWithoutIdentifierPassesNone) {
  TKSUtilBase::resetAppAccessWithPkgPath(package);
  EXPECT_EQ(resets(), "reset\nSystemPolicyDownloadsFolder\n");
}

TEST_F(DownloadProvenance, ResetShowsTheFirst500CharactersOfTheOutput) {
  setResetTool("i=0; while [ $i -lt 400 ]; do printf 'ab\\303\\244'; i=$((i + 1)); done");
  TKSUtilBase::resetAppAccessWithPkgPath(package);
  std::string shown;
  for (int i = 0; i < 166; ++i) shown += "ab\xC3\xA4";
  EXPECT_TRUE(log.has(2, "ResetTask Output: " + shown + "ab"));
}

TEST_F(DownloadProvenance, ResetThatFailsOrHasNoToolCarriesOn) {
  setResetTool("echo only an error >&2; exit 70");
  TKSUtilBase::resetAppAccessWithPkgPath(package);
  EXPECT_TRUE(log.has(2, "ResetTask Output: "));
  log.clear();
  fs::remove(home / "tccutil");
  TKSUtilBase::resetAppAccessWithPkgPath(package);
  EXPECT_TRUE(log.has(2, "ResetTask Output: "));
  EXPECT_TRUE(log.has(2, "Reset access to folder end."));
  EXPECT_THAT(log.texts(8), IsEmpty());
}

TEST_F(DownloadProvenance, ResetWithOutputThatIsNoTextShowsNone) {
  setResetTool("printf 'caf\\351'");
  TKSUtilBase::resetAppAccessWithPkgPath(package);
  EXPECT_TRUE(log.has(2, "ResetTask Output: (null)"));
}

TEST_F(DownloadProvenance, ServiceFollowsFromTheFolder) {
  const struct {
    std::string path;
    const char* service;
  } cases[] = {
      {home / "Documents/a.pkg", "SystemPolicyDocumentsFolder"},
      {home / "Desktop/a.pkg", "SystemPolicyDesktopFolder"},
      {home / "Downloads/a/b.pkg", "SystemPolicyDownloadsFolder"},
      {home / "Documents", "SystemPolicyDocumentsFolder"},
      {home / "Documents-old/a.pkg", "SystemPolicyDocumentsFolder"},
      {home / "documents/a.pkg", "All"},
      {home / "Music/a.pkg", "All"},
      {"/tmp/a.pkg", "All"},
      {"Documents/a.pkg", "All"},
      {"", "All"},
  };
  for (const auto& [path, service] : cases) {
    log.clear();
    EXPECT_EQ(TKSUtilBase::getSystemPolicyFolderToResetAccess(path), service) << path;
    EXPECT_THAT(log.lines(),
                ElementsAre(LogLine{2, std::string("Get SystemPolicyFolderToResetAccess: ") + service + "."}));
  }
}

TEST_F(DownloadProvenance, ServiceInAHomeThatIsTheRoot) {
  const tks::test::FakeHome root("/");
  EXPECT_EQ(TKSUtilBase::getSystemPolicyFolderToResetAccess("/Downloads/a.pkg"), "SystemPolicyDownloadsFolder");
}

}  // namespace
