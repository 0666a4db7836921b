#include "codesign/Codesign.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/codesign/Fixtures.h"

// The public face of the engine: what a tool can do with it alone.

namespace {

namespace fs = std::filesystem;
namespace status = tks::codesign::status;
using namespace tks::test;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;
using tks::codesign::Code;
using tks::codesign::Depth;
using tks::codesign::Description;
using tks::codesign::HashType;
using tks::codesign::Outcome;
using tks::codesign::SigningIdentity;
using tks::codesign::SigningOptions;

/// An identity that the face made, once for all tests.
const SigningIdentity& maker() {
  static const SigningIdentity made = *SigningIdentity::make({});
  return made;
}

SigningOptions stamped() {
  SigningOptions options;
  options.timeStamp = std::time(nullptr);
  return options;
}

class Face : public ::testing::Test {
 protected:
  Code open(const std::string& path) { return Code::open(path).value(); }

  /// An application that is signed with everything that a signature can carry.
  std::string signedApp() {
    makeApp(app, elfProgram());
    SigningOptions options = stamped();
    options.hashTypes = {HashType::sha1, HashType::sha256};
    options.flags = 0x10000;
    options.entitlements = "<plist version=\"1.0\"><dict><key>com.a.b</key><true/></dict></plist>";
    options.requirement = "identifier \"com.tarvo.A\"";
    const Outcome outcome = tks::codesign::sign(app, &maker(), options);
    EXPECT_TRUE(outcome.isGood()) << outcome.text;
    return app;
  }

