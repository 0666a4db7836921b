#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>
#include <sys/wait.h>
#include <tksinterface/TKSUtilBase.h>

#include <cstdio>

#include "platform/linux/processes/tool_runner.h"
#include "platform/platform.h"
#include "tests/codesign/Fixtures.h"
#include "tests/support/FakeHome.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Sanitized.h"

// The programs spctl and tkssign, run as a person or the health check runs them.

namespace {

namespace fs = std::filesystem;
using namespace tks::test;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using tks::platform::Tool;
using tks::signing::SigningOptions;

struct Outcome {
  int code = -1;
  std::string output;
  std::string errors;
};

std::string quoted(const std::string& word) {
  std::string text = "'";
  for (const char character : word) text += character == '\'' ? std::string("'\\''") : std::string(1, character);
  return text + "'";
}

Outcome run(const char* program, const std::vector<std::string>& arguments) {
  const TemporaryFolder folder;
  std::string command = quoted(program);
  for (const std::string& argument : arguments) command += " " + quoted(argument);
  const int status = std::system((command + " >" + folder / "out" + " 2>" + folder / "err" + " </dev/null").c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contentOf(folder / "out"), contentOf(folder / "err")};
}

Outcome spctl(const std::vector<std::string>& arguments) { return run(TKS_SPCTL, arguments); }
Outcome tkssign(const std::vector<std::string>& arguments) { return run(TKS_TKSSIGN, arguments); }

constexpr const char* kOrigin = "origin=Developer ID Application: Tarvo (T4RV0K0VRA)\n";

/// The tools of a host that ships the library alone.
std::unique_ptr<tks::platform::SystemTools> toolsWithoutAssessment() {
  return tks::gnulinux::makeSystemTools(
      [](Tool tool) { return tool == Tool::spctl ? std::string() : tks::gnulinux::standardToolPath(tool); });
}

class Assessment : public ::testing::Test {
 protected:
  /// What the tool says of the application, on standard error only, and how it ends; the library says the same where
  /// the tool is missing.
  void expectVerdict(const std::string& path, int code, const std::string& text) {
    const Outcome outcome = spctl({"-a", "-vvv", path});
    EXPECT_EQ(outcome.code, code);
    EXPECT_EQ(outcome.errors, text);
    EXPECT_EQ(outcome.output, "");
    expectSameWithoutTheTool({"-a", "-vvv", path}, outcome);
  }

  static void expectSameWithoutTheTool(const std::vector<std::string>& arguments, const Outcome& expected) {
    const auto tools = toolsWithoutAssessment();
    tks::platform::ToolRequest request{Tool::spctl, arguments};
    EXPECT_EQ(tools->run(request).output, "");
    request.collectStandardError = true;
    const tks::platform::ToolResult result = tools->run(request);
    EXPECT_TRUE(result.started);
    EXPECT_FALSE(result.cutShort);
    EXPECT_EQ(result.exitCode, expected.code);
    EXPECT_EQ(result.output, expected.errors);
  }

