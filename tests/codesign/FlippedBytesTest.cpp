#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <openssl/x509.h>

#include <vector>

#include "codesign/container/byte_source.h"
#include "formats/apple_double.h"
#include "tests/codesign/Fixtures.h"

// One bit of one byte is changed, byte for byte: the check notices it, or it lies where nothing is covered. These
// places are listed here, each with its reason.

namespace {

namespace fs = std::filesystem;
using namespace tks::test;
using tks::codesign::big32;

/// A part of a file whose bytes mean nothing to a check.
struct Uncovered {
  const char* why;
  std::size_t from;
  std::size_t to;
};

bool isIn(const std::vector<Uncovered>& parts, std::size_t at) {
  return std::ranges::any_of(parts, [at](const Uncovered& part) { return part.from <= at && at < part.to; });
}

/// Offsets in a file where a changed bit goes unnoticed. Looks at every byte in `from` to `to`, at every `step`th one
/// of the rest.
std::vector<std::size_t> unnoticedIn(const std::string& file, std::int32_t (*status)(const std::string&),
                                     const std::string& code, std::size_t from = 0, std::size_t to = SIZE_MAX,
                                     std::size_t step = 1) {
  std::vector<std::size_t> unnoticed;
  const std::size_t size = fs::file_size(file);
  for (std::size_t at = 0; at < size; at += at >= from && at < to ? 1 : step) {
    const auto mask = static_cast<std::uint8_t>(1u << (at * 7 + at / 8) % 8);
    flip(file, at, mask);
    if (status(code) == 0) unnoticed.push_back(at);
    flip(file, at, mask);
  }
  return unnoticed;
}

std::int32_t plain(const std::string& path) { return statusOf(path); }

void expectOnly(const std::vector<std::size_t>& unnoticed, const std::vector<Uncovered>& parts,
                const std::string& what) {
  for (const std::size_t at : unnoticed) EXPECT_TRUE(isIn(parts, at)) << what << ": byte " << at << " is not covered";
}

/// The last place where some bytes stand in a part of a text; npos when they do not.
std::size_t lastOf(const std::string& content, const TKSData& wanted, std::size_t from, std::size_t to) {
  const std::string_view text(reinterpret_cast<const char*>(wanted.data()), wanted.size());
  const std::size_t at = content.rfind(text, to - text.size());
  return at == std::string::npos || at < from ? std::string::npos : at;
}

TKSData issuerOf(X509* certificate) {
  const unsigned char* bytes = nullptr;
  std::size_t size = 0;
  ::X509_NAME_get0_der(::X509_get_issuer_name(certificate), &bytes, &size);
  return {bytes, bytes + size};
}

/// What of a message says nothing that anybody relies on: the numbers of versions, which decoders ignore; the
/// parameters of algorithms that have none; the names by which a signer's certificate is found, in which letter case
/// and kind of text do not matter; tags of the message's optional parts, whose place says what they are; and the root
/// that a time stamp carries once more.
std::vector<Uncovered> emptyWordsOf(const std::string& file, std::size_t from, std::size_t to) {
  const std::string content = contentOf(file);
  to = std::min(to, content.size());
  std::vector<Uncovered> parts;
  for (std::size_t at = from; at + 3 < to; ++at) {
    const std::string_view here = std::string_view(content).substr(at);
    if (here.starts_with(std::string_view("\x02\x01\x01", 3)) ||
        here.starts_with(std::string_view("\x02\x01\x03", 3))) {
      parts.push_back({"version", at + 2, at + 3});
    }
    if (here.starts_with(std::string_view("\x05\x00", 2))) parts.push_back({"no parameters", at, at + 1});
    if (here.starts_with("\xa0") || here.starts_with("\xa1")) parts.push_back({"tag of an optional part", at, at + 1});
  }
  X509* const root = identity().chain.back().get();
  for (X509* certificate : {identity().leaf(), root}) {
    const TKSData name = issuerOf(certificate);
    const std::size_t at = lastOf(content, name, from, to);
    if (at != std::string::npos) parts.push_back({"name of the signer's issuer", at, at + name.size()});
  }
  const TKSData der = tks::codesign::derOf(root);
  const std::size_t copy = lastOf(content, der, from, to);
  if (copy != std::string::npos && lastOf(content, der, from, copy) != std::string::npos) {
    parts.push_back({"the root once more", copy, copy + der.size()});
  }
  return parts;
}

/// Where the signature of a thin image is, counted from the image.
struct Area {
  std::size_t start = 0;
  std::size_t length = 0;   ///< of what the signature fills
  std::size_t message = 0;  ///< where the message stands, counted from the image
  std::size_t best = 0;     ///< where the best directory stands
};

Area areaOf(const std::string& content, std::size_t image = 0) {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(content.data()) + image;
  const std::size_t commands = 32 + bytes[20] + 256u * bytes[21];
  Area area;
  area.start = __builtin_bswap32(big32(bytes + commands - 8));
  area.length = big32(bytes + area.start + 4);
  const std::uint32_t count = big32(bytes + area.start + 8);
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint8_t* entry = bytes + area.start + 12 + 8 * i;
    if (big32(entry) == 0x10000) area.message = area.start + big32(entry + 4) + 8;
    if (big32(entry) == 0 || big32(entry) == 0x1000) area.best = area.start + big32(entry + 4);
  }
  return area;
}

