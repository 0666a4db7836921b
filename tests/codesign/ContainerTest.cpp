#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "codesign/container/code_directory.h"
#include "codesign/container/status.h"
#include "tests/codesign/Fixtures.h"

// Where signatures stand: images of either byte order and width, universal files, bundles of every layout.

namespace {

namespace fs = std::filesystem;
using namespace tks::test;
using tks::signing::ImagePlan;
using tks::signing::SigningOptions;

class Containers : public ::testing::Test {
 protected:
  TemporaryFolder folder;
  std::string file = folder / "tool";
};

struct OddImage {
  const char* format;
  ImagePlan plan;
};

std::vector<OddImage> oddImages() {
  return {{"Mach-O thin (i386)", {.type = 7, .subtype = 3, .is64 = false}},
          {"Mach-O thin (ppc7400)", {.type = 18, .subtype = 10, .is64 = false, .bigEndian = true}},
          {"Mach-O thin (ppc64)", {.type = 0x01000012, .subtype = 0, .bigEndian = true}},
          {"Mach-O thin (arm64e)", {.type = 0x0100000c, .subtype = 0x80000002}},
          {"Mach-O thin (arm64_32)", {.type = 0x0200000c, .subtype = 1, .is64 = false}}};
}

TEST_F(Containers, ImagesOfEitherByteOrderAndWidthAreRead) {
  for (OddImage odd : oddImages()) {
    odd.plan.infoPlist = infoPlist("tool");
    writeBytes(file, tks::signing::makeImage(odd.plan));
    EXPECT_EQ(statusOf(file), -67062) << odd.format;
    signAs(file);
    EXPECT_EQ(statusOf(file), 0) << odd.format;
    const TKSDictionary information = informationOf(file);
    EXPECT_EQ(information["format"], TKSValue(odd.format));
    EXPECT_EQ(information["info-plist"]["CFBundleExecutable"], TKSValue("tool")) << odd.format;
    flip(file, 12);  // the file type is hashed with everything else
    EXPECT_NE(statusOf(file), 0) << odd.format;
    flip(file, 12);
    flip(file, 2100);  // inside of the Info.plist, whose hash is compared first
    EXPECT_EQ(statusOf(file), -67030) << odd.format;
    flip(file, 2100);
    flip(file, 5000);
    EXPECT_EQ(statusOf(file), -67061) << odd.format;
  }
}

TEST_F(Containers, UniversalFilesMayMixByteOrders) {
  const TKSData intel = tks::signing::makeImage({});
  writeBytes(file, tks::signing::makeUniversal({tks::signing::makeImage(oddImages()[1].plan), intel,
                                                tks::signing::makeImage(oddImages()[0].plan)}));
  signAs(file);
  EXPECT_EQ(statusOf(file), 0);
  EXPECT_EQ(informationOf(file)["format"], TKSValue("Mach-O universal (i386 ppc7400 x86_64)"));
  const std::string whole = contentOf(file);
  for (std::size_t record = 0; record < 3; ++record) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(whole.data());
    flip(file, tks::codesign::big32(bytes + 16 + 20 * record) + 6000);
    EXPECT_EQ(statusOf(file), -67061) << record;
    writeFile(file, whole);
  }
}

TEST_F(Containers, SlicesOfOneProcessorAreNamedByTheirSubtype) {
  writeBytes(file, tks::signing::makeUniversal(
                       {tks::signing::makeImage({.subtype = 8}), tks::signing::makeImage({.subtype = 3})}));
  signAs(file);
  EXPECT_EQ(statusOf(file), 0);
  EXPECT_EQ(informationOf(file)["format"], TKSValue("Mach-O universal (x86_64 x86_64h)"));
}

TEST_F(Containers, UniversalFilesWithLongOffsetsAreNoCode) {
  const TKSData image = tks::signing::makeImage({});
  TKSData long64;
  tks::signing::append32(long64, 0xcafebabf);
  tks::signing::append32(long64, 1);
  for (const std::uint32_t number : {0x01000007u, 3u, 0u, 64u, 0u, static_cast<std::uint32_t>(image.size()), 6u, 0u}) {
    tks::signing::append32(long64, number);
  }
  long64.resize(64);
  long64.insert(long64.end(), image.begin(), image.end());
  writeBytes(file, long64);
  EXPECT_EQ(statusOf(file), -67062);
  EXPECT_EQ(informationOf(file).size(), 1u);
  signAs(file);  // as a plain file
  EXPECT_EQ(statusOf(file), 0);
  EXPECT_EQ(informationOf(file)["format"], TKSValue("generic"));
}