  TemporaryFolder folder;
  std::string app = folder / "A.app";
};

TEST_F(Assessment, AcceptsTheNotarizedWorkOfAKnownDeveloper) {
  makeApp(app, elfProgram());
  signAs(app);
  expectVerdict(app, 3, app + ": rejected\nsource=Unnotarized Developer ID\n" + kOrigin);
  writeFile(app + "/Contents/CodeResources", "s8ch");
  expectVerdict(app, 0, app + ": accepted\nsource=Notarized Developer ID\n" + kOrigin);
}

TEST_F(Assessment, AcceptsCertificatesFromBeforeNotarization) {
  tks::signing::IdentityPlan plan;
  plan.rsa = false;
  plan.notBefore = 1500000000;  // July 2017
  plan.notAfter = 4000000000;
  const tks::signing::Identity old = tks::signing::makeIdentity(plan);
  makeApp(app, elfProgram());
  signAs(app, "maker", [&](SigningOptions& options) { options.identity = &old; });
  expectVerdict(app, 0, app + ": accepted\nsource=Developer ID\n" + kOrigin);
}

TEST_F(Assessment, BelievesTheMarkOfACertificatesIssueDateMoreThanItsBeginning) {
  const auto expectVerdictOn = [&](const char* issueDate, std::time_t notBefore, int code, const std::string& verdict) {
    tks::signing::IdentityPlan plan;
    plan.rsa = false;
    plan.issueDate = issueDate;
    plan.notBefore = notBefore;
    const tks::signing::Identity marked = tks::signing::makeIdentity(plan);
    fs::remove_all(app);
    makeApp(app, elfProgram());
    signAs(app, "maker", [&](SigningOptions& options) { options.identity = &marked; });
    expectVerdict(app, code, app + ": " + verdict + kOrigin);
  };
  constexpr std::time_t kOld = 1500000000;  // July 2017
  const std::string accepted = "accepted\nsource=Developer ID\n";
  const std::string rejected = "rejected\nsource=Unnotarized Developer ID\n";
  expectVerdictOn("20190407000000Z", 0, 0, accepted);
  expectVerdictOn("20190408000000Z", kOld, 3, rejected);
  expectVerdictOn("20991231235959Z", kOld, 3, rejected);
  expectVerdictOn("2019-04-07", kOld, 0, accepted);  // no eight digits: the beginning counts
  expectVerdictOn("2019-04-07", 0, 3, rejected);
}

TEST_F(Assessment, RejectsWhatNobodyKnownSigned) {
  makeApp(app, elfProgram());
  expectVerdict(app, 3, app + ": rejected\nsource=no usable signature\n");
  signAs(app, "nobody");
  expectVerdict(app, 3, app + ": rejected\n");
}

TEST_F(Assessment, NamesWhatWasAlteredWithoutTheWordRejected) {
  makeApp(app, tks::signing::makeImage({}));
  signAs(app);
  writeFile(app + "/Contents/CodeResources", "s8ch");
  append(app + "/Contents/Resources/notes.txt", "x");
  expectVerdict(app, 3, app + ": a sealed resource is missing or invalid\n");
  writeFile(app + "/Contents/Resources/notes.txt", "notes");
  flip(app + "/Contents/MacOS/A", 5000);
  expectVerdict(app, 3, app + ": invalid signature (code or signature have been modified)\n");
}

TEST_F(Assessment, RejectsCodeThatIsNoApplication) {
  writeBytes(app, tks::signing::makeImage({}));
  signAs(app);
  expectVerdict(app, 3, app + ": rejected (the code is valid but does not seem to be an app)\n" + kOrigin);
}

TEST_F(Assessment, CallsOldFormsOfTheSealObsolete) {
  makeApp(app, tks::signing::makeImage({}));
  signAs(app, "maker", [](SigningOptions& options) {
    options.firstVersionSeal = true;
    options.hashTypes = {tks::codesign::HashType::sha1};
  });
  expectVerdict(app, 3, app + ": rejected\nsource=obsolete resource envelope\n" + kOrigin);
}

TEST_F(Assessment, SaysMoreTheMoreOftenItIsAsked) {
  makeApp(app, elfProgram());
  signAs(app);
  const std::string verdict = app + ": rejected\n";
  const std::string source = "source=Unnotarized Developer ID\n";
  EXPECT_EQ(spctl({"-a", app}).errors, verdict);
  EXPECT_EQ(spctl({"-a", "-v", app}).errors, verdict + source);
  EXPECT_EQ(spctl({"-avv", app}).errors, verdict + source + kOrigin);
  EXPECT_EQ(spctl({"--assess", "--type", "execute", "--verbose", "--verbose", app}).errors, verdict + source + kOrigin);
  EXPECT_EQ(spctl({"-a", "-t", "execute", app}).errors, verdict);
}

TEST_F(Assessment, ExplainsItselfWhenItIsAskedWrongly) {
  for (const std::vector<std::string>& wrong : std::vector<std::vector<std::string>>{
           {}, {"-a"}, {app}, {"-v", app}, {"-x", app}, {"-a", "-t"}, {"-a", "-t", "install", app}, {"-", app}}) {
    const Outcome outcome = spctl(wrong);
    EXPECT_EQ(outcome.code, 2);
    EXPECT_THAT(outcome.errors, StartsWith("usage: spctl -a"));
    EXPECT_EQ(outcome.output, "");
    expectSameWithoutTheTool(wrong, outcome);
  }
}

TEST_F(Assessment, OfSeveralEndsWithTheWorst) {
  makeApp(app, elfProgram());
  const std::string missing = folder / "missing.app";
  EXPECT_EQ(spctl({"-a", missing}).code, 1);
  EXPECT_EQ(spctl({"-a", missing}).errors, missing + ": cannot find code object on disk\n");
  const Outcome both = spctl({"-a", missing, app});
  EXPECT_EQ(both.code, 3);
  EXPECT_EQ(both.errors, missing + ": cannot find code object on disk\n" + app + ": rejected\n");
  expectSameWithoutTheTool({"-a", missing, app}, both);
}

TEST_F(Assessment, LetsNoPathWriteLinesOfItsOwn) {
  const std::string sly = folder / "A\nsource=Notarized Developer ID\n.app";
  makeApp(sly, elfProgram());
  const Outcome outcome = spctl({"-a", "-vvv", sly});
  EXPECT_EQ(outcome.code, 3);
  EXPECT_EQ(std::ranges::count(outcome.errors, '\n'), 2);
  EXPECT_THAT(outcome.errors, HasSubstr("\nsource=no usable signature\n"));
}

/// What the tool says of an application when it may have so much of something.
Outcome limited(const std::string& limit, const std::string& app) {
  return run("/bin/sh", {"-c", "ulimit " + limit + " && exec \"$0\" -a -vvv \"$1\"", TKS_SPCTL, app});
}

TEST_F(Assessment, WithTooFewDescriptorsGivesNoVerdict) {
  makeApp(app, elfProgram());
  signAs(app);
  writeFile(app + "/Contents/CodeResources", "s8ch");
  int without = 0;
  for (int descriptors = 4; descriptors <= 40; descriptors += 2) {
    const Outcome outcome = limited("-n " + std::to_string(descriptors), app);
    // A program that has too few cannot even be loaded.
    ASSERT_THAT(outcome.code, ::testing::AnyOf(0, 75, 127)) << descriptors << outcome.errors;
    if (outcome.code != 75) continue;
    EXPECT_EQ(outcome.errors, app + ": no verdict, out of memory or descriptors\n");
    ++without;
  }
  EXPECT_GT(without, 3);
  EXPECT_EQ(limited("-n 64", app).code, 0);
}

TEST_F(Assessment, WithTooLittleMemoryGivesNoVerdict) {
  if (kSanitized) GTEST_SKIP() << "a sanitizer needs more than any limit leaves it";
  makeApp(app, elfProgram());
  signAs(app);
  writeFile(app + "/Contents/CodeResources", "s8ch");
  for (int megabytes = 10; megabytes <= 120; megabytes += 5) {
    const Outcome outcome = limited("-v " + std::to_string(megabytes * 1024), app);
    // -1: ended by a signal.
    EXPECT_THAT(outcome.code, ::testing::AnyOf(0, 75, 127, 134, 139, -1)) << megabytes << outcome.errors;
  }
}

TEST_F(Assessment, IsWhatTheHealthCheckBelieves) {
  makeApp(app, elfProgram());
  signAs(app);
  const auto answer = [&] {
    const Outcome outcome = spctl({"-a", "-vvv", app});
    return outcome.errors.find(app + ": accepted") == 0;
  };
  EXPECT_FALSE(answer());
  writeFile(app + "/Contents/CodeResources", "s8ch");
  EXPECT_TRUE(answer());
}

TEST_F(Assessment, IsMadeByTheLibraryWhereTheToolIsMissing) {
  const tks::test::FakeHome home;
  const auto tools = toolsWithoutAssessment();
  const tks::platform::Replaced<tks::platform::SystemTools> replaced{*tools};
  const tks::test::LogRecorder log;
  makeApp(app, elfProgram());
  signAs(app);
  writeFile(app + "/Contents/CodeResources", "s8ch");
  EXPECT_FALSE(TKSUtilBase::isBrokenApp(app));
  EXPECT_FALSE(log.has(4, "Verify result not accepted, go further check"));
  const std::string altered = folder / "altered/A.app";
  fs::create_directory(folder / "altered");
  fs::copy(app, altered, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  append(altered + "/Contents/Resources/notes.txt", "x");
  EXPECT_TRUE(TKSUtilBase::isBrokenApp(altered));
  EXPECT_THAT(log.texts(8), ::testing::Contains(HasSubstr("Broken details: ")));
}

class SigningTool : public ::testing::Test {
 protected:
  SigningTool() { makeApp(app, elfProgram()); }

  void expectSigned() {
    EXPECT_EQ(statusOf(app), 0);
    const TKSArray chain = informationOf(app)["certificates"].array();
    ASSERT_EQ(chain.size(), 3u);
    std::string name;
    EXPECT_EQ(tks::platform::signatures().commonName(chain[0].data(), name), 0);
    EXPECT_EQ(name, "Developer ID Application: Tarvo (T4RV0K0VRA)");
    EXPECT_TRUE(TKSUtilBase::checkTrust(app));
  }

  TemporaryFolder folder;
  std::string app = folder / "A.app";
};

TEST_F(SigningTool, MakesAnIdentityAndSignsWithIt) {
  const Outcome made = tkssign({"--make-identity", folder / "id"});
  EXPECT_EQ(made.code, 0) << made.errors;
  EXPECT_THAT(made.output, StartsWith("root SHA-256: "));
  EXPECT_EQ(fs::status(folder / "id/key.pem").permissions(), fs::perms::owner_read | fs::perms::owner_write);
  const Outcome signing = tkssign({"--identity", folder / "id", "--timestamp", app});
  EXPECT_EQ(signing.code, 0) << signing.errors;
  expectSigned();
  EXPECT_TRUE(informationOf(app)["signing-timestamp"].isDate());
  EXPECT_EQ(tkssign({"--key", folder / "id/key.pem", "--chain", folder / "id/chain.pem", app}).code, 0);
  expectSigned();
}

TEST_F(SigningTool, TakesAPkcs12File) {
  const tks::signing::Identity& maker = identity();
  STACK_OF(X509)* authorities = sk_X509_new_null();
  for (std::size_t i = 1; i < maker.chain.size(); ++i) sk_X509_push(authorities, maker.chain[i].get());
  PKCS12* made = ::PKCS12_create("secret", "maker", maker.key.get(), maker.leaf(), authorities, 0, 0, 0, 0, 0);
  sk_X509_free(authorities);
  ASSERT_NE(made, nullptr);
  std::FILE* file = std::fopen((folder / "maker.p12").c_str(), "wb");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(::i2d_PKCS12_fp(file, made), 1);
  std::fclose(file);
  ::PKCS12_free(made);

  const Outcome wrong = tkssign({"--pkcs12", folder / "maker.p12", "--password", "guess", app});
  EXPECT_EQ(wrong.code, 1);
  EXPECT_THAT(wrong.errors, StartsWith("tkssign: "));
  EXPECT_EQ(statusOf(app), -67062);
  const Outcome signing = tkssign({"--pkcs12", folder / "maker.p12", "--password", "secret", app});
  EXPECT_EQ(signing.code, 0) << signing.errors;
  expectSigned();
}

// The other tool, tkssign, is a command of tksctl under a name of its own, with all that tksctl knows.
TEST(AssessmentTool, CarriesTheEngineWithoutTheRestOfTheLibrary) {
  const std::string content = contentOf(TKS_SPCTL);
  EXPECT_NE(content.find("codesign"), std::string::npos) << "there are no symbols to look at";
  for (const char* other : {"TKSInterface", "TKSMessageHost", "TKSIMessageHandler", "TKSUtilBase", "TKSIAppManager"}) {
    EXPECT_EQ(content.find(other), std::string::npos) << TKS_SPCTL << " has " << other << " in it";
  }
}

TEST_F(SigningTool, SaysWhatIsMissing) {
  EXPECT_EQ(tkssign({}).code, 2);
  EXPECT_EQ(tkssign({app}).code, 2);
  EXPECT_EQ(tkssign({"--ad-hoc"}).code, 2);
  const Outcome malformed = tkssign({"--ad-hoc", "--requirement", "and and", app});
  EXPECT_EQ(malformed.code, 1);
  EXPECT_THAT(malformed.errors, AllOf(StartsWith("tkssign: "), HasSubstr("malformed requirement")));
  EXPECT_EQ(tkssign({"--ad-hoc", folder / "nothing"}).code, 1);
  EXPECT_EQ(tkssign({"--ad-hoc", "--timestamp", app}).code, 1);
  EXPECT_EQ(tkssign({"--ad-hoc", app}).code, 0);
  EXPECT_EQ(statusOf(app), 0);
}

}  // namespace
