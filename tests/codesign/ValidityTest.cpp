#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "formats/apple_double.h"
#include "tests/codesign/Fixtures.h"

namespace {

namespace fs = std::filesystem;
using namespace tks::test;
using tks::codesign::HashType;
using tks::signing::SigningOptions;

/// One situation: how it comes about, and the status that the platform gives.
struct Situation {
  const char* name;
  std::int32_t status;
  std::function<void(const std::string& app)> damage;
};

std::string executable(const std::string& app) { return app + "/Contents/MacOS/A"; }
std::string seal(const std::string& app) { return app + "/Contents/_CodeSignature/CodeResources"; }

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
      {"bytes after the executable", 0, [](const std::string& app) { append(executable(app), "x"); }},
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

TEST_F(AnApp, WhoseSignerWasCertifiedByNoAuthorityIsRefused) {
  const std::string app = makeApp(folder / "A.app", tks::signing::makeImage({}));
  signAs(app, "no authority");
  EXPECT_NE(statusOf(app), 0);
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

TEST_F(AnApp, WithASealOfTheFirstVersionMayHaveLinksWithinItselfWhereNoRuleLooks) {
  const std::string app = makeApp(folder / "A.app", tks::signing::makeImage({}));
  signAs(app, "maker", [](SigningOptions& options) {
    options.firstVersionSeal = true;
    options.hashTypes = {HashType::sha1};
  });
  fs::create_directories(app + "/Contents/Extras");
  fs::create_symlink("../Resources/notes.txt", app + "/Contents/Extras/notes");
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_EQ(installStatusOf(app), 0);
  fs::remove(app + "/Contents/Extras/notes");
  fs::create_symlink("../../../notes.txt", app + "/Contents/Extras/notes");
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_EQ(installStatusOf(app), -67003);
}

TEST_F(AnApp, WithAttributesInSideCarsIsWhole) {
  const std::string app = makeApp(folder / "A.app", tks::signing::makeImage({}));
  signAs(app);
  const TKSData attributes =
      tks::formats::serializeAppleDouble({TKSDictionary{{"com.tarvo.note", TKSData{1, 2, 3}}}}).value();
  const std::string sideCar = app + "/Contents/Resources/._notes.txt";
  writeBytes(sideCar, attributes);
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_EQ(installStatusOf(app), 0);
  fs::rename(sideCar, app + "/Contents/Resources/._nothing");
  EXPECT_EQ(statusOf(app), -67054) << "of nothing";
  EXPECT_EQ(installStatusOf(app), -67054);
}

TEST_F(AnApp, WithRulesThatLeaveOutFilesIsInstalledWithoutThem) {
  const std::string app = makeApp(folder / "A.app", elfProgram());
  signAs(app);
  replaceIn(seal(app), "<key>^.*</key>",
            "<key>^Resources/cache/</key><dict><key>omit</key><true/><key>weight</key><real>50</real></dict>"
            "<key>^.*</key>");
  sealAs(app, bytesIn(seal(app)), true);
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
    sealAs(app, bytesIn(seal(app)));
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

TEST_F(AnApp, SealedWithAContainerInPlaceOfAFieldIsRefused) {
  const std::string app = makeApp(folder / "A.app", elfProgram());
  signAs(app);
  const std::string whole = contentOf(seal(app));
  const auto statusWith = [&](const std::string& field, const std::string& value) {
    std::string changed = whole;
    const std::size_t entry = changed.find("<key>Resources/notes.txt</key>", changed.find("<key>files2</key>"));
    changed.insert(changed.find("</dict>", entry), "<key>" + field + "</key>" + value);
    sealAs(app, changed);
    return statusOf(app);
  };
  EXPECT_EQ(statusWith("note", "<string>x</string>"), 0);
  for (const char* container : {"<array><string>x</string></array>", "<dict><key>a</key><true/></dict>"}) {
    EXPECT_EQ(statusWith("note", container), 0) << "fields that are not known may hold anything";
    for (const char* field : {"symlink", "requirement", "optional", "hash2"}) {
      EXPECT_EQ(statusWith(field, container), -67055) << field << container;
    }
  }
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
  for (const char* target : {"/etc/passwd", "../../../outside", "../../../../outside"}) {
    const std::string app = folder / "A.app";
    fs::remove_all(app);
    makeApp(app, tks::signing::makeImage({}));
    fs::create_symlink(target, app + "/Contents/Resources/out");
    signAs(app);
    EXPECT_EQ(statusOf(app), 0);
    EXPECT_EQ(installStatusOf(app), -67003);
  }
}

TEST_F(AnApp, WithResourcesOfEverySizeIsWhole) {
  const std::string app = makeApp(folder / "A.app", elfProgram());
  for (const std::size_t size : {0u, 1u, 65535u, 65536u, 65537u, 1048576u, 3000001u}) {
    writeFile(app + "/Contents/Resources/" + std::to_string(size), std::string(size, 'x'));
  }
  signAs(app);
  EXPECT_EQ(statusOf(app), 0);
  append(app + "/Contents/Resources/3000001", "x");
  EXPECT_EQ(statusOf(app), -67054);
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

}  // namespace
