#include <gtest/gtest.h>

#include <fstream>
#include <optional>

#include "tests/codesign/Fixtures.h"
#include "tests/support/ProcessTable.h"
#include "tests/support/Sanitized.h"

namespace {

namespace fs = std::filesystem;
using namespace tks::test;
using tks::signing::SigningOptions;

class Damage : public ::testing::Test {
 protected:
  Damage() {
    makeApp(app, elfProgram());
    signAs(app);
  }
  std::string part(const char* name) const { return app + "/Contents/_CodeSignature/" + name; }

  TemporaryFolder folder;
  std::string app = folder / "A.app";
};

TEST_F(Damage, EveryFlippedByteOfWhatIsSignedIsNoticed) {
  const std::string files[] = {part("CodeDirectory"), part("CodeRequirements"), part("CodeResources"),
                               app + "/Contents/Info.plist", app + "/Contents/Resources/notes.txt"};
  for (const std::string& file : files) {
    const std::size_t size = fs::file_size(file);
    for (std::size_t at = 0; at < size; at += size < 400 ? 1 : 23) {
      flip(file, at);
      EXPECT_NE(statusOf(app), 0) << file << " at " << at;
      flip(file, at);
    }
  }
  for (std::size_t at = 0; at < 5000; at += 241) {
    flip(app + "/Contents/MacOS/A", at, 0x80);
    EXPECT_EQ(statusOf(app), -67061) << at;
    flip(app + "/Contents/MacOS/A", at, 0x80);
  }
  EXPECT_EQ(statusOf(app), 0);
}

TEST_F(Damage, FlippedBytesOfTheMessageAreNoticedOrHarmless) {
  const std::string file = part("CodeSignature");
  const std::size_t size = fs::file_size(file);
  std::size_t unnoticed = 0;
  for (std::size_t at = 0; at < size; at += 5) {
    flip(file, at);
    unnoticed += statusOf(app) == 0 ? 1 : 0;
    flip(file, at);
  }
  // A few bytes say nothing: version numbers, and texts that mean the same.
  EXPECT_LT(unnoticed, 12u);
  EXPECT_EQ(statusOf(app), 0);
}

TEST_F(Damage, APartCutAnywhereIsRefused) {
  for (const char* name : {"CodeDirectory", "CodeSignature", "CodeResources"}) {
    const std::string whole = contentOf(part(name));
    for (std::size_t size = whole.size(); size > 0;) {
      size -= std::min<std::size_t>(size, kSanitized ? 11 : 1);
      fs::resize_file(part(name), size);
      EXPECT_NE(statusOf(app), 0) << name << " cut at " << size;
    }
    writeFile(part(name), whole);
  }
}

TEST(DamagedImage, CutAnywhereIsRefused) {
  TemporaryFolder folder;
  const std::string file = folder / "tool";
  writeBytes(file, tks::signing::makeImage({}));
  signAs(file, "maker");
  const std::string whole = contentOf(file);
  // Every length that ends inside of the signature, some of the others.
  const std::size_t start = tks::signing::makeImage({}).size() / 16 * 16;
  for (std::size_t size = whole.size(); size > 0;) {
    size -= std::min<std::size_t>(size, size > start && size < start + 4000 && !kSanitized ? 1 : 311);
    fs::resize_file(file, size);
    EXPECT_NE(statusOf(file), 0) << size;
  }
}

/// The most memory that this process has occupied since `restart` was last true; nothing where that is not to be had.
std::optional<std::size_t> peakOfMemory(bool restart) {
  if (restart && !(std::ofstream("/proc/self/clear_refs") << "5" << std::flush)) return std::nullopt;
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stoul(line.substr(6)) * 1024;
  }
  return std::nullopt;
}

