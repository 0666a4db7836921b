#include "platform/posix/extended_attributes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <filesystem>
#include <string>

#include "formats/apple_double.h"
#include "platform/platform.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using tks::formats::AppleDouble;
using tks::formats::parseAppleDouble;
using tks::formats::serializeAppleDouble;
using tks::platform::files;
using tks::test::writeFile;

TKSData bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

/// A side-car as another system writes it: Finder info of zeros, two attributes, empty resource fork.
TKSData foreignSideCar() {
  using namespace std::string_view_literals;
  std::string file(
      "\x00\x05\x16\x07\x00\x02\x00\x00Mac OS X        \x00\x02"
      "\x00\x00\x00\x09\x00\x00\x00\x32\x00\x00\x00\x7f"  // Finder info at 50, 127 bytes
      "\x00\x00\x00\x02\x00\x00\x00\xb1\x00\x00\x00\x00"  // resource fork at 177, empty
      ""sv);
  file.append(34, '\0');
  file += "ATTR\x00\x00\x00\x00\x00\x00\x00\xb1\x00\x00\x00\xa8\x00\x00\x00\x09"sv;  // total 177, data at 168, 9 bytes
  file.append(12, '\0');
  file += "\x00\x00\x00\x02"sv;
  file +=
      "\x00\x00\x00\xa8\x00\x00\x00\x06\x00\x00\x15"
      "com.apple.quarantine\0"sv;
  file += "\x00\x00\x00\xae\x00\x00\x00\x03\x00\x00\x05note\0"sv;
  file.resize(168, '\0');
  file += "0081;;xyz";
  return bytesOf(file);
}

class ExtendedAttributes : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(path, "x");
    if (::setxattr(path.c_str(), "user.probe", "", 0, 0) != 0) GTEST_SKIP() << "no attributes here";
    ::removexattr(path.c_str(), "user.probe");
  }
  void writeSideCar(const TKSData& content) {
    writeFile(sideCar, {reinterpret_cast<const char*>(content.data()), content.size()});
  }
  TKSDictionary attributes() { return files().attributes(path, &error)->extendedAttributes; }

  tks::test::TemporaryFolder folder;
  const std::string path = folder / "item";
  const std::string sideCar = folder / "._item";
  TKSError error;
};

TEST_F(ExtendedAttributes, AreListedWithoutTheSystemsPrefix) {
  ::setxattr(path.c_str(), "user.com.apple.quarantine", "0081", 4, 0);
  ::setxattr(path.c_str(), "user.empty", "", 0, 0);
  EXPECT_EQ(attributes(), (TKSDictionary{{"com.apple.quarantine", bytesOf("0081")}, {"empty", TKSData()}}));
  EXPECT_EQ(error, TKSError());
}

TEST_F(ExtendedAttributes, OfALinkAreNotThoseOfItsTarget) {
  ::setxattr(path.c_str(), "user.note", "abc", 3, 0);
  fs::create_symlink("item", folder / "link");
  EXPECT_EQ(files().attributes(folder / "link", &error)->extendedAttributes, TKSDictionary());
  EXPECT_EQ(files().removeExtendedAttribute(folder / "link", "note"), -1);
  EXPECT_TRUE(attributes().contains("note"));
}

TEST_F(ExtendedAttributes, AreRemovedFromTheItemItself) {
  fs::create_directory(folder / "bundle");
  writeFile(folder / "bundle/inner", "x");
  for (const char* item : {"bundle", "bundle/inner"}) {
    ::setxattr((folder / item).c_str(), "user.com.apple.quarantine", "0081", 4, 0);
  }
  EXPECT_EQ(files().removeExtendedAttribute(folder / "bundle/", "com.apple.quarantine"), 0);
  EXPECT_EQ(files().attributes(folder / "bundle", &error)->extendedAttributes, TKSDictionary());
  EXPECT_TRUE(files().attributes(folder / "bundle/inner", &error)->extendedAttributes.contains("com.apple.quarantine"));
}

