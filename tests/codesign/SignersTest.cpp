#include <gtest/gtest.h>
#include <tksinterface/KVRXCodeSignUtil.h>
#include <tksinterface/TKSURL.h>
#include <tksinterface/TKSUtilBase.h>

#include <array>
#include <thread>
#include <vector>

#include "codesign/Codesign.h"
#include "codesign/container/mach_o.h"
#include "codesign/container/super_blob.h"
#include "codesign/signing/message.h"
#include "tests/codesign/Fixtures.h"

// Who signed what: one message for all directories, one signer for all architectures.

namespace {

namespace fs = std::filesystem;
using namespace tks::test;
using tks::codesign::HashType;
using tks::signing::SigningOptions;

constexpr std::int32_t kSignatureFailed = -67061;
constexpr std::int32_t kSignatureInvalid = -67045;

/// As applications were signed long ago: one directory, and a message that lists none.
void asLongAgo(SigningOptions& options) {
  options.hashTypes = {HashType::sha1};
  options.hashAgility = false;
}

/// Replaces every resource of an application, and makes a directory by nobody that says so.
TKSData forgedDirectory(const std::string& app, const TKSData& code, std::uint8_t pageSizeLog,
                        const TKSData& requirements) {
  const std::string forgery = app + ".forged";
  fs::copy(app, forgery, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  writeFile(forgery + "/Contents/Resources/notes.txt", "other notes");
  signAs(forgery, "nobody", [](SigningOptions& options) { options.hashTypes = {HashType::sha1, HashType::sha256}; });
  for (const char* path : {"/Contents/Resources/notes.txt", "/Contents/_CodeSignature/CodeResources"}) {
    fs::copy(forgery + path, app + path, fs::copy_options::overwrite_existing);
  }
  tks::signing::DirectoryPlan plan;
  plan.identifier = "com.tarvo.A";
  plan.team = "T4RV0K0VRA";
  plan.pageSizeLog = pageSizeLog;
  plan.components[1] = bytesIn(app + "/Contents/Info.plist");
  plan.components[2] = requirements;
  plan.components[3] = bytesIn(app + "/Contents/_CodeSignature/CodeResources");
  return tks::signing::makeDirectory(plan, code);
}

TEST(SeveralDirectories, OfAMessageThatNamesNoneAreRefused) {
  TemporaryFolder folder;
  const std::string app = makeApp(folder / "A.app", elfProgram());
  signAs(app, "maker", asLongAgo);
  EXPECT_EQ(statusOf(app), 0);
  const std::string parts = app + "/Contents/_CodeSignature/";
  const TKSData forged = forgedDirectory(app, elfProgram(), 0, bytesIn(parts + "CodeRequirements"));
  EXPECT_EQ(statusOf(app), -67023) << "the resources are others";
  writeBytes(parts + "CodeRequirements-1", forged);
  EXPECT_EQ(statusOf(app), kSignatureFailed);
  EXPECT_FALSE(TKSUtilBase::checkTrust(app));
  EXPECT_FALSE(KVRXCodeSignUtil::codeSignBelongToTarvo(TKSURL::fileURLWithPath(app), nullptr));
}

TEST(SeveralDirectories, InThePaddingOfAnOldSignatureAreRefused) {
  TemporaryFolder folder;
  const std::string app = makeApp(folder / "A.app", tks::signing::makeImage({}));
  signAs(app, "maker", asLongAgo);
  const std::string executable = app + "/Contents/MacOS/A";
  const auto file = tks::codesign::File::open(executable);
  const auto image = tks::codesign::MachO::open(file);
  const auto area = *image->layout(image->slices().front()).signature;
  const tks::codesign::SuperBlob super(tks::codesign::ByteSource(file).part(area.offset, area.size));
  const TKSData whole = bytesIn(executable);
  const TKSData code(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(area.offset));
  const auto part = [&](std::uint32_t slot) { return *super.component(slot)->all(1 << 20); };
  const TKSData message = part(0x10000);
  const TKSData rebuilt = tks::signing::makeSuperBlob({{0, part(0)},
                                                       {2, part(2)},
                                                       {0x1000, forgedDirectory(app, code, 12, part(2))},
                                                       {0x10000, tks::signing::makeBlob(0xfade0b01, message)}});
  ASSERT_LE(rebuilt.size(), area.size) << "there is room after the signature";
  TKSData changed = whole;
  std::copy(rebuilt.begin(), rebuilt.end(), changed.begin() + static_cast<std::ptrdiff_t>(area.offset));
  writeBytes(executable, changed);
  EXPECT_EQ(statusOf(app), kSignatureFailed);
  EXPECT_FALSE(informationOf(app).contains("certificates"));
}

TEST(SeveralDirectories, ByNobodyNeedNoList) {
  TemporaryFolder folder;
  const std::string app = makeApp(folder / "A.app", elfProgram());
  signAs(app, "nobody", [](SigningOptions& options) { options.hashTypes = {HashType::sha1, HashType::sha256}; });
  EXPECT_EQ(statusOf(app), 0);
  signAs(app, "maker", [](SigningOptions& options) {
    options.hashTypes = {HashType::sha1, HashType::sha256};
    options.hashAgility = false;
  });
  EXPECT_EQ(statusOf(app), kSignatureFailed) << "somebody signed one of them";
  signAs(app, "maker", asLongAgo);
  EXPECT_EQ(statusOf(app), 0) << "a single one needs no list either";
}

/// Images for two processors.
struct Images {
  TKSData intel = tks::signing::makeImage({});
  TKSData arm = [] {
    tks::signing::ImagePlan plan;
    plan.type = 0x0100000c;
    plan.subtype = 0;
    return tks::signing::makeImage(plan);
  }();
};

class Architectures : public ::testing::Test {
 protected:
  /// An application whose executable has one image by each of two signers.
  std::string appOf(const std::function<void(const std::string&)>& signIntel,
                    const std::function<void(const std::string&)>& signArm) {
    const Images images;
    std::vector<TKSData> both;
    for (const bool arm : {true, false}) {
      fs::remove_all(app);
      makeApp(app, arm ? images.arm : images.intel);
      (arm ? signArm : signIntel)(app);
      both.push_back(bytesIn(app + "/Contents/MacOS/A"));
    }
    writeBytes(app + "/Contents/MacOS/A", tks::signing::makeUniversal(both));
    return app;
  }

  static std::function<void(const std::string&)> by(const std::string& kind) {
    return [kind](const std::string& path) { signAs(path, kind); };
  }

  bool isMakers() const { return KVRXCodeSignUtil::codeSignBelongToTarvo(TKSURL::fileURLWithPath(app), nullptr); }

  TemporaryFolder folder;
  const std::string app = folder / "A.app";
};

TEST_F(Architectures, OfOneSignerAreTrusted) {
  appOf(by("maker"), by("maker"));
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_EQ(installStatusOf(app), 0);
  EXPECT_TRUE(TKSUtilBase::checkTrust(app));
}

TEST_F(Architectures, OfSignersThatShareTheTextOfTheTeamAloneAreRefused) {
  for (const bool swapped : {false, true}) {
    // Everybody can write the maker's team into a directory and sign it below a root of their own.
    appOf(by(swapped ? "forger" : "maker"), by(swapped ? "maker" : "forger"));
    EXPECT_EQ(statusOf(app), kSignatureInvalid);
    EXPECT_EQ(installStatusOf(app), kSignatureInvalid);
    EXPECT_FALSE(TKSUtilBase::checkTrust(app));
    EXPECT_FALSE(isMakers()) << "whichever architecture this machine has";
    EXPECT_FALSE(informationOf(app).contains("certificates"));
  }
}

TEST_F(Architectures, ThatNobodySignedAreRefusedBesideASignedOne) {
  const auto asTeam = [](SigningOptions& options) { options.withoutTeam = true; };
  const auto maker = [&](const std::string& path) { signAs(path, "maker", asTeam); };
  appOf(maker, by("nobody"));
  EXPECT_EQ(statusOf(app), kSignatureInvalid);
  appOf(by("nobody"), maker);
  EXPECT_EQ(statusOf(app), kSignatureInvalid);
  appOf(by("nobody"), by("nobody"));
  EXPECT_EQ(statusOf(app), 0);
}

TEST_F(Architectures, OfAMakerWhoRenewedTheCertificateAreTrusted) {
  const tks::signing::Identity renewed = tks::signing::renewedIdentity(identity());
  const auto byRenewed = [&](const std::string& path) {
    signAs(path, "maker", [&](SigningOptions& options) { options.identity = &renewed; });
  };
  ASSERT_NE(tks::signing::fingerprintOf(renewed.leaf()), tks::signing::fingerprintOf(identity().leaf()));
  appOf(by("maker"), byRenewed);
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_TRUE(isMakers());
}

TEST_F(Architectures, AllSealTheBundleThatIsInstalled) {
  appOf(by("maker"), [](const std::string& path) {
    writeFile(path + "/Contents/Resources/notes.txt", "notes of another version");
    signAs(path);
  });
  EXPECT_EQ(installStatusOf(app), -67023);
}

TEST_F(Architectures, OfThisMachineSealTheBundleWhereverTheyStand) {
#if defined(__aarch64__)
  const TKSData own = Images().arm;
#else
  const TKSData own = Images().intel;
#endif
  // Of a processor that stands before this machine's.
  const TKSData other = tks::signing::makeImage({.type = 7, .subtype = 3, .is64 = false});
  const auto signedSlice = [&](const TKSData& image, const std::string& notes) {
    fs::remove_all(app);
    makeApp(app, image);
    writeFile(app + "/Contents/Resources/notes.txt", notes);
    signAs(app);
    return bytesIn(app + "/Contents/MacOS/A");
  };
  const auto statusWith = [&](const TKSData& ownSlice, const TKSData& otherSlice) {
    const std::string executable = app + "/Contents/MacOS/A";
    writeBytes(executable, tks::signing::makeUniversal({otherSlice, ownSlice}));
    return statusOf(app);
  };
  const TKSData ownOfOld = signedSlice(own, "old notes");
  const TKSData otherOfOld = signedSlice(other, "old notes");
  const TKSData otherOfNew = signedSlice(other, "notes");
  const TKSData ownOfNew = signedSlice(own, "notes");  // what is there now
  EXPECT_EQ(statusWith(ownOfNew, otherOfNew), 0);
  EXPECT_EQ(statusWith(ownOfNew, otherOfOld), 0) << "this machine's seal counts";
  EXPECT_EQ(statusWith(ownOfOld, otherOfNew), -67023);
}

TEST(NestedArchitectures, OfOtherSignersAreRefused) {
  TemporaryFolder folder;
  const Images images;
  const std::string app = makeApp(folder / "A.app", images.intel);
  const std::string helper = app + "/Contents/MacOS/helper";
  std::vector<TKSData> both;
  for (const bool arm : {true, false}) {
    writeBytes(helper, arm ? images.arm : images.intel);
    signAs(helper, arm ? "forger" : "maker",
           [](SigningOptions& options) { options.requirement = "identifier \"helper\""; });
    both.push_back(bytesIn(helper));
  }
  signAs(app);
  writeBytes(helper, tks::signing::makeUniversal(both));
  EXPECT_EQ(statusOf(app), kSignatureInvalid);
  EXPECT_EQ(installStatusOf(app), kSignatureInvalid);
}

TEST(NestedArchitectures, OfNobodyAreEachSealedByItsHash) {
  TemporaryFolder folder;
  const Images images;
  const std::string app = makeApp(folder / "A.app", images.intel);
  const std::string helper = app + "/Contents/MacOS/helper";
  writeBytes(helper, tks::signing::makeUniversal({images.arm, images.intel}));
  ASSERT_TRUE(tks::codesign::sign(helper, nullptr, {}).isGood());
  ASSERT_TRUE(tks::codesign::sign(app, nullptr, {}).isGood());
  const std::optional<tks::codesign::Code> code = tks::codesign::Code::open(app);
  ASSERT_TRUE(code);
  EXPECT_EQ(code->verify(tks::codesign::Depth::plain).description(), tks::codesign::Outcome().description());
  EXPECT_EQ(code->verify(tks::codesign::Depth::strict).status, 0);
}

tks::signing::MessageOptions withDigest(const char* digest) {
  tks::signing::MessageOptions options;
  options.digest = digest;
  return options;
}

TEST(MessageDigests, ThatCanBeForgedAreRefused) {
  TemporaryFolder folder;
  tks::signing::IdentityPlan plan;
  const tks::signing::Identity maker = tks::signing::makeIdentity(plan);
  const std::string app = makeApp(folder / "A.app", elfProgram());
  const std::string parts = app + "/Contents/_CodeSignature/";
  signAs(app, "maker", [&](SigningOptions& options) { options.identity = &maker; });
  for (const char* digest : {"SHA1", "SHA256", "SHA384", "SHA512"}) {
    writeBytes(parts + "CodeSignature",
               tks::signing::signDirectories(maker, {{HashType::sha256, bytesIn(parts + "CodeDirectory")}},
                                             withDigest(digest)));
    EXPECT_EQ(statusOf(app), 0) << digest;
  }
  for (const char* digest : {"MD5", "RIPEMD160"}) {
    writeBytes(parts + "CodeSignature",
               tks::signing::signDirectories(maker, {{HashType::sha256, bytesIn(parts + "CodeDirectory")}},
                                             withDigest(digest)));
    EXPECT_EQ(statusOf(app), kSignatureFailed) << digest;
    EXPECT_FALSE(TKSUtilBase::checkTrust(app)) << digest;
  }
}

TEST(CertificateDigests, ThatCanBeForgedAreRefused) {
  TemporaryFolder folder;
  const std::string app = makeApp(folder / "A.app", elfProgram());
  for (const char* digest : {"SHA1", "MD5"}) {
    tks::signing::IdentityPlan plan;
    plan.certificateDigest = digest;
    const tks::signing::Identity maker = tks::signing::makeIdentity(plan);
    signAs(app, "maker", [&](SigningOptions& options) { options.identity = &maker; });
    EXPECT_EQ(statusOf(app), std::string_view(digest) == "MD5" ? -2147409622 : 0) << digest;
  }
}

TEST(TrustOnThreads, IsTheSameAsOnOne) {
  TemporaryFolder folder;
  const std::string good = makeApp(folder / "good/A.app", tks::signing::makeImage({}));
  const std::string program = makeApp(folder / "program/A.app", elfProgram());
  const std::string altered = makeApp(folder / "altered/A.app", elfProgram());
  const std::string foreign = makeApp(folder / "foreign/A.app", elfProgram());
  const std::string bare = makeApp(folder / "bare/A.app", elfProgram());
  signAs(good);
  signAs(program);
  signAs(altered);
  append(altered + "/Contents/Resources/notes.txt", "x");
  signAs(foreign, "other team");
  const std::vector<std::string> paths{good, program, altered, foreign, bare};
  std::vector<std::string> alone;
  const auto verdict = [](const std::string& path) {
    TKSError error;
    const bool trusted = TKSUtilBase::checkTrust(path, &error);
    const bool launches = KVRXCodeSignUtil::codeSignBelongToTarvo(TKSURL::fileURLWithPath(path), nullptr);
    return (trusted ? "trusted " : error.localizedDescription) + (launches ? " the maker's" : "");
  };
  for (const std::string& path : paths) alone.push_back(verdict(path));
  EXPECT_EQ(alone[0], "trusted  the maker's");
  EXPECT_EQ(alone[3], "Codesign verify failed, not from Tarvo.");

  constexpr std::size_t kThreads = 8;
  std::array<std::vector<std::string>, kThreads> found;
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      // Each begins with another one, and all meet on each.
      for (std::size_t j = 0; j < 2 * paths.size(); ++j) found[i].push_back(verdict(paths[(i + j) % paths.size()]));
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (std::size_t i = 0; i < kThreads; ++i) {
    for (std::size_t j = 0; j < found[i].size(); ++j) EXPECT_EQ(found[i][j], alone[(i + j) % paths.size()]);
  }
}

}  // namespace
