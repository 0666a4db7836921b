#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include <tksinterface/TKSUtilBase.h>

#include "platform/platform.h"
#include "tests/support/ForwardingFiles.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using tks::platform::FileAttributes;
using tks::test::LogLine;
using tks::test::LogRecorder;
using tks::test::writeFile;

using ::testing::ElementsAre;
using ::testing::IsEmpty;

unsigned modeOf(const std::string& path) {
  struct stat facts {};
  return ::stat(path.c_str(), &facts) == 0 ? facts.st_mode & 07777 : 0;
}

/// The files of the system, but for what a test makes fail.
class FailingFiles final : public tks::test::ForwardingFiles {
 public:
  std::optional<FileAttributes> answer;
  TKSError attributesError;
  TKSError permissionsError;
  int removeResult = 0;
  std::vector<std::string> removed;
  std::vector<std::uint32_t> permissionsSet;

  std::optional<FileAttributes> attributes(std::string_view, TKSError* error) override {
    if (!answer && error != nullptr) *error = attributesError;
    return answer;
  }
  std::optional<std::uint32_t> permissions(std::string_view, TKSError* error) override {
    const std::optional<FileAttributes> found = attributes({}, error);
    return found ? std::optional(found->permissions) : std::nullopt;
  }
  bool setPermissions(std::string_view, std::uint32_t permissions, TKSError* error) override {
    permissionsSet.push_back(permissions);
    if (permissionsError == TKSError()) return true;
    if (error != nullptr) *error = permissionsError;
    return false;
  }
  int removeExtendedAttribute(std::string_view path, std::string_view name) override {
    removed.push_back(std::string(path) + " " + std::string(name));
    return removeResult;
  }
};

class Quarantine : public ::testing::Test {
 protected:
  /// Marks an item; false where the volume has no attributes.
  bool mark(const std::string& path) {
    return ::setxattr(path.c_str(), "user.com.apple.quarantine", "0081;", 5, 0) == 0;
  }
  bool isMarked(const std::string& path) {
    return ::getxattr(path.c_str(), "user.com.apple.quarantine", nullptr, 0) >= 0;
  }
  tks::test::TemporaryFolder folder;
  LogRecorder log;
};

TEST_F(Quarantine, IsRemovedFromTheBundleItselfOnly) {
  const std::string bundle = folder / "A.app";
  writeFile(bundle + "/Contents/file", "x");
  if (!mark(bundle) || !mark(bundle + "/Contents/file")) GTEST_SKIP() << "no attributes here";
  ::setxattr(bundle.c_str(), "user.other", "x", 1, 0);
  TKSUtilBase::removeQuarantineAttribute(bundle);
  EXPECT_FALSE(isMarked(bundle));
  EXPECT_TRUE(isMarked(bundle + "/Contents/file"));
  EXPECT_GE(::getxattr(bundle.c_str(), "user.other", nullptr, 0), 0);
  EXPECT_THAT(log.lines(),
              ElementsAre(LogLine{2, "Remove com.apple.quarantine attr done, result: 0. AppPath: " + bundle + "."}));
}

TEST_F(Quarantine, ABundleWithoutItIsLeftAloneAndNothingIsSaid) {
  const std::string bundle = folder / "A.app";
  fs::create_directory(bundle);
  ::setxattr(bundle.c_str(), "user.com.apple.quarantine.other", "x", 1, 0);
  TKSUtilBase::removeQuarantineAttribute(bundle);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(Quarantine, OfALinksTargetIsLeftAlone) {
  writeFile(folder / "target", "x");
  if (!mark(folder / "target")) GTEST_SKIP() << "no attributes here";
  fs::create_symlink("target", folder / "link");
  TKSUtilBase::removeQuarantineAttribute(folder / "link");
  EXPECT_TRUE(isMarked(folder / "target"));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(Quarantine, WithoutAPathIsAnErrorLine) {
  TKSUtilBase::removeQuarantineAttribute("");
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{8, "Nil/empty appPath! Fail to get quarantine property of ."}));
}

