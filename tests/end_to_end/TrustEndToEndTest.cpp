#include <filesystem>
#include <fstream>
#include <map>

#include "codesign/signing/identity.h"
#include "codesign/signing/signer.h"
#include "tests/end_to_end/EndToEndTest.h"

// Real hosts that check whom a launcher is from before they start it: no lab device, no replaced contract.

namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using tks::test::HostKind;
using tks::test::Pair;

const tks::signing::Identity& identity(const std::string& team) {
  static std::map<std::string, tks::signing::Identity> made;
  tks::signing::IdentityPlan plan;
  plan.team = team;
  plan.rsa = false;
  const auto found = made.find(team);
  return found != made.end() ? found->second : made.emplace(team, tks::signing::makeIdentity(plan)).first->second;
}

/// A launcher of some team, and a host that checks it.
struct CheckedPair : Pair {
  explicit CheckedPair(const std::string& team, HostKind kind = HostKind::plain)
      : Pair({}, {.kind = kind, .checksTrust = true}) {
    // The launcher's orders are no part of what is signed.
    fs::remove(launcher.file("switches"));
    tks::signing::SigningOptions options;
    if (team.empty()) return;
    options.identity = &identity(team);
    tks::signing::sign(launcher.bundle(), options);
  }

  std::string part(const std::string& name) const { return launcher.bundle() + "/Contents/_CodeSignature/" + name; }

  /// The host was told once why it was refused, no process was made, and nothing is left.
  void expectRefusal(const std::string& reason) {
    ASSERT_TRUE(waitUntilTold());
    expectNothingLeft();
    EXPECT_THAT(told(), ElementsAre("error one TKSIDefaultDomain 0 Launch app failed. Path: " + launcher.executable() +
                                    ". Error: Security check failed: " + reason));
    EXPECT_THAT(host.events("pid "), IsEmpty());
    EXPECT_TRUE(host.isAlive());
  }
};

constexpr const char* kMaker = "T4RV0K0VRA";

class TrustCheck : public testing::TestWithParam<HostKind> {};
INSTANTIATE_TEST_SUITE_P(Each, TrustCheck, testing::Values(HostKind::plain, HostKind::ember, HostKind::emberDebug),
                         tks::test::nameOf);

TEST_P(TrustCheck, StartsTheMakersLauncherWhichThenTalks) {
  CheckedPair pair(kMaker, GetParam());
  pair.host.command("launch one");
  ASSERT_TRUE(pair.waitUntilTold());
  pair.expectNothingLeft();
  EXPECT_THAT(pair.told(), ElementsAre("finish one"));
  EXPECT_THAT(pair.host.events(), Contains(HasSubstr("log 2 Check app done, result: 1, path: ")));
  EXPECT_THAT(pair.host.events(), testing::Not(Contains(HasSubstr("Is TEST Mode."))));
  EXPECT_EQ(pair.host.quit(), 0);
}

TEST_P(TrustCheck, RefusesALauncherThatNobodySigned) {
  CheckedPair pair("", GetParam());
  pair.host.command("launch one");
  pair.expectRefusal("No certificate info included in code signature info.");
  EXPECT_THAT(pair.host.events(), Contains(HasSubstr("log 2 Check app done, result: 0, path: ")));
}

TEST_P(TrustCheck, RefusesALauncherOfAnotherTeam) {
  CheckedPair pair("STR4NG3R00", GetParam());
  pair.host.command("launch one");
  pair.expectRefusal("Codesign verify failed, not from Tarvo.");
}

TEST(AlteredLauncher, WhoseSignatureDoesNotHoldIsRefused) {
  CheckedPair pair(kMaker);
  {
    std::fstream directory(pair.part("CodeDirectory"), std::ios::in | std::ios::out | std::ios::binary);
    directory.seekp(-1, std::ios::end);
    directory.put('x');
  }
  pair.host.command("launch one");
  pair.expectRefusal("No certificate info included in code signature info.");
}

TEST(AlteredLauncher, WithAnotherResourceIsStartedAndIsNotHealthy) {
  // A start asks who signed; whether everything is as it was signed is asked when something is installed or broken.
  CheckedPair pair(kMaker);
  std::ofstream(pair.launcher.bundle() + "/Contents/added") << "x";
  pair.host.command("launch one");
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_THAT(pair.told(), ElementsAre("finish one"));
  pair.expectNothingLeft();
  fs::permissions(pair.launcher.executable(), fs::perms::owner_read);
  pair.host.forget();
  pair.host.command("launch two");
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_THAT(pair.host.events(), Contains(HasSubstr("a sealed resource is missing or invalid")));
  EXPECT_THAT(pair.host.events(), Contains("log 8 App broken, about to clean up the broken tks app."));
  EXPECT_FALSE(fs::exists(pair.launcher.bundle()));
}

