#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "tests/support/ScopedWorkingFolder.h"
#include "tests/support/TemporaryFolder.h"

// Paths that mean something else at a second look: with a NUL byte, through links, relative ones. The same on both
// systems: a call of either takes a path up to its first NUL byte.

namespace {

namespace fs = std::filesystem;
using tks::platform::files;
using tks::test::contentOf;
using tks::test::writeFile;

class OddPaths : public ::testing::Test {
 protected:
  unsigned modeOf(const std::string& path) {
    struct stat facts {};
    return ::lstat(path.c_str(), &facts) == 0 ? facts.st_mode & 07777 : 0;
  }

  /// Every operation on files, with such paths where it takes one: whether it does anything.
  std::vector<std::function<bool()>> operationsOn(const std::string& file, const std::string& directory) {
    const std::string good = folder / "good";
    return {
        [=] { return files().exists(file); },
        [=] { return files().isDirectory(directory); },
        [=] { return files().isLink(file); },
        [=, this] { return files().isSameItem(file, folder / "x"); },
        [=, this] { return files().liesWithin(directory, folder.path()); },
        [=] { return files().isExecutableFile(file); },
        [=] { return files().isWritable(file); },
        [=, this] { return files().size(file, &error).has_value(); },
        [=, this] { return files().list(directory, &error).has_value(); },
        [=, this] { return files().createDirectory(folder / std::string("new\0y", 5), 0700, &error); },
        [=, this] { return files().usePrivateDirectory(folder / std::string("new\0y", 5), &error); },
        [=, this] { return files().createFile(folder / std::string("new\0y", 5), 0600, &error); },
        [=, this] { return files().remove(file, &error); },
        [=, this] { return files().remove(directory, &error); },
        [=, this] { return files().removeEmptyDirectory(directory, &error); },
        [=, this] { return files().copy(file, good, &error); },
        [=, this] { return files().copy(folder / "x", folder / std::string("new\0y", 5), &error); },
        [=, this] { return files().move(file, good, &error); },
        [=, this] { return files().move(folder / "x", folder / std::string("new\0y", 5), &error); },
        [=, this] { return files().exchange(file, directory, &error); },
        [=, this] { return files().lock(file, std::chrono::milliseconds(0), &error) != nullptr; },
        [=, this] { return files().read(file, 100, &error).has_value(); },
        [=, this] { return files().writeAtomically(file, {}, &error); },
        [=, this] { return files().changeMark(file, &error).has_value(); },
        [=, this] { return files().attributes(file, &error).has_value(); },
        [=, this] { return files().permissions(file, &error).has_value(); },
        [=, this] { return files().setPermissions(file, 0777, &error); },
        [=] { return files().removeExtendedAttribute(file, "a") == 0; },
        [=, this] { return files().volumeSpace(directory, &error).has_value(); },
    };
  }

  tks::test::TemporaryFolder folder;
  TKSError error;
};

TEST_F(OddPaths, WithANulAreRefusedByEveryOperationOnFiles) {
  writeFile(folder / "x", "precious");
  fs::create_directory(folder / "d");
  ASSERT_EQ(::chmod((folder / "x").c_str(), 0600), 0);
  const std::vector<std::function<bool()>> operations =
      operationsOn(folder / std::string("x\0y", 3), folder / std::string("d\0y", 3));
  for (std::size_t i = 0; i < std::size(operations); ++i) {
    error = TKSError();
    EXPECT_FALSE(operations[i]()) << i;
    EXPECT_TRUE(error == TKSError() || error.code == EINVAL) << i << error.description();
  }
  EXPECT_EQ(contentOf(folder / "x"), "precious");
  EXPECT_EQ(modeOf(folder / "x"), 0600u);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 2);
}