TEST_F(Containers, ObjectFilesAreNoCode) {
  writeBytes(file, tks::signing::makeImage({.fileType = 1}));
  signAs(file);
  EXPECT_EQ(informationOf(file)["format"], TKSValue("generic"));
}

TEST_F(Containers, ASignatureAreaThatIsNoneIsInvalid) {
  writeBytes(file, tks::signing::makeImage({}));
  signAs(file);
  const std::string whole = contentOf(file);
  // The load command is the last one: dataoff and datasize end the commands.
  const std::size_t command = 32 + static_cast<unsigned char>(whole[20]) + 256 * static_cast<unsigned char>(whole[21]);
  for (const std::string_view offset : {std::string_view("\0\0\0\0", 4), std::string_view("\xff\xff\xff\x7f", 4)}) {
    std::string damaged = whole;
    damaged.replace(command - 8, 4, offset);
    writeFile(file, damaged);
    EXPECT_EQ(statusOf(file), -67045);
  }
}

TEST_F(Containers, TheLinkThatOldBundlesHaveToTheirSealIsNoTicket) {
  const std::string app = makeApp(folder / "A.app", tks::signing::makeImage({}));
  signAs(app);
  fs::create_symlink("_CodeSignature/CodeResources", app + "/Contents/CodeResources");
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_FALSE(informationOf(app).contains("stapled-ticket"));
  fs::remove(app + "/Contents/CodeResources");
  writeFile(app + "/Contents/CodeResources", "s8ch and more");
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_TRUE(informationOf(app)["stapled-ticket"].isData());
}

TEST_F(Containers, PartsInTwoPlacesAreRefusedEvenUnsealed) {
  const std::string app = makeApp(folder / "A.app", tks::signing::makeImage({}));
  signAs(app, "maker", [](SigningOptions& options) { options.withoutRequirements = true; });
  EXPECT_EQ(statusOf(app), 0);
  writeFile(app + "/Contents/_CodeSignature/CodeRequirements", "x");
  EXPECT_EQ(statusOf(app), -67061);
}

TEST_F(Containers, ShallowBundlesKeepTheirInfoPlistAtTheTop) {
  const std::string bundle = folder / "S.app";
  writeFile(bundle + "/Info.plist", infoPlist("S"));
  writeFile(bundle + "/Resources/Info.plist", infoPlist("T"));
  writeBytes(bundle + "/S", tks::signing::makeImage({.type = 0x0100000c, .subtype = 0}));
  writeFile(bundle + "/en.lproj/A.strings", "x");
  writeFile(bundle + "/PlugIns/B.appex/Info.plist", "sealed as any other file");
  signAs(bundle);
  EXPECT_EQ(statusOf(bundle), 0);
  EXPECT_EQ(informationOf(bundle)["identifier"], TKSValue("com.tarvo.S"));
  EXPECT_EQ(informationOf(bundle)["format"], TKSValue("app bundle with Mach-O thin (arm64)"));
  fs::remove(bundle + "/en.lproj/A.strings");
  EXPECT_EQ(statusOf(bundle), 0);
  append(bundle + "/PlugIns/B.appex/Info.plist", "x");
  EXPECT_EQ(statusOf(bundle), -67054);
}

TEST_F(Containers, ShallowBundlesAreFoundByTheirExecutable) {
  for (const char* place : {"/Info.plist", "/Resources/Info.plist"}) {
    const std::string bundle = folder / "S.app";
    fs::remove_all(bundle);
    writeFile(bundle + place, infoPlist("S"));
    writeBytes(bundle + "/S", tks::signing::makeImage({}));
    writeBytes(bundle + "/other", tks::signing::makeImage({}));
    signAs(bundle + "/other");
    signAs(bundle);
    EXPECT_EQ(informationOf(bundle + "/S")["format"], TKSValue("app bundle with Mach-O thin (x86_64)")) << place;
    EXPECT_EQ(informationOf(bundle + "/other")["format"], TKSValue("Mach-O thin (x86_64)")) << place;
  }
}

