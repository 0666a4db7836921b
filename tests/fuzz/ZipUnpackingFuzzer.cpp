#include <filesystem>
#include <string>

#include "install/PrivateUnpacking.h"
#include "tests/fuzz/Require.h"
#include "tests/fuzz/ZipParts.h"
#include "tests/support/TemporaryFolder.h"

// A zip archive from the look into it to the tree that the system's unpacker makes: whatever the archive is, nothing
// beside its own folder changes, and what comes out are files, folders and links that stay inside.

namespace {

namespace fs = std::filesystem;
using tks::fuzz::require;

constexpr std::uint64_t kMostBytes = 1 << 20;
constexpr const char* kSentinel = "as it was";

/// A folder with something beside the place of the unpacking that nobody may touch.
struct World {
  tks::test::TemporaryFolder folder;
  const std::string place = folder / "outer/place";
  const std::string archive = folder / "archive.zip";

  World() {
    fs::create_directories(place);
    fs::create_directories(folder / "taken");
    tks::test::writeFile(folder / "outer/sentinel", kSentinel);
  }
  void expectUntouched() const {
    require(tks::test::contentOf(folder / "outer/sentinel") == kSentinel);
    std::size_t items = 0;
    for ([[maybe_unused]] const auto& item : fs::directory_iterator(folder.path())) ++items;
    for ([[maybe_unused]] const auto& item : fs::directory_iterator(folder / "outer")) ++items;
    require(items == 5);  // archive, outer and taken; sentinel and place
    require(fs::is_empty(place));
  }
};

/// An item is of an ordinary kind with ordinary rights, and a link leads to something inside; one that leads in a
/// circle leads nowhere.
void expectInside(const fs::path& root, const fs::path& item) {
  const fs::file_status status = fs::symlink_status(item);
  require(fs::is_regular_file(status) || fs::is_directory(status) || fs::is_symlink(status));
  constexpr auto kOdd = fs::perms::set_uid | fs::perms::set_gid | fs::perms::sticky_bit | fs::perms::others_write |
                        fs::perms::group_write;
  if (!fs::is_symlink(status)) return require((status.permissions() & kOdd) == fs::perms::none);
  require(fs::read_symlink(item).is_relative());
  std::error_code circle;
  const fs::path there = fs::weakly_canonical(item, circle);
  require(circle || there == root || there.native().starts_with(root.native() + "/"));
}

/// Everything that was taken out, and how much it is.
std::uint64_t look(const fs::path& taken) {
  expectInside(taken, taken);
  if (!fs::is_directory(taken)) return fs::file_size(taken);
  std::uint64_t bytes = 0;
  for (const auto& item : fs::recursive_directory_iterator(taken)) {
    expectInside(taken, item.path());
    if (!item.is_symlink() && item.is_regular_file()) bytes += item.file_size();
  }
  return bytes;
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t room, unsigned seed) {
  return tks::fuzz::mutateZip(data, size, room, seed);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const World world;
  tks::test::writeFile(world.archive, tks::fuzz::textOf(data, size));
  {
    tks::install::PrivateUnpacking unpacking(world.place);
    TKSError error;
    const bool unpacked =
        unpacking.run(world.archive, tks::platform::ArchiveFormat::zip, {.mostBytes = kMostBytes}, &error);
    require(unpacked == error.localizedDescription.empty());
    const std::string taken = world.folder / "taken/A.app";
    if (unpacked && unpacking.take("A.app", taken, nullptr)) {
      require(look(taken) <= kMostBytes);
      fs::remove_all(taken);
    }
  }
  world.expectUntouched();
  return 0;
}
