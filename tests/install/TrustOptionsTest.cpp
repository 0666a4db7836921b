#include <filesystem>

#include "BuildValues.h"
#include "codesign/Codesign.h"
#include "install/AcceptedVersion.h"
#include "install/ContentCheck.h"
#include "install/Trust.h"
#include "tests/install/InstallTest.h"
#include "tests/support/FakePreferences.h"
#include "tests/support/FakeSignatures.h"
#include "tests/support/ForwardingFiles.h"
#include "tests/support/ScopedOptions.h"

// What a host may ask of launchers beyond what is described, each by itself, on really signed bundles.

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using tks::test::flip;
using tks::test::launcherAt;
using tks::test::LauncherPlan;
using tks::test::makeLauncher;
using tks::test::ScopedOptions;
using tks::test::signAs;
using tks::test::writeFile;

class TrustOptions : public tks::test::InstallTest {
 protected:
  /// Why the launcher in its place is not started; empty when it is.
  std::string refusal(const TKSOptions& options = {}) {
    const ScopedOptions scope(options);
    TKSError error;
    last_ = TKSErrorReason::unspecified;
    if (tks::checkTrustForStart(target(), &error)) return {};
    last_ = error.reason;
    return error.localizedDescription;
  }
  /// Why the launcher at a path is not installed; empty when it is.
  static std::string objection(const std::string& path, const TKSOptions& options = {}) {
    const ScopedOptions scope(options);
    TKSError error;
    return tks::checkTrustForInstalling(path, &error) ? std::string() : error.localizedDescription;
  }
  static std::string resource() { return target() + "/Contents/Resources/Grüße.lproj/Texts.strings"; }
  static std::string rootOf(const std::string& kind) {
    const TKSData der = tks::codesign::derOf(tks::test::identity(kind).chain.back().get());
    return tks::codesign::describeCertificate(der)->sha256;
  }

  tks::test::FakePreferences preferences{{{"AppleLocale", "en_US"}}};
  TKSErrorReason last_ = TKSErrorReason::unspecified;
};

/// Counts how often the marks of bundles are taken, and may do something after one was.
class MarkedFiles final : public tks::test::ForwardingFiles {
 public:
  std::function<void()> sequel;
  std::optional<TKSData> changeMark(std::string_view path, TKSError* error) override {
    const std::optional<TKSData> mark = ForwardingFiles::changeMark(path, error);
    if (const std::function<void()> next = std::exchange(sequel, nullptr)) next();
    return mark;
  }
};

TEST_F(TrustOptions, WithoutAnyAnExchangedResourceOrExecutableIsStarted) {
  putLauncher("5.0.1");
  EXPECT_EQ(refusal(), "");
  flip(resource(), 2);
  EXPECT_EQ(refusal(), "");
  flip(target() + "/Contents/MacOS/Tarvo Kovra Start", 100);
  EXPECT_EQ(refusal(), "") << "a launch proves names over a signature, and nothing of the content";
  EXPECT_THAT(objection(target()), HasSubstr("Internal error details")) << "an installation proves it";
}

TEST_F(TrustOptions, TheContentIsCheckedBeforeEachStart) {
  const TKSOptions options{.checkContent = true};
  putLauncher("5.0.1");
  EXPECT_EQ(refusal(options), "");
  for (const std::string& changed : {resource(), target() + "/Contents/MacOS/Tarvo Kovra Start",
                                     target() + "/Contents/PlugIns/Meeting.appex/Contents/MacOS/Meeting"}) {
    flip(changed, 100 % fs::file_size(changed));
    EXPECT_NE(refusal(options), "") << changed;
    EXPECT_EQ(last_, TKSErrorReason::notTrusted);
    EXPECT_EQ(refusal(), "") << changed;
    flip(changed, 100 % fs::file_size(changed));
    EXPECT_EQ(refusal(options), "") << changed;
  }
  writeFile(target() + "/Contents/Resources/added", "x");
  EXPECT_NE(refusal(options), "");
}

TEST_F(TrustOptions, ContentThatWasNotChangedIsNotReadAgain) {
  const TKSOptions options{.checkContent = true};
  putLauncher("5.0.1");
  tks::test::WatchedSignatures signatures;
  EXPECT_EQ(refusal(options), "");
  EXPECT_EQ(refusal(options), "");
  EXPECT_EQ(signatures.checks, 1);
  fs::permissions(resource(), fs::perms(0600));
  EXPECT_EQ(refusal(options), "");
  EXPECT_EQ(signatures.checks, 2) << "a change of anything makes it look again";
  fs::rename(target(), target() + ".away");
  putLauncher("5.0.1");
  EXPECT_EQ(refusal(options), "");
  EXPECT_EQ(signatures.checks, 3) << "another bundle in its place";
  flip(resource(), 2);
  EXPECT_NE(refusal(options), "");
  EXPECT_NE(refusal(options), "") << "what was refused is never taken for checked";
}