TEST_F(Containers, TheSliceForThisMachineSpeaksForTheFile) {
#if defined(__aarch64__)
  constexpr std::uint32_t kType = 0x0100000c, kOwn = 0, kOther = 2;
#else
  constexpr std::uint32_t kType = 0x01000007, kOwn = 3, kOther = 8;
#endif
  const auto image = [](std::uint32_t type, std::uint32_t subtype, const char* name) {
    return tks::signing::makeImage({.type = type, .subtype = subtype, .infoPlist = infoPlist(name)});
  };
  const TKSData own = image(kType, kOwn, "own");
  const TKSData other = image(kType, kOther, "other");
  const TKSData foreign = image(18, 10, "foreign");
  const std::vector<std::vector<TKSData>> files = {{other, own}, {own, other}, {foreign, other, own}};
  for (const std::vector<TKSData>& images : files) {
    writeBytes(file, tks::signing::makeUniversal(images));
    signAs(file);
    EXPECT_EQ(informationOf(file)["info-plist"]["CFBundleExecutable"], TKSValue("own"));
  }
  writeBytes(file, tks::signing::makeUniversal({foreign, other}));
  signAs(file);
  EXPECT_EQ(informationOf(file)["info-plist"]["CFBundleExecutable"], TKSValue("other"));
}

/// A number of an image in little-endian order.
std::size_t numberAt(const std::string& image, std::size_t at, std::size_t width) {
  std::size_t value = 0;
  for (std::size_t i = width; i-- > 0;) value = value << 8 | static_cast<unsigned char>(image.at(at + i));
  return value;
}