  const TemporaryFolder folder;
  const std::string app = folder / "A.app";
};

TEST_F(Face, OpensBundlesByTheirFolderAndByTheirExecutable) {
  signedApp();
  EXPECT_EQ(open(app).describe().identifier, "com.tarvo.A");
  EXPECT_EQ(open(app + "/Contents/MacOS/A").describe().identifier, "com.tarvo.A");
}

TEST_F(Face, SaysWhyThereIsNothingToOpen) {
  Outcome outcome;
  EXPECT_FALSE(Code::open(folder / "missing", &outcome));
  EXPECT_EQ(outcome.status, status::kNotFound);
  EXPECT_EQ(outcome.text, "cannot find code object on disk");
  EXPECT_FALSE(Code::open(folder / "missing")) << "nobody has to ask why";
}

TEST_F(Face, SignsWhatItThenVerifies) {
  const Code code = open(signedApp());
  for (const Depth depth : {Depth::plain, Depth::strict, Depth::assessing}) {
    const Outcome outcome = code.verify(depth);
    EXPECT_TRUE(outcome.isGood()) << outcome.description();
    EXPECT_EQ(outcome.text, "");
  }
}

TEST_F(Face, NamesTheResourcesThatDoNotFitTheSeal) {
  signedApp();
  writeFile(app + "/Contents/Resources/notes.txt", "other notes");
  writeFile(app + "/Contents/Resources/new", "x");
  const Outcome outcome = open(app).verify();
  EXPECT_EQ(outcome.status, status::kBadResource);
  EXPECT_EQ(outcome.text, "a sealed resource is missing or invalid");
  EXPECT_THAT(outcome.added, ElementsAre("Resources/new"));
  EXPECT_THAT(outcome.altered, ElementsAre("Resources/notes.txt"));
  EXPECT_THAT(outcome.missing, IsEmpty());
  EXPECT_THAT(outcome.description(), HasSubstr("SecCSResourceAdded=(Resources/new)"));
}

TEST_F(Face, NamesTheNestedCodeThatIsAtFault) {
  makeApp(app + "/Contents/Frameworks/B.app", elfProgram());
  ASSERT_TRUE(tks::codesign::sign(app + "/Contents/Frameworks/B.app", &maker(), {}).isGood());
  signedApp();
  append(app + "/Contents/Frameworks/B.app/Contents/MacOS/B", "x");
  const Outcome outcome = open(app).verify();
  EXPECT_FALSE(outcome.isGood());
  EXPECT_THAT(outcome.path, EndsWith("/Contents/Frameworks/B.app"));
}

TEST_F(Face, DescribesWhatASignatureSays) {
  const Description description = open(signedApp()).describe();
  EXPECT_TRUE(description.outcome.isGood());
  EXPECT_TRUE(description.isSigned);
  EXPECT_THAT(description.executable, EndsWith("/A.app/Contents/MacOS/A"));
  EXPECT_EQ(description.format, "app bundle with generic");
  EXPECT_THAT(description.architectures, IsEmpty());
  EXPECT_EQ(description.flags, 0x10000U);
  EXPECT_THAT(description.flagNames, ElementsAre("runtime"));
  EXPECT_EQ(description.directoryVersion, 0x20400U);
  EXPECT_EQ(description.team, "T4RV0K0VRA");
  EXPECT_EQ(description.designatedRequirement, "identifier \"com.tarvo.A\"");
  EXPECT_THAT(description.implicitRequirement, HasSubstr("com.tarvo.A"));
  EXPECT_NE(description.implicitRequirement, description.designatedRequirement);
  EXPECT_EQ(description.entitlements["com.a.b"], TKSValue(true));
  EXPECT_EQ(description.infoPlist["CFBundleIdentifier"], TKSValue("com.tarvo.A"));
  EXPECT_FALSE(description.ticket);
}

TEST_F(Face, NamesTheLeafWhereTheAuthoritiesAreOfAnotherOrganization) {
  EXPECT_THAT(open(signedApp()).describe().implicitRequirement,
              HasSubstr("identifier \"com.tarvo.A\" and certificate leaf = H\""));
}

class FaceOfOneOrganization : public Face, public ::testing::WithParamInterface<bool> {};

TEST_P(FaceOfOneOrganization, NamesItsHighestCertificate) {
  tks::codesign::IdentityPlan plan;
  plan.organization = "Apple Inc.";  // as that of the authorities
  plan.withoutIntermediate = GetParam();
  const SigningIdentity own = *SigningIdentity::make(plan);
  makeApp(app, elfProgram());
  ASSERT_TRUE(tks::codesign::sign(app, &own, stamped()).isGood());
  EXPECT_THAT(open(app).describe().implicitRequirement, HasSubstr("and certificate root = H\""));
}

INSTANTIATE_TEST_SUITE_P(Intermediate, FaceOfOneOrganization, ::testing::Values(false, true),
                         [](const auto& with) { return with.param ? "Without" : "With"; });

TEST_F(Face, DescribesTheHashesOfEveryDirectory) {
  const Description description = open(signedApp()).describe();
  ASSERT_THAT(description.directories, SizeIs(2));
  EXPECT_EQ(description.directories[0].hashType, HashType::sha1);
  EXPECT_EQ(description.directories[1].hashType, HashType::sha256);
  EXPECT_THAT(description.directories[1].fullHash, SizeIs(32));
  EXPECT_THAT(tks::hexadecimal(description.directories[1].fullHash),
              StartsWith(tks::hexadecimal(description.best.cdHash)));
}

TEST_F(Face, FindsEveryFurtherDirectory) {
  makeApp(app, elfProgram());
  SigningOptions options = stamped();
  options.hashTypes = {HashType::sha1, HashType::sha256, HashType::sha384};
  ASSERT_TRUE(tks::codesign::sign(app, &maker(), options).isGood());
  const Description description = open(app).describe();
  ASSERT_THAT(description.directories, SizeIs(3));
  EXPECT_EQ(description.directories[2].hashType, HashType::sha384);
}

TEST_F(Face, DescribesTheChainOfTheSigner) {
  const std::time_t now = std::time(nullptr);
  const Description description = open(signedApp()).describe();
  EXPECT_TRUE(description.signer.isGood());
  ASSERT_THAT(description.chain, SizeIs(3));
  EXPECT_EQ(description.chain[0].commonName, "Developer ID Application: Tarvo (T4RV0K0VRA)");
  EXPECT_EQ(description.chain[0].organization, "Tarvo");
  EXPECT_EQ(description.chain[0].organizationalUnit, "T4RV0K0VRA");
  EXPECT_EQ(description.chain[0].issuer, "Developer ID Certification Authority");
  EXPECT_TRUE(description.chain[0].isValidAt(now));
  EXPECT_FALSE(description.chain[0].isValidAt(description.chain[0].notAfter + 1));
  EXPECT_FALSE(description.chain[0].isSelfSigned);
  EXPECT_TRUE(description.chain[2].isSelfSigned);
  EXPECT_EQ(description.chain[2].sha256, maker().chain().back().sha256);
  EXPECT_THAT(description.chain[2].sha256, SizeIs(64));
  ASSERT_TRUE(description.timeStamp);
  EXPECT_NEAR(static_cast<double>(*description.timeStamp), static_cast<double>(now), 60);
}

TEST_F(Face, ShowsNoChainOfASignerWhoseSignatureDoesNotHold) {
  signedApp();
  flip(app + "/Contents/_CodeSignature/CodeSignature",
       contentOf(app + "/Contents/_CodeSignature/CodeSignature").size() - 9);
  const Description description = open(app).describe();
  EXPECT_TRUE(description.isSigned);
  EXPECT_EQ(description.signer.status, status::kSignatureFailed);
  EXPECT_THAT(description.chain, IsEmpty());
  EXPECT_EQ(description.identifier, "com.tarvo.A") << "what is still in order is there";
}

TEST_F(Face, DescribesEveryArchitecture) {
  const std::string file = folder / "tool";
  writeBytes(file, tks::signing::makeUniversal(
                       {tks::signing::makeImage({.type = 0x0100000c, .subtype = 0}), tks::signing::makeImage({})}));
  const Description before = open(file).describe();
  EXPECT_FALSE(before.isSigned);
  EXPECT_EQ(before.signer.status, status::kUnsigned);
  ASSERT_THAT(before.architectures, SizeIs(2));
  EXPECT_EQ(before.architectures[0].name, "x86_64");
  EXPECT_EQ(before.architectures[1].name, "arm64");
  EXPECT_THAT(before.architectures[0].directories, IsEmpty());
  ASSERT_TRUE(tks::codesign::sign(file, nullptr, {}).isGood());
  const Description after = open(file).describe();
  EXPECT_TRUE(after.isAdHoc);
  EXPECT_THAT(after.chain, IsEmpty());
  ASSERT_THAT(after.architectures[1].directories, SizeIs(1));
  const std::string intel = tks::hexadecimal(after.architectures[0].directories[0].cdHash);
  const std::string arm = tks::hexadecimal(after.architectures[1].directories[0].cdHash);
  EXPECT_NE(intel, arm);
  EXPECT_EQ(after.designatedRequirement, "cdhash H\"" + intel + "\" or cdhash H\"" + arm + "\"");
  EXPECT_EQ(after.implicitRequirement, after.designatedRequirement);
}

TEST_F(Face, TellsWhetherCodeMeetsARequirement) {
  const Code code = open(signedApp());
  EXPECT_TRUE(code.meets("identifier \"com.tarvo.A\" and certificate leaf[subject.OU] = T4RV0K0VRA").isGood());
  EXPECT_TRUE(code.meets("certificate leaf[field.1.2.840.113635.100.6.1.13] exists").isGood());
  EXPECT_EQ(code.meets("certificate root[field.1.2.840.113635.100.6.1.13] exists").status, status::kRequirementFailed);
  EXPECT_TRUE(code.meets("certificate leaf[field.1.2.3.4] absent").isGood());
  EXPECT_EQ(code.meets("identifier other").status, status::kRequirementFailed);
  EXPECT_EQ(code.meets("identifier").status, status::kRequirementInvalid);
  EXPECT_EQ(code.meets("identifier").text, "invalid or corrupted code requirement(s)");
}

TEST_F(Face, GivesTheInformationOfTheContract) {
  TKSDictionary information;
  EXPECT_TRUE(open(signedApp()).copyInformation(information).isGood());
  EXPECT_EQ(information, informationOf(app));
  EXPECT_EQ(information["identifier"], TKSValue("com.tarvo.A"));
}

TEST_F(Face, KeepsIdentities) {
  ASSERT_TRUE(maker().save(folder / "identity").isGood());
  const std::optional<SigningIdentity> loaded = SigningIdentity::fromFolder(folder / "identity");
  ASSERT_TRUE(loaded);
  EXPECT_EQ(loaded->chain().front().sha256, maker().chain().front().sha256);
  EXPECT_TRUE(loaded->canStamp());
  const std::optional<SigningIdentity> bare =
      SigningIdentity::fromFiles(folder / "identity/key.pem", folder / "identity/chain.pem");
  ASSERT_TRUE(bare);
  EXPECT_FALSE(bare->canStamp());
}

TEST_F(Face, RefusesWhatCannotBeSigned) {
  Outcome outcome;
  EXPECT_FALSE(SigningIdentity::fromFolder(folder / "missing", &outcome));
  EXPECT_THAT(outcome.text, HasSubstr("missing/key.pem"));
  EXPECT_EQ(tks::codesign::sign(folder / "missing", &maker(), {}).status, status::kNotFound);

  makeApp(app, elfProgram());
  SigningOptions options;
  options.hashTypes.clear();
  EXPECT_EQ(tks::codesign::sign(app, &maker(), options).status, status::kBadParameter);
  EXPECT_EQ(tks::codesign::sign(app, nullptr, stamped()).status, status::kBadParameter);
  options = {};
  options.requirement = "identifier";
  EXPECT_THAT(tks::codesign::sign(app, &maker(), options).text, HasSubstr("malformed requirement"));
  EXPECT_FALSE(open(app).describe().isSigned);
}

}  // namespace
