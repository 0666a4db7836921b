#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "tests/support/TemporaryFolder.h"

// Compressed archives are looked into by libarchive. The reader for macOS takes them for none.

namespace {

using ::testing::ElementsAre;
using tks::platform::ArchiveEntry;
using tks::platform::ArchiveFormat;

TEST(CompressedArchives, TellWhatPlainOnesTell) {
  const tks::test::TemporaryFolder folder;
  tks::test::writeFile(folder / "t/file", std::string(5000, 'x'));
  std::filesystem::create_symlink("../../outside", folder / "t/link");
  for (const char* option : {"--gzip", "--bzip2", "--xz"}) {
    const std::string command =
        "cd '" + folder.path() + "' && tar " + option + " -cf a.tar.packed t/file t/link 2> log";
    if (std::system(command.c_str()) != 0) continue;  // the packer is not installed
    std::vector<std::string> found;
    TKSError error;
    EXPECT_TRUE(tks::platform::archives().inspect(
        folder / "a.tar.packed", ArchiveFormat::tar,
        [&](const ArchiveEntry& entry) {
          found.push_back(entry.name + " " + std::to_string(entry.size) + " " + entry.target);
          return true;
        },
        &error))
        << option << error.description();
    EXPECT_THAT(found, ElementsAre("t/file 5000 ", "t/link 0 ../../outside")) << option;
  }
}

}  // namespace