/// What of an embedded signature nothing covers.
std::vector<Uncovered> uncoveredOf(const std::string& file, std::size_t image, std::size_t end) {
  const Area area = areaOf(contentOf(file), image);
  std::vector<Uncovered> parts = emptyWordsOf(file, image + area.message, image + area.start + area.length);
  parts.push_back(
      {"flag that nobody signed it: who signed is asked elsewhere", image + area.best + 15, image + area.best + 16});
  parts.push_back(
      {"length of the container, which may take in padding", image + area.start + 4, image + area.start + 8});
  parts.push_back({"padding after the signature", image + area.start + area.length, end});
  return parts;
}

class FlippedBytes : public ::testing::Test {
 protected:
  TemporaryFolder folder;
};

TEST_F(FlippedBytes, OfAThinImageAreNoticed) {
  const std::string file = folder / "tool";
  tks::signing::ImagePlan plan;
  plan.size = 8192;
  plan.infoPlist = infoPlist("tool");
  writeBytes(file, tks::signing::makeImage(plan));
  signAs(file, "maker", [](tks::signing::SigningOptions& options) {
    options.hashTypes = {tks::codesign::HashType::sha1, tks::codesign::HashType::sha256};
    options.entitlements = "<plist version=\"1.0\"><dict/></plist>";
    options.requirement = "identifier tool";
    options.timeStamp = std::time(nullptr);
  });
  ASSERT_EQ(statusOf(file), 0);
  const Area area = areaOf(contentOf(file));
  const std::size_t end = area.start + area.length;
  expectOnly(unnoticedIn(file, plain, file, area.start, end + 16, 53), uncoveredOf(file, 0, SIZE_MAX), "thin");
}

TEST_F(FlippedBytes, OfAnAdHocImageAreNoticedBelowItsDirectory) {
  const std::string file = folder / "tool";
  writeBytes(file, tks::signing::makeImage({.size = 8192}));
  signAs(file, "nobody", [](tks::signing::SigningOptions& options) { options.linkerSigned = true; });
  ASSERT_EQ(statusOf(file), 0);
  const Area area = areaOf(contentOf(file));
  // Nobody signs the directory: its own flags, name and numbers can be others. The pages cannot.
  expectOnly(unnoticedIn(file, plain, file, 0, 400, 11), {{"signature", area.start, SIZE_MAX}}, "ad hoc");
}

TEST_F(FlippedBytes, OfAUniversalFileAreNoticedInEverySlice) {
  const std::string file = folder / "tool";
  writeBytes(file,
             tks::signing::makeUniversal({tks::signing::makeImage({.size = 8192}),
                                          tks::signing::makeImage({.type = 0x0100000c, .subtype = 0, .size = 8192})}));
  signAs(file);
  ASSERT_EQ(statusOf(file), 0);
  const std::string content = contentOf(file);
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(content.data());
  const std::size_t first = big32(bytes + 16);
  const std::size_t second = big32(bytes + 36);
  std::vector<Uncovered> parts = uncoveredOf(file, first, second);
  const std::vector<Uncovered> others = uncoveredOf(file, second, SIZE_MAX);
  parts.insert(parts.end(), others.begin(), others.end());
  for (const std::size_t record : {std::size_t{8}, std::size_t{28}}) {
    parts.push_back({"processor of a slice, in the table", record, record + 8});
    parts.push_back({"size of a slice, which its signature gives", record + 12, record + 16});
    parts.push_back({"alignment of a slice", record + 16, record + 20});
  }
  parts.push_back({"padding before the first slice", 48, first});
  expectOnly(unnoticedIn(file, plain, file, 0, 64, 37), parts, "universal");
}