TEST_F(TrustOptions, ContentThatPassedOneCheckIsStillAskedForItsSigners) {
  putLauncher("5.0.1");
  signAs(target() + "/Contents/PlugIns/Meeting.appex", "other team");
  signAs(target(), "maker");
  EXPECT_EQ(refusal({.checkContent = true}), "");
  EXPECT_NE(refusal({.checkContent = true, .oneSignerInside = true}), "");
}

TEST_F(TrustOptions, ContentThatIsChangedWhileItIsCheckedIsRefused) {
  putLauncher("5.0.1");
  MarkedFiles files;
  const tks::platform::Replaced<tks::platform::Files> replaced(files);
  files.sequel = [] { fs::permissions(resource(), fs::perms(0600)); };
  EXPECT_EQ(refusal({.checkContent = true}), "The launcher was changed while it was checked.");
  EXPECT_EQ(refusal({.checkContent = true}), "");
}

TEST_F(TrustOptions, APinnedRootKeepsOutWhoForgesTheNames) {
  putLauncher(LauncherPlan{.signer = "forged"});
  EXPECT_EQ(refusal(), "") << "the names are the maker's";
  EXPECT_EQ(objection(target()), "");
  const TKSOptions options{.pinnedRoot = rootOf("maker")};
  EXPECT_EQ(refusal(options), "Codesign verify failed, the certificates do not lead to the pinned root.");
  EXPECT_EQ(objection(target(), options), "Codesign verify failed, the certificates do not lead to the pinned root.");
  fs::remove_all(target());
  putLauncher("5.0.1");
  EXPECT_EQ(refusal(options), "");
  EXPECT_EQ(objection(target(), options), "");
}

TEST_F(TrustOptions, APinnedTeamIsThatOfSignatureAndCertificate) {
  putLauncher("5.0.1");
  EXPECT_EQ(refusal({.pinnedTeam = TKS_TEAM_ID}), "");
  EXPECT_EQ(refusal({.pinnedTeam = "OTHERTEAM1"}), "Codesign verify failed, not from Tarvo.");
  // A signature may name any team; the certificate has that of its owner.
  fs::remove_all(target());
  makeLauncher(target(), LauncherPlan{.signer = ""});
  const auto asMaker = [](tks::signing::SigningOptions& options) { options.team = TKS_TEAM_ID; };
  signAs(target() + "/Contents/PlugIns/Meeting.appex", "named alike", asMaker);
  signAs(target(), "named alike", asMaker);
  EXPECT_EQ(refusal(), "");
  EXPECT_EQ(refusal({.pinnedTeam = TKS_TEAM_ID}), "Codesign verify failed, the signing certificate is not the team's.");
  EXPECT_NE(objection(target(), {.pinnedTeam = TKS_TEAM_ID}), "");
}

TEST_F(TrustOptions, ARequiredIdentifierIsThatOfTheSignature) {
  putLauncher("5.0.1");
  const std::string identifier(TKSAppBundleID);
  EXPECT_EQ(refusal({.requiredIdentifier = identifier}), "");
  EXPECT_EQ(objection(target(), {.requiredIdentifier = identifier}), "");
  const TKSOptions other{.requiredIdentifier = "com.tarvo.other"};
  EXPECT_EQ(refusal(other), "Codesign verify failed, the identifier is not the required one: " + identifier);
  EXPECT_EQ(objection(target(), other),
            "Codesign verify failed, the identifier is not the required one: " + identifier);
  const std::string library = file("lib.dylib", "x");
  signAs(library, "maker");
  EXPECT_EQ(objection(library, other), "") << "a library is no launcher";
}

TEST_F(TrustOptions, WithoutAnyAnotherIdentifierIsStartedAndInstalled) {
  const std::string identifier = "com.tarvo.other";
  putLauncher("5.0.1");
  signAs(target(), "maker", [&](tks::signing::SigningOptions& options) { options.identifier = identifier; });
  EXPECT_EQ(refusal(), "");
  EXPECT_EQ(objection(target()), "");
  EXPECT_EQ(refusal({.requiredIdentifier = std::string(TKSAppBundleID)}),
            "Codesign verify failed, the identifier is not the required one: " + identifier);
}

TEST_F(TrustOptions, NoLauncherIsOlderThanOneThatWasAccepted) {
  const TKSOptions options{.refuseDowngrades = true};
  putLauncher("5.0.1");
  EXPECT_EQ(refusal(options), "");
  EXPECT_EQ(tks::install::acceptedVersion(target()), "5.0.1");
  fs::remove_all(target());
  putLauncher("5.0.0.9");
  EXPECT_EQ(refusal(options), "The launcher is older than one that was accepted before: 5.0.0.9, accepted: 5.0.1");
  EXPECT_EQ(last_, TKSErrorReason::wrongVersion);
  EXPECT_EQ(refusal(), "");
  fs::remove_all(target());
  putLauncher("5.1");
  EXPECT_EQ(refusal(options), "");
  EXPECT_EQ(tks::install::acceptedVersion(target()), "5.1");
}

