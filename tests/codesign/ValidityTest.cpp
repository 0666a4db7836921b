#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <tksinterface/TKSUtilBase.h>

#include "tests/codesign/Fixtures.h"

namespace {

namespace fs = std::filesystem;
using namespace tks::test;
using tks::codesign::HashType;
using tks::signing::SigningOptions;
using tks::signing::Storage;

/// One situation: how it comes about, and the status that the platform gives.
struct Situation {
  const char* name;
  std::int32_t status;
  std::function<void(const std::string& app)> damage;
};

std::string executable(const std::string& app) { return app + "/Contents/MacOS/A"; }
std::string seal(const std::string& app) { return app + "/Contents/_CodeSignature/CodeResources"; }

TKSData imageOf(std::uint32_t fileType) {
  tks::signing::ImagePlan plan;
  plan.fileType = fileType;
  return tks::signing::makeImage(plan);
}

void replaceIn(const std::string& path, std::string_view from, std::string_view to) {
  std::string content = contentOf(path);
  for (std::size_t at = content.find(from); at != std::string::npos; at = content.find(from, at + to.size())) {
    content.replace(at, from.size(), to);
  }
  writeFile(path, content);
}

const Situation kOfAnIntactApp[] = {
    {"intact", 0, [](const std::string&) {}},
    {"resource changed", -67054, [](const std::string& app) { writeFile(app + "/Contents/Resources/notes.txt", "x"); }},
    {"resource added", -67054, [](const std::string& app) { writeFile(app + "/Contents/Resources/new", "x"); }},
    {"resource removed", -67054, [](const std::string& app) { fs::remove(app + "/Contents/Resources/notes.txt"); }},
    {"optional resource removed", 0,
     [](const std::string& app) { fs::remove(app + "/Contents/Resources/en.lproj/A.strings"); }},
    {"optional resource changed", -67054,
     [](const std::string& app) { append(app + "/Contents/Resources/en.lproj/A.strings", "x"); }},
    {"link changed", -67054,
     [](const std::string& app) {
       fs::remove(app + "/Contents/Resources/link");
       fs::create_symlink("other", app + "/Contents/Resources/link");
     }},
    {"file becomes link", -67054,
     [](const std::string& app) {
       fs::rename(app + "/Contents/Resources/notes.txt", app + "/notes.txt");
       fs::create_symlink("../../notes.txt", app + "/Contents/Resources/notes.txt");
     }},
    {"link becomes file", -67054,
     [](const std::string& app) {
       fs::remove(app + "/Contents/Resources/link");
       writeFile(app + "/Contents/Resources/link", "notes");
     }},
    {"file left out by the rules added", 0,
     [](const std::string& app) { writeFile(app + "/Contents/Resources/.DS_Store", "x"); }},
    {".DS_Store as link", -67012,
     [](const std::string& app) { fs::create_symlink("x", app + "/Contents/Resources/.DS_Store"); }},
    {"stray side-car", -67054, [](const std::string& app) { writeFile(app + "/Contents/Resources/._notes.txt", "x"); }},
    {"stray file in the root", 0, [](const std::string& app) { writeFile(app + "/stray", "x"); }},
    {"ticket added", 0, [](const std::string& app) { writeFile(app + "/Contents/CodeResources", "s8ch"); }},
    {"receipt added", 0, [](const std::string& app) { writeFile(app + "/Contents/_MASReceipt/receipt", "x"); }},
    {"Info.plist changed", -67030, [](const std::string& app) { append(app + "/Contents/Info.plist", " "); }},
    {"CodeResources changed", -67023, [](const std::string& app) { append(seal(app), " "); }},
    {"CodeResources removed", -67023, [](const std::string& app) { fs::remove(seal(app)); }},
    {"executable removed", -67062, [](const std::string& app) { fs::remove(executable(app)); }},
};

class AnApp : public ::testing::Test {
 protected:
  /// The status of a copy of `master` that was brought into the situation.
  void expectIn(const Situation& situation, const std::string& master) {
    const std::string app = folder / "A.app";
    fs::remove_all(app);
    fs::copy(master, app, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    situation.damage(app);
    std::string details;
    EXPECT_EQ(statusOf(app, &details), situation.status) << situation.name << ": " << details;
  }

  TemporaryFolder folder;
};

TEST_F(AnApp, InEachSituationHasThePlatformsStatus) {
  const std::string master = makeApp(folder / "master/A.app", tks::signing::makeImage({}));
  signAs(master);
  for (const Situation& situation : kOfAnIntactApp) expectIn(situation, master);
}

TEST_F(AnApp, WithAnotherKindOfExecutableHasThePlatformsStatusAsWell) {
  const std::string master = makeApp(folder / "master/A.app", elfProgram());
  signAs(master);
  const std::string parts = "/Contents/_CodeSignature/";
  const Situation situations[] = {
      {"intact", 0, [](const std::string&) {}},
      {"executable changed", -67061, [](const std::string& app) { flip(executable(app), 4000); }},
      {"executable cut", -67061, [](const std::string& app) { fs::resize_file(executable(app), 4999); }},
      {"bytes behind the executable", 0, [](const std::string& app) { append(executable(app), "x"); }},
      {"no signature", -67062, [&](const std::string& app) { fs::remove_all(app + parts); }},
      {"message missing", -67062, [&](const std::string& app) { fs::remove(app + parts + "CodeSignature"); }},
      {"message empty", -25257, [&](const std::string& app) { writeFile(app + parts + "CodeSignature", ""); }},
      {"message is none", -25257,
       [&](const std::string& app) { writeFile(app + parts + "CodeSignature", "nonsense"); }},
      {"directory changed", -67061, [&](const std::string& app) { flip(app + parts + "CodeDirectory", 40); }},
      {"directory's magic changed", -67061, [&](const std::string& app) { flip(app + parts + "CodeDirectory", 0); }},
      {"directory's version too new", -67059,
       [&](const std::string& app) { flip(app + parts + "CodeDirectory", 9, 0x10); }},
      {"directory of an unknown hash", -67000,
       [&](const std::string& app) { flip(app + parts + "CodeDirectory", 37, 7); }},
      {"requirements changed", -67061, [&](const std::string& app) { flip(app + parts + "CodeRequirements", 11); }},
      {"requirements removed", -67061, [&](const std::string& app) { fs::remove(app + parts + "CodeRequirements"); }},
      {"entitlements that nobody sealed", 0,
       [&](const std::string& app) { writeFile(app + parts + "CodeEntitlements", "x"); }},
  };
  for (const Situation& situation : situations) expectIn(situation, master);
}

TEST_F(AnApp, IsJudgedByItsSigner) {
  const struct {
    const char* kind;
    std::int32_t status;
  } rows[] = {{"maker", 0},
              {"other team", 0},
              {"two levels", 0},
              {"four levels", 0},
              {"other usage", -2147408889},
              {"no signing", -2147408890},
              {"expired", 0},
              {"unknown extension", -2147408895},
              {"nobody", 0}};
  for (const auto& row : rows) {
    const std::string app = makeApp(folder / row.kind + "/A.app", tks::signing::makeImage({}));
    signAs(app, row.kind);
    EXPECT_EQ(statusOf(app), row.status) << row.kind;
  }
}

TEST_F(AnApp, TimeStampsDecideAboutExpiry) {
  const std::string app = makeApp(folder / "A.app", elfProgram());
  const auto signedAt = [&](std::time_t stamp, std::uint32_t flags) {
    signAs(app, "expired", [&](SigningOptions& options) {
      if (stamp != 0) options.timeStamp = stamp;
      options.flags = flags;
    });
    return statusOf(app);
  };
  // The authority of these tests is valid from yesterday on.
  const std::time_t now = std::time(nullptr);
  EXPECT_EQ(signedAt(now, 0), -2147409654);
  EXPECT_EQ(signedAt(0, 0), 0);
  EXPECT_EQ(signedAt(0, 0x400), -2147409654);
  signAs(app, "maker", [&](SigningOptions& options) { options.timeStamp = now; });
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_TRUE(informationOf(app)["signing-timestamp"].isDate());
  signAs(app, "maker", [&](SigningOptions& options) { options.timeStamp = 1500000000; });
  EXPECT_EQ(statusOf(app), -67061);  // before the authority's certificate begins
}

TEST_F(AnApp, OfAnotherTeamThanItsCertificateIsRefusedUnderThePlatformsRoot) {
  const std::string app = makeApp(folder / "A.app", elfProgram());
  const auto signatures = tks::codesign::makeSignatures(rootsOf(identity()));
  signAs(app, "maker", [](SigningOptions& options) { options.team = "OTHERTEAM1"; });
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_EQ(statusOf(app, nullptr, *signatures), -66997);
  signAs(app);
  EXPECT_EQ(statusOf(app, nullptr, *signatures), 0);
}

TEST_F(AnApp, HoldsInEveryFormOfDirectories) {
  const std::vector<HashType> lists[] = {
      {HashType::sha1}, {HashType::sha256Truncated}, {HashType::sha384}, {HashType::sha1, HashType::sha256}};
  for (const auto& types : lists) {
    for (const std::uint32_t version : {0x20001u, 0x20100u, 0x20200u, 0x20300u, 0x20400u, 0x20500u}) {
      const std::string app = folder / "A.app";
      fs::remove_all(app);
      makeApp(app, tks::signing::makeImage({}));
      signAs(app, "maker", [&](SigningOptions& options) {
        options.hashTypes = types;
        options.version = version;
        options.pageSizeLog = version == 0x20300 ? 14 : version == 0x20100 ? 0 : 12;
        options.topDirectory = true;
        options.entitlements = "<plist version=\"1.0\"><dict/></plist>";
      });
      EXPECT_EQ(statusOf(app), 0) << version;
      flip(executable(app), 5000);
      EXPECT_EQ(statusOf(app), -67061) << version;
    }
  }
}

TEST_F(AnApp, WithASealOfTheFirstVersionIgnoresLinks) {
  const std::string app = makeApp(folder / "A.app", tks::signing::makeImage({}));
  signAs(app, "maker", [](SigningOptions& options) {
    options.firstVersionSeal = true;
    options.hashTypes = {HashType::sha1};  // the only one that such a seal can hold
  });
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_EQ(installStatusOf(app), 0);
  fs::create_symlink("x", app + "/Contents/Resources/another");
  EXPECT_EQ(statusOf(app), 0);
  writeFile(app + "/Contents/Resources/new", "x");
  EXPECT_EQ(statusOf(app), -67054);
}

TEST_F(AnApp, WithASealOfTheFirstVersionIsInstalledWhenNothingElseIsInIt) {
  const auto old = [](SigningOptions& options) {
    options.firstVersionSeal = true;
    options.hashTypes = {HashType::sha1};
  };
  const std::string app = makeApp(folder / "A.app", tks::signing::makeImage({}));
  const std::string framework = app + "/Contents/Frameworks/F.framework";
  const std::string version = framework + "/Versions/A";
  writeFile(version + "/Resources/Info.plist", infoPlist("F", "FMWK"));
  writeBytes(version + "/F", imageOf(6));
  fs::create_symlink("A", framework + "/Versions/Current");
  const std::string helper = app + "/Contents/MacOS/helper";
  writeBytes(helper, tks::signing::makeImage({}));
  writeFile(app + "/Contents/PkgInfo", "APPL????");
  signAs(framework, "maker", old);
  signAs(helper, "maker", old);
  signAs(app, "maker", old);
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_EQ(installStatusOf(app), 0);

  // The seal does not cover code: it counts by its own signature, which has to be the same maker's.
  signAs(helper, "other team", old);
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_EQ(installStatusOf(app), -67021);
  signAs(helper, "nobody", old);
  EXPECT_EQ(installStatusOf(app), -67021);
  writeFile(helper, "#!/bin/sh\n");
  EXPECT_EQ(installStatusOf(app), -67062);
  fs::remove(helper);
  EXPECT_EQ(installStatusOf(app), 0);
  flip(version + "/F", 5000);
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_EQ(installStatusOf(app), -67061);
  flip(version + "/F", 5000);

  // Anything else that nobody covers is refused, and so are links that leave the bundle.
  writeFile(app + "/Contents/Extras/words.txt", "x");
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_EQ(installStatusOf(app), -67054);
  fs::remove_all(app + "/Contents/Extras");
  fs::create_symlink("../../../outside", app + "/Contents/Resources/another");
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_EQ(installStatusOf(app), -67003);
}

TEST_F(AnApp, WithRulesThatLeaveOutFilesIsInstalledWithoutThem) {
  const std::string app = makeApp(folder / "A.app", elfProgram());
  signAs(app);
  replaceIn(seal(app), "<key>^.*</key>",
            "<key>^Resources/cache/</key><dict><key>omit</key><true/><key>weight</key><real>50</real></dict>"
            "<key>^.*</key>");
  const std::string content = contentOf(seal(app));
  tks::signing::DirectoryPlan plan;
  plan.identifier = "a";
  plan.flags = 2;
  plan.pageSizeLog = 0;
  const std::string info = contentOf(app + "/Contents/Info.plist");
  plan.components[1] = TKSData(info.begin(), info.end());
  plan.components[3] = TKSData(content.begin(), content.end());
  writeBytes(app + "/Contents/_CodeSignature/CodeDirectory", tks::signing::makeDirectory(plan, elfProgram()));
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_EQ(installStatusOf(app), 0);
  writeFile(app + "/Contents/Resources/cache/index", "x");
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_EQ(installStatusOf(app), -67054);
}

TEST_F(AnApp, WithoutSealedResourcesHasNone) {
  const std::string app = makeApp(folder / "A.app", tks::signing::makeImage({}));
  signAs(app, "nobody", [](SigningOptions& options) { options.linkerSigned = true; });
  EXPECT_EQ(statusOf(app), -67056);
  EXPECT_EQ(statusOf(folder / "none.app"), -67068);
  fs::create_directory(folder / "empty.app");
  EXPECT_EQ(statusOf(folder / "empty.app"), -67028);
}

TEST_F(AnApp, SealedWithOddRulesIsRefused) {
  const auto resealed = [&](std::string_view from, std::string_view to) {
    const std::string app = folder / "A.app";
    fs::remove_all(app);
    makeApp(app, elfProgram());
    signAs(app);
    replaceIn(seal(app), from, to);
    // Signed again over the odd seal, by its parts.
    const TKSData odd = [&] {
      const std::string content = contentOf(seal(app));
      return TKSData(content.begin(), content.end());
    }();
    tks::signing::DirectoryPlan plan;
    plan.identifier = "a";
    plan.flags = 2;
    plan.pageSizeLog = 0;
    plan.components[3] = odd;
    writeBytes(app + "/Contents/_CodeSignature/CodeDirectory", tks::signing::makeDirectory(plan, elfProgram()));
    return statusOf(app);
  };
  EXPECT_EQ(resealed("no such text", ""), 0);
  EXPECT_EQ(resealed("^.*<", "^(.*<"), -67053);
  EXPECT_EQ(resealed("<key>rules2</key>", "<key>rules3</key>"), -67055);
  EXPECT_EQ(resealed("<key>rules</key>", "<key>rules3</key>"), -67056);
  EXPECT_EQ(resealed("<key>hash2</key>", "<key>hash9</key>"), -67054);  // only the SHA-1 is left, which cannot match
  EXPECT_EQ(resealed("</plist>", ""), 0);
  EXPECT_EQ(resealed("<dict>", "<dict"), -67058);
}

TEST_F(AnApp, ChecksTheSignatureOfNestedCodeAndNotItsPages) {
  const std::string app = makeApp(folder / "A.app", tks::signing::makeImage({}));
  const std::string inner = makeApp(app + "/Contents/PlugIns/B.bundle", tks::signing::makeImage({}));
  const std::string helper = app + "/Contents/MacOS/helper";
  writeBytes(helper, tks::signing::makeImage({}));
  signAs(inner);
  signAs(helper);
  signAs(app);
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_EQ(installStatusOf(app), 0);

  flip(inner + "/Contents/MacOS/B", 5000);
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_EQ(installStatusOf(app), -67061);
  flip(inner + "/Contents/MacOS/B", 5000);
  writeFile(inner + "/Contents/Resources/new", "x");
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_EQ(installStatusOf(app), -67054);
  fs::remove(inner + "/Contents/Resources/new");

  append(inner + "/Contents/Info.plist", " ");
  std::string details;
  EXPECT_EQ(statusOf(app, &details), -67030);
  EXPECT_NE(details.find("B.bundle"), std::string::npos);

  writeFile(inner + "/Contents/Info.plist", infoPlist("B"));
  writeBytes(helper, tks::signing::makeImage({}));
  EXPECT_EQ(statusOf(app), -67062);
  signAs(helper, "other team", [](SigningOptions& options) { options.identifier = "somebody.else"; });
  EXPECT_EQ(statusOf(app), -67021);
}

TEST_F(AnApp, AboutToBeInstalledHasNothingBesideItsSeal) {
  const std::string app = makeApp(folder / "A.app", tks::signing::makeImage({}));
  signAs(app);
  EXPECT_EQ(installStatusOf(app), 0);
  writeFile(app + "/stray", "x");
  EXPECT_EQ(installStatusOf(app), -67014);
  fs::remove(app + "/stray");
  append(executable(app), "x");
  EXPECT_EQ(installStatusOf(app), -67045);
}

TEST_F(AnApp, WithALinkThatLeavesItIsNotInstalled) {
  for (const char* target : {"/etc/passwd", "../../../../outside"}) {
    const std::string app = folder / "A.app";
    fs::remove_all(app);
    makeApp(app, tks::signing::makeImage({}));
    fs::create_symlink(target, app + "/Contents/Resources/out");
    signAs(app);
    EXPECT_EQ(statusOf(app), 0);
    EXPECT_EQ(installStatusOf(app), -67003);
  }
}

TEST_F(AnApp, FoundByItsExecutableIsTheApp) {
  const std::string app = makeApp(folder / "A.app", tks::signing::makeImage({}));
  signAs(app);
  EXPECT_EQ(statusOf(executable(app)), 0);
  EXPECT_EQ(informationOf(executable(app))["format"], TKSValue("app bundle with Mach-O thin (x86_64)"));
  fs::copy(executable(app), folder / "A");
  EXPECT_EQ(statusOf(folder / "A"), -67030);
}

TEST_F(AnApp, WithPartsInTwoPlacesIsRefused) {
  const std::string app = makeApp(folder / "A.app", tks::signing::makeImage({}));
  signAs(app, "nobody", [](SigningOptions& options) { options.linkerSigned = true; });
  writeFile(app + "/Contents/_CodeSignature/CodeEntitlements", "x");
  writeFile(app + "/Contents/_CodeSignature/CodeSignature", "x");
  EXPECT_NE(statusOf(app), 0);
}

TEST(OtherCode, FrameworksAreCheckedInTheirCurrentVersion) {
  TemporaryFolder folder;
  const std::string framework = folder / "F.framework";
  const std::string version = framework + "/Versions/A";
  writeFile(version + "/Resources/Info.plist", infoPlist("F", "FMWK"));
  writeBytes(version + "/F", imageOf(6));
  fs::create_symlink("A", framework + "/Versions/Current");
  fs::create_symlink("Versions/Current/F", framework + "/F");
  fs::create_symlink("Versions/Current/Resources", framework + "/Resources");
  signAs(framework);
  EXPECT_EQ(statusOf(framework), 0);
  EXPECT_EQ(statusOf(version), 0);
  EXPECT_EQ(installStatusOf(framework), 0);
  EXPECT_EQ(informationOf(framework)["format"], TKSValue("bundle with Mach-O thin (x86_64)"));
  writeFile(framework + "/stray", "x");
  EXPECT_EQ(installStatusOf(framework), -67008);
  flip(version + "/F", 5000);
  EXPECT_EQ(statusOf(framework), -67061);
}

TEST(OtherCode, ShallowBundlesHaveEverythingInTheirFolder) {
  TemporaryFolder folder;
  const std::string bundle = folder / "S.bundle";
  writeFile(bundle + "/Info.plist", infoPlist("S", "BNDL"));
  writeBytes(bundle + "/S", imageOf(8));
  writeFile(bundle + "/picture.png", "x");
  signAs(bundle);
  EXPECT_EQ(statusOf(bundle), 0);
  writeFile(bundle + "/picture.png", "y");
  EXPECT_EQ(statusOf(bundle), -67054);
}

TEST(OtherCode, UniversalFilesAreCheckedInEverySlice) {
  TemporaryFolder folder;
  const std::string file = folder / "tool";
  const TKSData intel = tks::signing::makeImage({});
  tks::signing::ImagePlan forArm;
  forArm.type = 0x0100000c;
  forArm.subtype = 0;
  const TKSData arm = tks::signing::makeImage(forArm);
  writeBytes(file, tks::signing::makeUniversal({arm, intel}));
  signAs(file);
  EXPECT_EQ(statusOf(file), 0);
  EXPECT_EQ(informationOf(file)["format"], TKSValue("Mach-O universal (x86_64 arm64)"));
  const std::string whole = contentOf(file);
  for (std::uint32_t record : {0u, 1u}) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(whole.data());
    flip(file, tks::codesign::big32(bytes + 16 + 20 * record) + 5000);
    EXPECT_EQ(statusOf(file), -67061);
    writeFile(file, whole);
  }
  // One slice signed by another team, one not at all.
  const auto signedAlone = [&](const TKSData& image, const std::string& kind) {
    writeBytes(folder / "alone", image);
    signAs(folder / "alone", kind);
    const std::string content = contentOf(folder / "alone");
    return TKSData(content.begin(), content.end());
  };
  writeBytes(file, tks::signing::makeUniversal({signedAlone(arm, "other team"), signedAlone(intel, "maker")}));
  EXPECT_EQ(statusOf(file), -67045);
  writeBytes(file, tks::signing::makeUniversal({arm, signedAlone(intel, "maker")}));
  EXPECT_EQ(statusOf(file), -67062);
  // A slice hidden behind the last record is a slice.
  std::string hiding = contentOf(file);
  hiding[7] = 1;
  std::swap_ranges(hiding.begin() + 8, hiding.begin() + 28, hiding.begin() + 28);
  writeFile(file, hiding);
  EXPECT_EQ(statusOf(file), -67062);
}

TEST(OtherCode, PlainFilesCarryTheirSignatureInAttributesOrASideCar) {
  TemporaryFolder folder;
  for (const Storage storage : {Storage::sideCar, Storage::automatic}) {
    const std::string file = folder / "data.json";
    fs::remove(folder / "._data.json");
    fs::remove(file);
    writeFile(file, "{}");
    EXPECT_EQ(statusOf(file), -67062);
    signAs(file, "maker", [&](SigningOptions& options) { options.storage = storage; });
    EXPECT_EQ(statusOf(file), 0);
    EXPECT_EQ(informationOf(file)["format"], TKSValue("generic"));
    EXPECT_TRUE(TKSUtilBase::checkTrust(file));
    writeFile(file, "[]");
    EXPECT_EQ(statusOf(file), -67061);
  }
}

TEST(OtherCode, MalformedContainersHaveAStatusOfTheirOwn) {
  TemporaryFolder folder;
  const std::string file = folder / "tool";
  TKSData image = tks::signing::makeImage({});
  image[20] = 0xff;
  image[21] = 0xff;
  writeBytes(file, image);
  EXPECT_EQ(statusOf(file), -67049);
  writeBytes(file, tks::signing::makeUniversal({tks::signing::makeImage({}), tks::signing::makeImage({})}));
  std::string twice = contentOf(file);
  std::copy_n(twice.begin() + 16, 4, twice.begin() + 36);
  writeFile(file, twice);
  EXPECT_EQ(statusOf(file), -67049);
  writeFile(file, std::string("\xca\xfe\xba\xbe\0\0\0\x34", 8) + std::string(200, '\0'));  // a Java class
  EXPECT_EQ(statusOf(file), -67062);
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
  EXPECT_NE(statusOf(folder / "fifo"), 0);
}

TEST(Information, OfSignedCodeSaysWhoSignedWhat) {
  TemporaryFolder folder;
  const std::string app = makeApp(folder / "A.app", tks::signing::makeImage({}));
  TKSDictionary information = informationOf(app);
  EXPECT_EQ(information.size(), 1u);
  EXPECT_TRUE(information.contains("main-executable"));

  signAs(app, "maker", [](SigningOptions& options) {
    options.hashTypes = {HashType::sha1, HashType::sha256};
    options.requirement = "identifier \"com.tarvo.A\" and certificate leaf[subject.OU] = T4RV0K0VRA";
    options.entitlements = "<plist version=\"1.0\"><dict><key>a</key><true/></dict></plist>";
    options.version = 0x20500;
    options.runtimeVersion = 0xa0e00;
  });
  information = informationOf(app);
  EXPECT_EQ(information["identifier"], TKSValue("com.tarvo.A"));
  EXPECT_EQ(information["teamid"], TKSValue("T4RV0K0VRA"));
  EXPECT_EQ(information["certificates"].array().size(), 3u);
  EXPECT_EQ(information["digest-algorithm"], TKSValue(2));
  EXPECT_EQ(information["digest-algorithms"].array().size(), 2u);
  EXPECT_EQ(information["cdhashes"][1], information["unique"]);
  EXPECT_EQ(information["unique"].data().size(), 20u);
  EXPECT_EQ(information["cdhashes-full"]["2"].data().size(), 32u);
  EXPECT_EQ(information["runtime-version"], TKSValue(0xa0e00));
  EXPECT_EQ(information["entitlements-dict"]["a"], TKSValue(true));
  EXPECT_EQ(information["info-plist"]["CFBundleExecutable"], TKSValue("A"));
  EXPECT_EQ(information["designated-requirement"],
            TKSValue("identifier \"com.tarvo.A\" and certificate leaf[subject.OU] = T4RV0K0VRA"));
  EXPECT_TRUE(information["signing-time"].isDate());
  EXPECT_FALSE(information.contains("signing-timestamp"));
  EXPECT_EQ(statusOf(app), 0);

  append(app + "/Contents/Info.plist", " ");
  EXPECT_FALSE(informationOf(app).contains("info-plist"));
  signAs(app, "nobody");
  information = informationOf(app);
  EXPECT_TRUE(information.contains("cms"));
  EXPECT_FALSE(information.contains("certificates"));
  EXPECT_FALSE(information.contains("teamid"));
}

TEST(Information, OfABrokenSignatureKeepsWhatIsInOrder) {
  TemporaryFolder folder;
  const std::string app = makeApp(folder / "A.app", elfProgram());
  signAs(app);
  const std::string message = app + "/Contents/_CodeSignature/CodeSignature";
  flip(message, fs::file_size(message) - 1);
  const TKSDictionary information = informationOf(app);
  EXPECT_EQ(information["teamid"], TKSValue("T4RV0K0VRA"));
  EXPECT_TRUE(information.contains("cms"));
  EXPECT_FALSE(information.contains("certificates"));
  EXPECT_FALSE(information.contains("info-plist"));
}

TEST(TrustedLaunchers, AreRefusedWithTheDescribedTextWhenTheyAreNotTheMakers) {
  TemporaryFolder folder;
  const auto verdict = [&](const std::string& kind) {
    const std::string app = folder / "A.app";
    fs::remove_all(app);
    makeApp(app, elfProgram());
    if (kind != "unsigned") signAs(app, kind);
    TKSError error;
    return TKSUtilBase::checkTrust(app, &error) ? "trusted" : error.localizedDescription;
  };
  EXPECT_EQ(verdict("maker"), "trusted");
  EXPECT_EQ(verdict("other team"), "Codesign verify failed, not from Tarvo.");
  EXPECT_EQ(
      verdict("two levels"),
      "Codesign verify failed, wrong certificate structure.. Certificate common name: Developer ID Application: Tarvo "
      "(T4RV0K0VRA). Certificate common name: Apple Root CA");
  EXPECT_THAT(verdict("four levels"), ::testing::StartsWith("Codesign verify failed, wrong certificate structure.."));
  EXPECT_EQ(
      verdict("other leaf name"),
      "Codesign verify failed, topLevel name: Apple Root CA, secondLevel name: Developer ID Certification Authority, "
      "thirdLevel name: Developer ID Application: Tarvo (OTHERTEAM1).");
  EXPECT_THAT(verdict("unsigned"), ::testing::StartsWith("Code object is not signed at all. Internal error details: "));
}

TEST(TrustedLaunchers, AreRefusedWithTheDescribedTextWhenTheyWereAltered) {
  TemporaryFolder folder;
  const auto verdictAfter = [&](const std::function<void(const std::string& app)>& alter) {
    const std::string app = folder / "A.app";
    fs::remove_all(app);
    makeApp(app, elfProgram());
    signAs(app);
    alter(app);
    TKSError error;
    EXPECT_FALSE(TKSUtilBase::checkTrust(app, &error));
    EXPECT_EQ(error.domain, "com.tarvo.kovra.codesign");
    EXPECT_EQ(error.code, 0);
    return error.localizedDescription;
  };
  EXPECT_THAT(verdictAfter([](const std::string& app) { append(app + "/Contents/Resources/notes.txt", "x"); }),
              ::testing::StartsWith("A sealed resource is missing or invalid. Internal error details: "));
  EXPECT_THAT(
      verdictAfter([](const std::string& app) { append(app + "/Contents/Info.plist", "x"); }),
      ::testing::StartsWith("invalid Info.plist (plist or signature have been modified). Internal error details: "));
  EXPECT_THAT(verdictAfter([](const std::string& app) { flip(executable(app), 100); }),
              ::testing::StartsWith("Codesign verify failed, error code: -67061. Internal error details: "));
}

TEST(TrustedLaunchers, LeadToThePinnedRootUnderStrictRules) {
  TemporaryFolder folder;
  const std::string app = makeApp(folder / "A.app", elfProgram());
  signAs(app);
  const TKSArray chain = informationOf(app)["certificates"].array();
  std::string pin = tks::signing::fingerprintOf(identity().chain.back().get());
  EXPECT_TRUE(tks::platform::signatures().leadsToRoot(chain, pin));
  for (char& digit : pin) digit = digit >= 'a' ? static_cast<char>(digit - 32) : digit;
  EXPECT_TRUE(tks::platform::signatures().leadsToRoot(chain, pin));
  EXPECT_FALSE(tks::platform::signatures().leadsToRoot(
      chain, tks::signing::fingerprintOf(identity("other team").chain.back().get())));
  EXPECT_FALSE(tks::platform::signatures().leadsToRoot(TKSArray(), pin));
  std::string unit;
  EXPECT_EQ(tks::platform::signatures().organizationalUnit(chain[0].data(), unit), 0);
  EXPECT_EQ(unit, "T4RV0K0VRA");
  EXPECT_NE(tks::platform::signatures().commonName(TKSData{1, 2}, unit), 0);
}

}  // namespace