TEST_F(Quarantine, OfWhatIsNotThereIsAnErrorLineWithTheReason) {
  const std::string path = folder / "missing/Users/jane/A.app";
  TKSUtilBase::removeQuarantineAttribute(path);
  const std::string shown = folder / "missing/Users/****/A.app";
  EXPECT_THAT(log.lines(),
              ElementsAre(LogLine{8, "Fail to get quarantine property of " + shown +
                                         ". Error: Error Domain=NSPOSIXErrorDomain Code=2 \"read the attributes of \"" +
                                         shown + "\": No such file or directory\"."}));
}

TEST_F(Quarantine, OfAnItemWithoutAnyAttributesIsAnErrorLine) {
  FailingFiles files;
  TKSUtilBase::removeQuarantineAttribute("/Users/jane/A.app");
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{8,
                                               "Empty file attributes! Fail to get quarantine property of "
                                               "/Users/****/A.app."}));
}

TEST_F(Quarantine, ThatCannotBeRemovedLeavesItsResultInTheLine) {
  FailingFiles files;
  files.answer = FileAttributes{0755, {{"com.apple.quarantine", TKSData()}}};
  files.removeResult = -1;
  TKSUtilBase::removeQuarantineAttribute("/Users/jane/A.app");
  EXPECT_THAT(files.removed, ElementsAre("/Users/jane/A.app com.apple.quarantine"));
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2,
                                               "Remove com.apple.quarantine attr done, result: -1. AppPath: "
                                               "/Users/****/A.app."}));
}

TEST_F(Quarantine, OnAVolumeWithoutAttributesIsNoMatter) {
  if (!std::filesystem::exists("/proc/version")) GTEST_SKIP() << "there is no such volume here";
  TKSUtilBase::removeQuarantineAttribute("/proc/version");
  EXPECT_THAT(log.lines(), IsEmpty());
}

class Permissions : public Quarantine {};

TEST_F(Permissions, AreAddedToThoseThatAreThere) {
  for (const auto& [before, after] : {std::pair(0600u, 0755u), std::pair(0644u, 0755u), std::pair(0777u, 0777u),
                                      std::pair(0u, 0755u), std::pair(01022u, 01777u)}) {
    const std::string path = folder / "file";
    writeFile(path, "x");
    ASSERT_EQ(::chmod(path.c_str(), static_cast<mode_t>(before)), 0);
    log.clear();
    TKSUtilBase::addReadAndWritePermissionToFile(path);
    EXPECT_EQ(modeOf(path), after);
    EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "Add Read and Write permission to path: " + path + " success"}));
  }
}

TEST_F(Permissions, WithoutAPathAreAnErrorLine) {
  TKSUtilBase::addReadAndWritePermissionToFile("");
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{8, "In addReadAndWritePermissionToFile, filePath is nil"}));
}

TEST_F(Permissions, OfWhatIsNotThereAreAnErrorLineWithTheReason) {
  const std::string path = folder / "missing";
  TKSUtilBase::addReadAndWritePermissionToFile(path);
  EXPECT_THAT(log.lines(),
              ElementsAre(LogLine{8, "Add Read and Write permission to path: " + path +
                                         " failed, error: Error Domain=NSPOSIXErrorDomain Code=2 \"set the permissions "
                                         "of \"" +
                                         path + "\": No such file or directory\""}));
}

TEST_F(Permissions, ThatCannotBeReadAreSetAlone) {
  FailingFiles files;
  files.attributesError = TKSError{"NSPOSIXErrorDomain", EACCES, "no"};
  TKSUtilBase::addReadAndWritePermissionToFile("/Users/jane/file");
  EXPECT_THAT(files.permissionsSet, ElementsAre(0755u));
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "Add Read and Write permission to path: /Users/****/file success"}));
}

TEST_F(Permissions, ThatMayNotBeSetAreAnErrorLineWithMaskedText) {
  FailingFiles files;
  files.answer = FileAttributes{0444, {}};
  files.permissionsError = TKSError{"NSPOSIXErrorDomain", EPERM, "at /Users/jane/file"};
  TKSUtilBase::addReadAndWritePermissionToFile("/Users/jane/file");
  EXPECT_THAT(files.permissionsSet, ElementsAre(0755u));
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{8,
                                               "Add Read and Write permission to path: /Users/****/file failed, "
                                               "error: Error Domain=NSPOSIXErrorDomain Code=1 \"at "
                                               "/Users/****/file\""}));
}

}  // namespace