TEST_F(Containers, ImagesMayHaveManyLoadCommands) {
  // Commands of 40 bytes from the end of the others on, over code that nobody runs: the last ones stand far behind.
  constexpr std::size_t kCommand = 40, kCount = 1000;
  TKSData image = tks::signing::makeImage({.size = 100'000});
  const auto store = [&](std::size_t at, std::size_t value) {
    for (std::size_t i = 0; i < 4; ++i) image.at(at + i) = static_cast<std::uint8_t>(value >> 8 * i);
  };
  const std::string whole(image.begin(), image.end());
  const std::size_t end = 32 + numberAt(whole, 20, 4);
  std::fill_n(image.begin() + static_cast<std::ptrdiff_t>(end), kCount * kCommand + 16, 0);
  for (std::size_t i = 0; i < kCount; ++i) {
    store(end + i * kCommand, 0x26);  // where functions start
    store(end + i * kCommand + 4, kCommand);
  }
  store(16, numberAt(whole, 16, 4) + kCount);
  store(20, numberAt(whole, 20, 4) + kCount * kCommand);
  writeBytes(file, image);
  EXPECT_EQ(statusOf(file), -67062);
  signAs(file);  // with a command of its own after all others
  EXPECT_EQ(statusOf(file), 0);
  EXPECT_EQ(informationOf(file)["format"], TKSValue("Mach-O thin (x86_64)"));
  flip(file, end + 8 + 500 * kCommand);
  EXPECT_EQ(statusOf(file), -67061);
  flip(file, end + 7 + 500 * kCommand, 0x80);
  EXPECT_EQ(statusOf(file), -67049) << "a command that is longer than all of them";
}

TEST_F(Containers, SigningKeepsTheLastSegmentAtTheEndOfTheImage) {
  for (const bool is64 : {true, false}) {
    const TKSData image = tks::signing::makeImage({.is64 = is64});
    for (int time = 0; time < 2; ++time) {  // once more in place of the first
      if (time == 0) writeBytes(file, image);
      signAs(file);
      const std::string whole = contentOf(file);
      const std::size_t width = is64 ? 8 : 4;
      const std::size_t fields = (is64 ? 32 + 72 : 28 + 56) + 24;  // of the second segment
      const std::size_t size = numberAt(whole, fields + 3 * width, width);
      EXPECT_EQ(numberAt(whole, fields + 2 * width, width) + size, whole.size());
      EXPECT_EQ(numberAt(whole, fields + width, width), (size + 0x3fff) / 0x4000 * 0x4000);
      const std::size_t end = (is64 ? 32 : 28) + numberAt(whole, 20, 4);
      EXPECT_EQ(numberAt(whole, end - 8, 4), image.size()) << "the signature follows the image without a gap";
      EXPECT_EQ(numberAt(whole, end - 8, 4) + numberAt(whole, end - 4, 4), whole.size());
    }
  }
}

TEST_F(Containers, ImagesOfThousandsOfPagesHaveRoomForTheirHashes) {
  writeBytes(file, tks::signing::makeImage({.size = 8'000'000}));
  signAs(file, "nobody");
  EXPECT_EQ(statusOf(file), 0);
  EXPECT_LT(fs::file_size(file), 8'100'000u);
}

TEST_F(Containers, BundlesWithoutAnExecutableAreSignedOverTheirInfoPlist) {
  const std::string bundle = folder / "R.bundle";
  writeFile(bundle + "/Contents/Info.plist", "<plist version=\"1.0\"><dict/></plist>");
  writeFile(bundle + "/Contents/Resources/picture", "x");
  signAs(bundle);
  EXPECT_EQ(statusOf(bundle), 0);
  EXPECT_EQ(informationOf(bundle)["format"], TKSValue("bundle"));
  append(bundle + "/Contents/Info.plist", " ");
  EXPECT_EQ(statusOf(bundle), -67030);
}

TEST_F(Containers, SealsInBinaryFormAreRead) {
  const std::string app = makeApp(folder / "A.app", elfProgram());
  signAs(app);
  const std::string seal = app + "/Contents/_CodeSignature/CodeResources";
  const std::string xml = contentOf(seal);
  TKSDictionary list = tks::platform::propertyLists()
                           .parse({reinterpret_cast<const std::uint8_t*>(xml.data()), xml.size()}, nullptr)
                           .dictionary();
  list.set("other", TKSArray{"x", TKSArray{1, true}, TKSDictionary{{"a", TKSArray{}}}});
  const TKSData binary =
      tks::platform::propertyLists().serialize(list, tks::platform::PropertyLists::Format::binary, nullptr).value();
  writeBytes(seal, binary);
  EXPECT_EQ(statusOf(app), -67023);
  sealAs(app, binary);
  EXPECT_EQ(statusOf(app), 0);
  append(app + "/Contents/Resources/notes.txt", "x");
  EXPECT_EQ(statusOf(app), -67054);
}

TEST_F(Containers, SealsWithHundredsOfRulesAreRead) {
  const std::string app = makeApp(folder / "A.app", elfProgram());
  signAs(app);
  const std::string seal = app + "/Contents/_CodeSignature/CodeResources";
  std::string xml = contentOf(seal);
  std::string rules;
  for (int i = 0; i < 300; ++i) {
    rules += "<key>^Resources/a folder with a long name/file number " + std::to_string(i) +
             "\\.txt$</key><dict><key>omit</key><true/><key>weight</key><real>30</real></dict>";
  }
  xml.insert(xml.find("<dict>", xml.find("<key>rules2</key>")) + 6, rules);
  sealAs(app, xml);
  writeFile(app + "/Contents/Resources/a folder with a long name/file number 299.txt", "left out");
  EXPECT_EQ(statusOf(app), 0);
  writeFile(app + "/Contents/Resources/a folder with a long name/file number 300.txt", "not left out");
  EXPECT_EQ(statusOf(app), -67054);
}

TEST_F(Containers, SealsThatAreNoPropertyListsAreRefused) {
  const std::string app = makeApp(folder / "A.app", elfProgram());
  signAs(app);
  const std::string seal = app + "/Contents/_CodeSignature/CodeResources";
  const std::string whole = contentOf(seal);
  const auto statusWith = [&](std::string_view before, const std::string& added) {
    std::string xml = whole;
    xml.insert(xml.find(before), added);
    sealAs(app, xml);
    return statusOf(app);
  };
  EXPECT_EQ(statusWith("<plist", ""), 0);
  EXPECT_EQ(statusWith("<plist", "<!-- a comment -->"), 0);
  EXPECT_EQ(statusWith("<key>files2", "<!-- one more --><key>other</key><dict a=\"b\"></dict>"), 0);
  for (const char* broken : {"<!- no comment -->", "<!-x-->", "<!-- never ends", "</dict>", "</plist>", "</array>"}) {
    EXPECT_NE(statusWith("<plist", broken), 0) << broken;
    EXPECT_NE(statusWith("<key>files2", broken), 0) << broken;
  }
  const std::string endless(1'500'000, 'x');
  EXPECT_NE(statusWith("<key>files2", "<key>other</key><dict a=\"" + endless + "\"></dict>"), 0);
  EXPECT_NE(statusWith("<key>files2", "<key>" + endless + "</key><dict></dict>"), 0);
}

TEST_F(Containers, RulesWithoutAWeightWeighOne) {
  const std::string app = makeApp(folder / "A.app", elfProgram());
  signAs(app);
  const std::string seal = app + "/Contents/_CodeSignature/CodeResources";
  const std::string whole = contentOf(seal);
  writeFile(app + "/Contents/Extra/later.txt", "nobody sealed it");
  for (const char* weight : {"0.5", "1.5"}) {
    std::string xml = whole;
    xml.insert(xml.find("<dict>", xml.find("<key>rules2</key>")) + 6,
               std::string("<key>^Extra/later</key><true/><key>^Extra/later\\.txt$</key><dict><key>omit</key><true/>"
                           "<key>weight</key><real>") +
                   weight + "</real></dict>");
    sealAs(app, xml);
    EXPECT_EQ(statusOf(app) == 0, weight == std::string("1.5")) << weight;
  }
}

// Code directories by themselves.

std::int32_t statusOfDirectory(const TKSData& blob) {
  try {
    tks::codesign::CodeDirectory directory((tks::codesign::ByteSource(blob)));
    return 0;
  } catch (const tks::codesign::Failure& failure) {
    return failure.status;
  }
}

/// A directory of three pages, with scatter entries at its end.
TKSData scattered(const std::vector<std::uint32_t>& counts) {
  tks::signing::DirectoryPlan plan;
  plan.identifier = "scattered";
  TKSData blob = tks::signing::makeDirectory(plan, TKSData(10000));
  tks::signing::store32(blob, 44, static_cast<std::uint32_t>(blob.size()));
  for (const std::uint32_t count : counts) {
    tks::signing::append32(blob, count);
    blob.resize(blob.size() + 20);
  }
  tks::signing::store32(blob, 4, static_cast<std::uint32_t>(blob.size()));
  return blob;
}

TEST(CodeDirectories, WithScatteredPagesAreBounded) {
  EXPECT_EQ(statusOfDirectory(scattered({0})), 0);
  EXPECT_EQ(statusOfDirectory(scattered({1, 2, 0})), 0);
  EXPECT_EQ(statusOfDirectory(scattered({4, 0})), -67061);
  EXPECT_EQ(statusOfDirectory(scattered({UINT32_MAX, UINT32_MAX, 0})), -67061);
  EXPECT_EQ(statusOfDirectory(scattered({1, 2})), -67061);  // no end
  EXPECT_EQ(statusOfDirectory(scattered({})), -67061);
}

TEST(CodeDirectories, MustFitTogether) {
  tks::signing::DirectoryPlan plan;
  plan.identifier = "fits";
  plan.team = "T4RV0K0VRA";
  const TKSData good = tks::signing::makeDirectory(plan, TKSData(10000));
  ASSERT_EQ(statusOfDirectory(good), 0);
  const struct {
    const char* name;
    std::size_t at;
    std::uint32_t value;
    std::int32_t status;
  } rows[] = {{"magic", 0, 0xfade0c03, -67061},
              {"length", 4, 12345, -67061},
              {"version too old", 8, 0x20000, -67059},
              {"version too new", 8, 0x2f001, -67059},
              {"newest version", 8, 0x2f000, 0},
              {"hashes outside", 16, 1u << 30, -67061},
              {"hashes before the start", 24, 1000, -67061},
              {"identifier outside", 20, 1u << 30, -67061},
              {"more pages than code", 28, 4, -67061},
              {"no code", 32, 0, -67061},
              {"code of another size", 32, 20000, -67061},
              {"team outside", 48, 1u << 30, -67061}};
  for (const auto& row : rows) {
    TKSData damaged = good;
    tks::signing::store32(damaged, row.at, row.value);
    EXPECT_EQ(statusOfDirectory(damaged), row.status) << row.name;
  }
  for (std::size_t size = 0; size < good.size(); ++size) {
    TKSData cut(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_EQ(statusOfDirectory(cut), -67061) << size;
  }
}

}  // namespace