TEST_F(ExtendedAttributes, ThatAreNotThereCannotBeRemoved) {
  EXPECT_EQ(files().removeExtendedAttribute(path, "missing"), -1);
  EXPECT_EQ(errno, ENODATA);
  EXPECT_EQ(files().removeExtendedAttribute(folder / "nothing", "missing"), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(ExtendedAttributes, OfASideCarAreReadAndTheItemsOwnWin) {
  writeSideCar(foreignSideCar());
  ::setxattr(path.c_str(), "user.note", "own", 3, 0);
  EXPECT_EQ(attributes(), (TKSDictionary{{"com.apple.quarantine", bytesOf("0081;;")}, {"note", bytesOf("own")}}));
  EXPECT_EQ(tks::posix::readExtendedAttribute(path, "note"), bytesOf("own"));
  EXPECT_EQ(tks::posix::readExtendedAttribute(path, "com.apple.quarantine"), bytesOf("0081;;"));
  EXPECT_EQ(tks::posix::readExtendedAttribute(path, "missing"), std::nullopt);
}

TEST_F(ExtendedAttributes, OfABrokenSideCarDoNotCount) {
  TKSData content = foreignSideCar();
  content[0] = 1;
  writeSideCar(content);
  EXPECT_EQ(attributes(), TKSDictionary());
  fs::remove(sideCar);
  fs::create_directory(sideCar);
  EXPECT_EQ(attributes(), TKSDictionary());
  EXPECT_EQ(error, TKSError());
}

TEST_F(ExtendedAttributes, AreRemovedFromItemAndSideCar) {
  writeSideCar(foreignSideCar());
  ::setxattr(path.c_str(), "user.note", "own", 3, 0);
  EXPECT_EQ(files().removeExtendedAttribute(path, "note"), 0);
  EXPECT_EQ(attributes(), (TKSDictionary{{"com.apple.quarantine", bytesOf("0081;;")}}));
  EXPECT_EQ(files().removeExtendedAttribute(path, "com.apple.quarantine"), 0);
  EXPECT_EQ(attributes(), TKSDictionary());
  EXPECT_FALSE(fs::exists(sideCar)) << "nothing is left for it to hold";
  EXPECT_EQ(files().removeExtendedAttribute(path, "com.apple.quarantine"), -1);
}

TEST_F(ExtendedAttributes, AVolumeWithoutThemHasNoneAndThatIsNoError) {
  const std::string virtualFile = "/proc/version";
  if (::listxattr(virtualFile.c_str(), nullptr, 0) > 0) GTEST_SKIP() << "it has some";
  const auto found = files().attributes(virtualFile, &error);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->extendedAttributes, TKSDictionary());
  EXPECT_EQ(error, TKSError());
  EXPECT_FALSE(tks::posix::setExtendedAttribute(virtualFile, "note", bytesOf("x"), &error));
  EXPECT_EQ(error.domain, "NSPOSIXErrorDomain");
}

TEST_F(ExtendedAttributes, ASideCarIsOneOnlyBesideItsItem) {
  writeSideCar(foreignSideCar());
  EXPECT_TRUE(tks::posix::isSideCar(sideCar));
  EXPECT_FALSE(tks::posix::isSideCar(path));
  fs::remove(path);
  EXPECT_FALSE(tks::posix::isSideCar(sideCar));
  writeFile(path, "x");
  writeFile(sideCar, "something else");
  EXPECT_FALSE(tks::posix::isSideCar(sideCar));
}

TEST(SideCarPath, StandsBesideTheItem) {
  EXPECT_EQ(tks::formats::sideCarPath("/a/b.app"), "/a/._b.app");
  EXPECT_EQ(tks::formats::sideCarPath("/a/b.app/"), "/a/._b.app");
  EXPECT_EQ(tks::formats::sideCarPath("name"), "._name");
  EXPECT_EQ(tks::formats::sideCarPath("/"), std::nullopt);
  EXPECT_EQ(tks::formats::sideCarPath("/a/.."), std::nullopt);
  EXPECT_EQ(tks::formats::sideCarPath(""), std::nullopt);
  EXPECT_EQ(tks::formats::itemOfSideCar("/a/._b.app"), "/a/b.app");
  EXPECT_EQ(tks::formats::itemOfSideCar("._name"), "name");
  for (const char* other : {"/a/b.app", "/a/._", "/a/._..", "/"}) {
    EXPECT_EQ(tks::formats::itemOfSideCar(other), std::nullopt) << other;
  }
  EXPECT_EQ(tks::formats::itemOfSideCar("/._a/b"), std::nullopt);
}

TEST(AppleDoubleFile, OfAnotherSystemIsRead) {
  const std::optional<AppleDouble> sideCar = parseAppleDouble(foreignSideCar());
  ASSERT_TRUE(sideCar);
  EXPECT_EQ(sideCar->attributes,
            (TKSDictionary{{"com.apple.quarantine", bytesOf("0081;;")}, {"note", bytesOf("xyz")}}));
}

TEST(AppleDoubleFile, HoldsFinderInfoAndResourceForkToo) {
  AppleDouble sideCar;
  sideCar.attributes.set("com.apple.FinderInfo", bytesOf("TEXTttxt........................"));
  sideCar.attributes.set("com.apple.ResourceFork", bytesOf("fork"));
  sideCar.attributes.set("note", bytesOf(std::string(70000, 'n')));
  sideCar.attributes.set("empty", TKSData());
  const std::optional<TKSData> written = serializeAppleDouble(sideCar);
  ASSERT_TRUE(written);
  const std::optional<AppleDouble> read = parseAppleDouble(*written);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->attributes, sideCar.attributes);
}

TEST(AppleDoubleFile, IsWrittenAsItWasRead) {
  const std::optional<AppleDouble> sideCar = parseAppleDouble(foreignSideCar());
  ASSERT_TRUE(sideCar);
  EXPECT_EQ(serializeAppleDouble(*sideCar), foreignSideCar());
}

TEST(AppleDoubleFile, ThatIsCutAnywhereIsNone) {
  const TKSData whole = foreignSideCar();
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_FALSE(parseAppleDouble(std::span(whole).first(size))) << size;
  }
}

TEST(AppleDoubleFile, WithAnyByteChangedIsReadSafely) {
  for (std::size_t i = 0; i < foreignSideCar().size(); ++i) {
    for (const int value : {0x00, 0x01, 0x7f, 0x80, 0xff}) {
      TKSData changed = foreignSideCar();
      changed[i] = static_cast<std::uint8_t>(value);
      parseAppleDouble(changed);  // any answer will do: the sanitizers watch
    }
  }
}

TEST(AppleDoubleFile, WithAWrongSumOfLengthsIsNone) {
  TKSData changed = foreignSideCar();
  changed[127] = 5;  // length of the first attribute
  EXPECT_FALSE(parseAppleDouble(changed));
}

TEST(AppleDoubleFile, DoesNotTakeWhatTheFormatCannotHold) {
  AppleDouble sideCar;
  sideCar.attributes.set(std::string(128, 'n'), bytesOf("x"));
  EXPECT_FALSE(serializeAppleDouble(sideCar));
  sideCar.attributes = {{"com.apple.FinderInfo", bytesOf("short")}};
  EXPECT_FALSE(serializeAppleDouble(sideCar));
}

}  // namespace
