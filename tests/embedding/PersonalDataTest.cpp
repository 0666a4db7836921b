#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include <tksinterface/tksinterface.h>

#include "tests/interface/FacadeTest.h"
#include "tests/support/FakeHostProcess.h"

// Whatever personal data goes in, at every place where a host or a launcher can put it: no line of the log shows it.
// Texts of received messages are the exception, and are logged as they came.

namespace {

using namespace tks::test;

struct Datum {
  const char* name;
  const char* text;
  /// What must not be seen of it.
  const char* secret;
};

void PrintTo(const Datum& datum, std::ostream* out) { *out << datum.name; }

constexpr Datum kData[] = {
    {"Address", "janetdoe@tarvo.example", "janetdoe"},
    {"EncodedAddress", "janetdoe%40tarvo.example", "janetdoe"},
    {"Path", "/Users/janetdoe/Library/x", "janetdoe"},
    {"UserName", "username=janetdoe", "janetdoe"},
    {"Token", "https://meet.tarvo.example/a?token=SECRETVALUE", "SECRETVALUE"},
    {"Meeting", "https://meet.tarvo.example/join/SECRETROOM", "SECRETROOM"},
};

class PersonalData : public FacadeTest, public testing::WithParamInterface<Datum> {
 protected:
  ~PersonalData() override {
    for (const LogLine& line : log_.lines()) {
      if (line.text.starts_with("Receive message string: ")) continue;
      // Of several user names in a line the first is masked.
      if (line.text.find("username=") != line.text.rfind("username=")) continue;
      EXPECT_EQ(line.text.find(GetParam().secret), std::string::npos) << line;
    }
    EXPECT_FALSE(log_.lines().empty());
  }

  const std::string text_ = GetParam().text;
};

INSTANTIATE_TEST_SUITE_P(Of, PersonalData, testing::ValuesIn(kData),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(PersonalData, InParametersOfAMeetingIsNotLogged) {
  launch(TKSDictionary{{"gpcurlroot", text_}});
  world_.says("launch_meeting_ack", "{}");
  settle();
  tks_.internalLaunchMeetingWithParam(text_, nullptr, nullptr);
  settle();
}

TEST_P(PersonalData, InErrorsOfTheLauncherIsNotLogged) {
  launch();
  world_.says("error", R"({"error_code":"2002","error_message":")" + text_ + R"("})");
  settle();
  EXPECT_EQ(lastError_.localizedDescription, text_) << "the host gets it as it is";
  world_.says("error", "\"" + text_ + "\"");
  settle();
}

TEST_P(PersonalData, InTextsThatAreNoMessagesIsNotLogged) {
  launch();
  world_.channels.input->arrive(frame("{\"message_type\":\"" + text_ + "\""));
  settle();
  EXPECT_NE(lastError_.localizedDescription.find(GetParam().secret), std::string::npos) << "the host gets it as it is";
}

TEST_P(PersonalData, InPathsOfTheLauncherAndItsArchiveIsNotLogged) {
  tks_.setTKSAppPath(text_);
  tks_.setBackupTKSZipPath(text_, "44.1.0");
  tks_.start(finish(), error());
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  TKSError error;
  TKSUtilBase::launchAppWithExePath(text_, {text_}, &error);
  TKSUtilBase::launchApp(text_, {text_}, &error);
  tks_.appManager->getRecordedSites(text_);
  TKSUtilBase::installTKSVersion("44.1.0", text_, text_);
}

TEST_P(PersonalData, InTheFolderOfAFileConversationIsNotLogged) {
  FakeHostProcess process;
  process.arguments = {{"Communicate", "File"}, {"TempIPCFilePath", text_}};
  TKSMessageHost host(tksMessageHostTypeTKS);
  host.openWithMessengeHandler(nullptr);
  TKSMessage message;
  message.messageType = "hello";
  message.message = text_;
  host.sendMessage(message);
  host.close();
}

TEST_P(PersonalData, InPathsOfFilesIsNotLogged) {
  TKSError error;
  const std::string path = text_.starts_with('/') ? text_ : world_.folder / text_;
  TKSUtilBase::removeFileAtPath(path, &error);
  TKSUtilBase::copyFileAtPath(path, path + "2", &error);
  TKSUtilBase::copyFileAtPath(world_.executable(), "/proc" + path, &error);
  TKSUtilBase::moveFileAtPath(path, path + "2", &error);
  TKSUtilBase::cleanUpFolderPath(path, false);
  TKSUtilBase::removeQuarantineAttribute(path);
  TKSUtilBase::addReadAndWritePermissionToFile(path);
  TKSUtilBase::isBrokenApp(path);
  TKSUtilBase::hashFilePropertiesWithAppPath(path);
  TKSUtilBase::getDownloadURLFromFile(path);
  TKSUtilBase::getValueInInfoPlist(path, "CFBundleVersion");
  TKSUtilBase::checkTrust(path, &error);
  TKSUtilBase::unzip(path, path);
  TKSUtilBase::untar(path, path);
}

TEST_P(PersonalData, InValuesAndKeysIsNotLogged) {
  const std::string list = world_.folder / "list.plist";
  TKSUtilBase::setPlist({"a"}, text_, list);
  TKSUtilBase::setPlist({"a", "b"}, text_, list);
  TKSUtilBase::setPlist({text_}, text_, "/proc/" + text_);
  TKSUtilBase::getValueFormPlist({"a", text_}, list);
  TKSUtilBase::setPreference({"a"}, text_);
  TKSUtilBase::setPreference({"a", "b"}, text_);
  TKSUtilBase::getURLQueryDict("https://tarvo.example/" + text_);
  TKSUtilBase::getQueryDict("param=" + text_ + "&noValue" + text_);
  TKSUtilBase::checkAndDecodeBase64(text_);
  TKSUtilBase::isMatchedToRegex("[", text_);
  TKSUtilBase::isCaseInsensitiveTrue(TKSArray{text_}, {"1"});
  TKSUtilBase::getClientPackageParam(text_, {"a"});
  writeFile(world_.folder / "params", text_ + "\n");
  TKSUtilBase::getParamDictFromPath(world_.folder / "params");
}

}  // namespace