TEST_F(FlippedBytes, OfAnApplicationAndWhatIsInsideAreNoticed) {
  const std::string app = makeApp(folder / "A.app", tks::signing::makeImage({.size = 8192}));
  const std::string framework = app + "/Contents/Frameworks/F.framework";
  const std::string version = framework + "/Versions/A";
  writeFile(version + "/Resources/Info.plist", infoPlist("F", "FMWK"));
  writeFile(version + "/Resources/words.txt", "words");
  writeBytes(version + "/F", tks::signing::makeImage({.size = 8192, .fileType = 6}));
  fs::create_symlink("A", framework + "/Versions/Current");
  fs::create_symlink("Versions/Current/F", framework + "/F");
  fs::create_symlink("Versions/Current/Resources", framework + "/Resources");
  writeFile(app + "/Contents/PkgInfo", "APPL????");
  signAs(framework);
  signAs(app);
  ASSERT_EQ(statusOf(app), 0);
  ASSERT_EQ(installStatusOf(app), 0);

  for (const char* sealed :
       {"/Contents/Info.plist", "/Contents/Resources/notes.txt", "/Contents/Resources/en.lproj/A.strings"}) {
    EXPECT_THAT(unnoticedIn(app + sealed, plain, app), ::testing::IsEmpty()) << sealed;
  }
  EXPECT_THAT(unnoticedIn(app + "/Contents/_CodeSignature/CodeResources", plain, app, 0, 400, 17),
              ::testing::IsEmpty());
  EXPECT_EQ(unnoticedIn(app + "/Contents/PkgInfo", plain, app).size(), 8u);  // left out by the seal's rules

  // Of nested code the plain check looks at the signature and its Info.plist; the check for installing at everything.
  EXPECT_THAT(unnoticedIn(version + "/Resources/Info.plist", plain, app), ::testing::IsEmpty());
  EXPECT_EQ(unnoticedIn(version + "/Resources/words.txt", plain, app).size(), 5u);
  EXPECT_THAT(unnoticedIn(version + "/Resources/words.txt", installStatusOf, app), ::testing::IsEmpty());
  EXPECT_THAT(unnoticedIn(version + "/_CodeSignature/CodeResources", installStatusOf, app, 0, 0, 97),
              ::testing::IsEmpty());
  const std::string library = version + "/F";
  expectOnly(unnoticedIn(library, installStatusOf, app, 0, 0, 191), uncoveredOf(library, 0, SIZE_MAX), "nested");
}

TEST_F(FlippedBytes, OfAnElfProgramInItsBundleAreNoticed) {
  const std::string app = makeApp(folder / "A.app", elfProgram());
  signAs(app, "maker",
         [](tks::signing::SigningOptions& options) { options.requirement = "identifier \"com.tarvo.A\""; });
  ASSERT_EQ(statusOf(app), 0);
  EXPECT_THAT(unnoticedIn(app + "/Contents/MacOS/A", plain, app, 0, 64, 29), ::testing::IsEmpty());
  const std::string parts = app + "/Contents/_CodeSignature/";
  EXPECT_THAT(unnoticedIn(parts + "CodeDirectory", plain, app), ::testing::IsEmpty());
  EXPECT_THAT(unnoticedIn(parts + "CodeRequirements", plain, app), ::testing::IsEmpty());
  const std::string message = parts + "CodeSignature";
  expectOnly(unnoticedIn(message, plain, app), emptyWordsOf(message, 0, fs::file_size(message)), "message");
}

TEST_F(FlippedBytes, OfAPlainFileAndItsSideCarAreNoticed) {
  const std::string file = folder / "list.json";
  writeFile(file, R"({"updates":[]})");
  signAs(file, "maker",
         [](tks::signing::SigningOptions& options) { options.storage = tks::signing::Storage::sideCar; });
  ASSERT_EQ(statusOf(file), 0);
  EXPECT_THAT(unnoticedIn(file, plain, file), ::testing::IsEmpty());

  const std::string sideCar = folder / "._list.json";
  const std::string content = contentOf(sideCar);
  std::vector<Uncovered> parts = emptyWordsOf(sideCar, 120, content.size());
  parts.push_back({"filler", 8, 24});
  parts.push_back({"what the Finder keeps, and padding", 50, 84});
  parts.push_back({"the empty resource fork, and the padding of the entries", 38, 50});
  parts.push_back({"debug tag", 88, 92});
  parts.push_back({"total size, which may take in more than there is", 92, 96});
  parts.push_back({"reserved", 104, 116});
  // The flags of each attribute.
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(content.data());
  const std::size_t attributes = bytes[118] * 256u + bytes[119];
  std::size_t at = 120;
  for (std::size_t i = 0; i < attributes; ++i) {
    parts.push_back({"flags of an attribute", at + 8, at + 10});
    at += (11u + bytes[at + 10] + 3) / 4 * 4;
    parts.push_back({"padding of an attribute's record", at - 3, at});
  }
  parts.push_back({"flags of the attributes", 116, 118});
  expectOnly(unnoticedIn(sideCar, plain, file), parts, "side-car");
}

}  // namespace