TEST_F(OddPaths, WithANulAreRefusedByEveryOtherFacility) {
  writeFile(folder / "x", "<plist><dict/></plist>");
  writeFile(folder / "A.app/Contents/Info.plist", "<plist><dict/></plist>");
  const std::string file = folder / std::string("x\0y", 3);
  const std::string bundle = folder / std::string("A.app\0y", 7);
  EXPECT_FALSE(tks::platform::propertyLists().readDictionary(file, nullptr));
  EXPECT_FALSE(tks::platform::propertyLists().writeDictionary({}, file, nullptr));
  EXPECT_FALSE(tks::platform::bundles().open(bundle));
  for (const auto format : {tks::platform::ArchiveFormat::zip, tks::platform::ArchiveFormat::tar}) {
    const auto goOn = [](const tks::platform::ArchiveEntry&) { return true; };
    EXPECT_FALSE(tks::platform::archives().inspect(file, format, goOn, &error));
    EXPECT_EQ(error.code, EINVAL);
  }
  EXPECT_EQ(tks::platform::channels().fileSource(file, &error), nullptr);
  EXPECT_EQ(tks::platform::channels().fileSink(file, &error), nullptr);
  EXPECT_EQ(error.code, EINVAL);
  EXPECT_FALSE(tks::platform::runningApplications().hasLastUsedDate(bundle));
  EXPECT_FALSE(tks::platform::runningApplications().launch(bundle, {}, nullptr));
  std::unique_ptr<tks::platform::StaticCode> code;
  EXPECT_NE(tks::platform::signatures().create(bundle, code), 0);
  EXPECT_EQ(contentOf(folder / "x"), "<plist><dict/></plist>");
}

TEST_F(OddPaths, ThroughALinkShowThePermissionsThatAreSetThere) {
  writeFile(folder / "file", "x");
  ASSERT_EQ(::chmod((folder / "file").c_str(), 0640), 0);
  fs::create_symlink("file", folder / "link");
  fs::create_symlink("nowhere", folder / "dangling");
  EXPECT_EQ(files().permissions(folder / "link", &error), 0640u);
  EXPECT_TRUE(files().setPermissions(folder / "link", 0600, &error));
  EXPECT_EQ(files().permissions(folder / "link", &error), 0600u);
  EXPECT_EQ(modeOf(folder / "file"), 0600u);
  EXPECT_EQ(error, TKSError());
  EXPECT_FALSE(files().permissions(folder / "dangling", &error));
  EXPECT_EQ(error.localizedDescription,
            "read the permissions of \"" + (folder / "dangling") + "\": No such file or directory");
}

TEST_F(OddPaths, AreKnownForLinksWhereverTheyLead) {
  writeFile(folder / "file", "x");
  fs::create_symlink("file", folder / "link");
  fs::create_symlink("nowhere", folder / "dangling");
  fs::create_directory_symlink(folder.path(), folder / "folder");
  for (const char* name : {"link", "dangling", "folder", "folder/"}) EXPECT_TRUE(files().isLink(folder / name)) << name;
  for (const char* name : {"file", "missing", "", "folder/."}) EXPECT_FALSE(files().isLink(folder / name)) << name;
}

TEST_F(OddPaths, AreTheSameItemHoweverTheyAreSpelled) {
  writeFile(folder / "a/file", "x");
  writeFile(folder / "other", "x");
  fs::create_symlink("a/file", folder / "link");
  for (const char* name : {"a/file", "a//file", "a/../a/./file", "link"}) {
    EXPECT_TRUE(files().isSameItem(folder / "a/file", folder / name)) << name;
  }
  EXPECT_FALSE(files().isSameItem(folder / "a/file", folder / "other"));
  EXPECT_FALSE(files().isSameItem(folder / "missing", folder / "missing"));
}

TEST_F(OddPaths, ThatAreRelativeMeanTheWorkingFolder) {
  const tks::test::ScopedWorkingFolder here(folder.path());
  EXPECT_TRUE(files().createDirectory("a/b", 0700, &error));
  EXPECT_TRUE(files().createFile("a/-rf", 0600, &error));
  EXPECT_TRUE(files().copy("a/-rf", "-rf", &error));
  EXPECT_TRUE(files().move("-rf", "a/b/c", &error));
  EXPECT_TRUE(files().writeAtomically("new", {}, &error));
  EXPECT_TRUE(files().volumeSpace("missing", &error));
  EXPECT_TRUE(files().remove("a", &error));
  EXPECT_EQ(error, TKSError());
  EXPECT_TRUE(fs::exists(folder / "new"));
  EXPECT_FALSE(fs::exists(folder / "a"));
}

}  // namespace
