#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "tests/platform/FileTreesTest.h"
#include "tests/support/InjectedSystemCall.h"

// Moving and exchanging where the kernel is old, or a filter or the volume refuses its newer call.

namespace {

namespace fs = std::filesystem;
using tks::gnulinux::SystemCalls;
using tks::platform::files;
using tks::test::contentOf;
using tks::test::Exchanging;
using tks::test::FileTrees;
using tks::test::InjectedSystemCall;
using tks::test::refusing;
using tks::test::writeFile;

TEST_F(FileTrees, NothingIsMovedOverWhatExistsByAnOldKernel) {
  const InjectedSystemCall oldKernel(&SystemCalls::renameat2, refusing<ENOSYS>);
  expectNothingIsMovedOverWhatExists();
}

TEST_F(FileTrees, MovingWorksWhereTheSystemCallIsRefused) {
  const auto expectMoved = [&] {
    writeFile(folder / "file", "x");
    EXPECT_TRUE(files().move(folder / "file", folder / "moved", &error)) << error.description();
    EXPECT_EQ(contentOf(folder / "moved"), "x");
    EXPECT_FALSE(fs::exists(folder / "file"));
    fs::remove(folder / "moved");
  };
  {
    const InjectedSystemCall oldKernel(&SystemCalls::renameat2, refusing<ENOSYS>);
    expectMoved();
  }
  {
    const InjectedSystemCall simpleVolume(&SystemCalls::renameat2, refusing<EINVAL>);
    expectMoved();
  }
  const InjectedSystemCall filter(&SystemCalls::renameat2, refusing<EPERM>);
  expectMoved();
}

TEST_F(Exchanging, WorksWhereTheSystemCannotDoItInOneStep) {
  {
    const InjectedSystemCall old(&SystemCalls::renameat2, refusing<ENOSYS>);
    expectExchanged();
    fs::rename(folder / "new", folder / "x");
    fs::rename(folder / "old", folder / "new");
    fs::rename(folder / "x", folder / "old");
  }
  const InjectedSystemCall filter(&SystemCalls::renameat2, refusing<EPERM>);
  expectExchanged();
}

TEST_F(Exchanging, WithWhatIsNotThereLeavesTheOtherByAnOldKernelToo) {
  const InjectedSystemCall call(&SystemCalls::renameat2, refusing<ENOSYS>);
  EXPECT_FALSE(files().exchange(folder / "new", folder / "missing", &error));
  EXPECT_EQ(error.localizedDescription, "exchange \"" + (folder / "missing") + "\": No such file or directory");
  EXPECT_EQ(contentOf(folder / "new/file"), "new");
}

}  // namespace