TEST(CheckedContent, OfALauncherThatWasChangedIsNotStarted) {
  CheckedPair pair(kMaker);
  pair.host.command("options {\"checkContent\":true}");
  pair.host.command("launch one");
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_THAT(pair.told(), ElementsAre("finish one"));
  EXPECT_THAT(pair.host.events(),
              Contains("log 2 Option checkContent: on. The launcher's content is checked before each start."));
  pair.expectNothingLeft();
  {
    std::fstream program(pair.launcher.executable(), std::ios::in | std::ios::out | std::ios::binary);
    program.seekp(-1, std::ios::end);
    program.put('x');
  }
  pair.host.forget();
  pair.host.command("launch two");
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_THAT(pair.told(), ElementsAre(HasSubstr("Error: Security check failed: ")));
  EXPECT_THAT(pair.host.events("pid "), IsEmpty());
}

TEST(AfterAFailedStart, ABrokenLauncherStaysWhereTheHostWantsThat) {
  CheckedPair pair("");
  pair.host.command("options {\"keepBrokenLauncher\":true}");
  pair.host.command("launch one");
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_THAT(pair.host.events(), Contains(HasSubstr("log 4 Launcher broken, but broken ones are kept: ")));
  EXPECT_TRUE(fs::exists(pair.launcher.bundle()));
}

TEST(AfterAFailedStart, ThePreviousLauncherIsPutBackWhereTheHostWantsThat) {
  CheckedPair pair("");
  const fs::path bundle = pair.launcher.bundle();
  const fs::path kept = bundle.parent_path() / ("." + bundle.filename().string() + ".previous");
  fs::copy(bundle, kept, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  fs::remove(kept / fs::path(pair.launcher.file("switches")).lexically_relative(bundle));
  tks::signing::SigningOptions options;
  options.identity = &identity(kMaker);
  tks::signing::sign(kept, options);
  std::ofstream(kept / "Contents/CodeResources") << "s8ch";  // notarized
  pair.host.command("options {\"keepPreviousLauncher\":true}");
  pair.host.command("launch one");
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_THAT(pair.host.events(), Contains(HasSubstr("log 4 Launcher broken, the previous one was put back: ")));
  EXPECT_FALSE(fs::exists(kept));
  pair.host.forget();
  pair.host.command("launch two");
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_THAT(pair.told(), ElementsAre("finish two"));
}

TEST(AfterAFailedStart, ABrokenLauncherIsRemovedSoThatTheNextOneIsInstalled) {
  CheckedPair pair("");
  pair.host.command("launch one");
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_THAT(pair.host.events(), Contains(HasSubstr("source=no usable signature")));
  EXPECT_THAT(pair.host.events(), Contains("log 8 App broken, about to clean up the broken tks app."));
  EXPECT_FALSE(fs::exists(pair.launcher.bundle()));
  // The host can go on; what it is told next is that there is no launcher.
  pair.host.forget();
  pair.host.command("launch two");
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_THAT(pair.told(),
              ElementsAre("error two TKSIDefaultDomain 0 Launch app failed. Path: " + pair.launcher.executable() +
                          ". Error: Component binary file not exists: " + pair.launcher.executable()));
}

TEST(AfterAFailedStart, AHealthyLauncherStays) {
  CheckedPair pair(kMaker);
  std::ofstream(pair.launcher.bundle() + "/Contents/CodeResources") << "s8ch, as a stapled ticket begins";
  fs::permissions(pair.launcher.executable(), fs::perms::owner_read);
  pair.host.command("launch one");
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_THAT(pair.told(), ElementsAre(HasSubstr("Component binary file not executable: ")));
  EXPECT_THAT(pair.host.events(), Contains(HasSubstr("Broken status:0.[0:healthy, 1:broken]")));
  EXPECT_TRUE(fs::exists(pair.launcher.bundle()));
  // Found healthy once, it is known by its fingerprint.
  pair.host.forget();
  pair.host.command("launch two");
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_THAT(pair.host.events(), Contains(HasSubstr("Verify app's broken status, end.")));
  EXPECT_TRUE(fs::exists(pair.launcher.bundle()));
}

}  // namespace