TEST(DamagedImage, WithPartsOfAHundredMebibytesTakesNoSuchMemory) {
  TemporaryFolder folder;
  const std::string file = folder / "tool";
  constexpr std::uint32_t kHuge = 100u << 20;
  const auto put = [&](std::size_t at, std::uint32_t value, bool big) {
    std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
    stream.seekp(static_cast<std::streamoff>(at));
    for (int i = 0; i < 4; ++i) stream.put(static_cast<char>(value >> (big ? 24 - 8 * i : 8 * i)));
  };
  for (const std::uint32_t wanted : {0u, 2u, 5u, 0x1000u, 0x10000u}) {
    writeBytes(file, tks::signing::makeImage({}));
    signAs(file, "maker", [](SigningOptions& options) {
      options.hashTypes = {tks::codesign::HashType::sha1, tks::codesign::HashType::sha256};
      options.entitlements = "<plist version=\"1.0\"><dict/></plist>";
    });
    const std::string content = contentOf(file);
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(content.data());
    const std::size_t commands = 32 + bytes[20] + 256u * bytes[21];
    const std::size_t start = __builtin_bswap32(tks::codesign::big32(bytes + commands - 8));
    // The part moves to the end and is a hole there, but for its beginning.
    put(commands - 4, 2 * kHuge, false);
    put(start + 4, 2 * kHuge, true);
    for (std::size_t entry = start + 12; entry < start + 12 + 8 * tks::codesign::big32(bytes + start + 8); entry += 8) {
      if (tks::codesign::big32(bytes + entry) != wanted) continue;
      const std::uint32_t offset = tks::codesign::big32(bytes + entry + 4);
      const std::uint32_t length = tks::codesign::big32(bytes + start + offset + 4);
      fs::resize_file(file, start + 2 * kHuge);
      {
        std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
        stream.seekp(static_cast<std::streamoff>(start + kHuge));
        stream.write(content.data() + start + offset, length);
      }
      put(entry + 4, kHuge, true);
      put(start + kHuge + 4, kHuge, true);
    }
    const std::size_t before = residentBytes();
    const bool measured = peakOfMemory(true).has_value();
    EXPECT_NE(statusOf(file), 0) << wanted;
    informationOf(file);
    if (measured && !kSanitized) {
      EXPECT_LT(peakOfMemory(false).value(), before + (std::size_t{32} << 20)) << wanted;
    }
  }
}

TEST(DamagedImage, WithAnyByteOfItsContainerChangedHasAStatusAndNoCrash) {
  TemporaryFolder folder;
  const std::string file = folder / "tool";
  writeBytes(file, tks::signing::makeImage({}));
  signAs(file, "maker");
  const std::size_t limit = tks::signing::makeImage({}).size() / 16 * 16;
  for (std::size_t at = 0; at < 300; ++at) {
    flip(file, at, 0xff);
    EXPECT_NE(statusOf(file), 0) << at;  // all of it is hashed
    flip(file, at, 0xff);
  }
  for (std::size_t at = limit; at < limit + 200; ++at) {
    for (const std::uint8_t mask : {std::uint8_t{0x01}, std::uint8_t{0x80}, std::uint8_t{0xff}}) {
      flip(file, at, mask);
      statusOf(file);
      flip(file, at, mask);
    }
  }
  EXPECT_EQ(statusOf(file), 0);
}

TEST(DamagedImage, WithAHugeSignatureOrOneThatRefersToItselfIsRefusedAtOnce) {
  TemporaryFolder folder;
  const std::string file = folder / "tool";
  const auto signedBy = [&](std::size_t room, const tks::signing::SignImage& sign) {
    writeBytes(file, tks::signing::embedSignature(tks::signing::makeImage({}), room, sign));
    return statusOf(file);
  };
  const auto superBlob = [](std::uint32_t count, std::uint32_t length, std::uint32_t offset) {
    TKSData blob;
    tks::signing::append32(blob, 0xfade0cc0);
    tks::signing::append32(blob, length);
    tks::signing::append32(blob, count);
    tks::signing::append32(blob, 0);
    tks::signing::append32(blob, offset);
    return blob;
  };
  EXPECT_EQ(signedBy(64, [&](const TKSData&) { return superBlob(1, 20, 0); }), -67062);
  EXPECT_EQ(signedBy(64, [&](const TKSData&) { return superBlob(1, 20, 12); }), -67045);
  EXPECT_EQ(signedBy(64, [&](const TKSData&) { return superBlob(UINT32_MAX, 64, 20); }), -67045);
  EXPECT_EQ(signedBy(64, [&](const TKSData&) { return superBlob(1, UINT32_MAX, 20); }), -67045);
  EXPECT_EQ(signedBy(64, [&](const TKSData&) { return TKSData(); }), -67045);
  const std::size_t huge = std::size_t{100} << 20;
  EXPECT_NE(signedBy(huge,
                     [&](const TKSData&) {
                       return tks::signing::makeSuperBlob(
                           {{0, tks::signing::makeBlob(0xfade0c02, TKSData(1000))},
                            {0x10000, tks::signing::makeBlob(0xfade0b01, TKSData(huge - 5000))}});
                     }),
            0);
}

}  // namespace