TEST_F(TrustOptions, AVersionThatWasWrittenIntoAnOldLauncherDoesNotCount) {
  const TKSOptions options{.refuseDowngrades = true};
  putLauncher("5.0.1");
  EXPECT_EQ(refusal(options), "");
  fs::remove_all(target());
  putLauncher("4.0");
  writeFile(target() + "/Contents/Info.plist",
            tks::test::launcherInformation("Tarvo Kovra Start", TKSAppBundleID, "9.0"));
  EXPECT_NE(refusal(options), "");
  EXPECT_EQ(tks::install::acceptedVersion(target()), "5.0.1");
}

TEST_F(TrustOptions, AskingDoesNotAccept) {
  const ScopedOptions scope({.refuseDowngrades = true});
  putLauncher("5.0.1");
  EXPECT_TRUE(TKSUtilBase::checkTrustForLaunch(target()));
  EXPECT_EQ(tks::install::acceptedVersion(target()), std::nullopt);
}

TEST_F(TrustOptions, AnAcceptedVersionThatCannotBeReadOrKeptHasItsLine) {
  const TKSOptions options{.refuseDowngrades = true};
  putLauncher("5.0.1");
  const std::string kept = tks::install::acceptedVersionFile(target());
  writeFile(kept, "rubbish");
  EXPECT_EQ(refusal(options), "");
  EXPECT_TRUE(log.has(8, "No version is kept in " + shown(kept) + ", any launcher counts as new."));
  EXPECT_EQ(tks::install::acceptedVersion(target()), "5.0.1");
  fs::remove(kept);
  fs::create_directories(kept + "/in the way");
  EXPECT_EQ(refusal(options), "");
  EXPECT_TRUE(logged(4, "The accepted version can not be kept: "));
}

TEST_F(TrustOptions, APlaceThatOthersCanWriteToIsRefused) {
  const TKSOptions options{.refuseShared = true};
  putLauncher("5.0.1");
  EXPECT_EQ(refusal(options), "");
  for (const std::string& shared : {parent(), target(), resource()}) {
    const fs::perms before = fs::status(shared).permissions();
    fs::permissions(shared, fs::perms(0777));
    EXPECT_EQ(refusal(options), "Others can write to " + shared);
    EXPECT_EQ(last_, TKSErrorReason::notTrusted);
    EXPECT_EQ(refusal(), "");
    fs::permissions(shared, before);
  }
  EXPECT_EQ(refusal(options), "");
}

TEST_F(TrustOptions, ALabDeviceIsCheckedLikeAllOthers) {
  preferences.values.set(TKSUserDefaultsKeyIsLabDevice, true);
  putLauncher(LauncherPlan{.signer = ""});
  EXPECT_EQ(refusal(), "");
  EXPECT_EQ(refusal({.refuseTestMode = true}), "No certificate info included in code signature info.");
  EXPECT_TRUE(TKSUtilBase::isTestModeTKS());
  const ScopedOptions scope({.refuseTestMode = true});
  EXPECT_FALSE(TKSUtilBase::isTestModeTKS());
  EXPECT_TRUE(TKSUtilBase::isBrokenApp(target())) << "its health is checked as well";
}

TEST_F(TrustOptions, InTestModeNothingElseIsAsked) {
  preferences.values.set(TKSUserDefaultsKeyIsLabDevice, true);
  putLauncher(LauncherPlan{.signer = ""});
  EXPECT_EQ(refusal({.checkContent = true,
                     .pinnedRoot = rootOf("maker"),
                     .pinnedTeam = "X",
                     .requiredIdentifier = "x",
                     .refuseDowngrades = true,
                     .oneSignerInside = true}),
            "");
}

TEST_F(TrustOptions, AllCodeInsideIsOfOneSigner) {
  const TKSOptions options{.oneSignerInside = true};
  putLauncher("5.0.1");
  EXPECT_EQ(refusal(options), "");
  EXPECT_EQ(objection(target(), options), "");
  for (const char* signer : {"other team", "nobody"}) {
    signAs(target() + "/Contents/PlugIns/Meeting.appex", signer);
    signAs(target(), "maker");
    EXPECT_EQ(refusal(), "") << signer;
    EXPECT_EQ(objection(target()), "") << "the seal names it: " << signer;
    EXPECT_THAT(refusal(options), HasSubstr("Meeting.appex")) << signer;
    EXPECT_THAT(objection(target(), options), HasSubstr("Meeting.appex")) << signer;
  }
}

}  // namespace
