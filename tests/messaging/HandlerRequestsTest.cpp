#include <gmock/gmock.h>

#include "tests/messaging/Conversation.h"
#include "tests/messaging/HandlerTest.h"

// What the conversation asks of the launcher.

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using tks::test::HandlerTest;
using tks::test::LogLine;

// Opening and closing.

TEST_F(HandlerTest, OwnsAHostOfTheInterfacesTypeAndHasNoCallbacks) {
  TKSIMessageHandler fresh;
  ASSERT_NE(fresh.messageHost, nullptr);
  EXPECT_EQ(fresh.messageHost->type, 0u);
  EXPECT_FALSE(fresh.messageHost->isOpened);
  EXPECT_FALSE(fresh.helloFinishBlock || fresh.launchFinishBlock || fresh.TKSUpdateDoneBlock ||
               fresh.disconnectFinishBlock);
  EXPECT_FALSE(fresh.helloErrorBlock || fresh.launchErrorBlock || fresh.disconnectErrorBlock);
  EXPECT_FALSE(fresh.notifyStatusBlock || fresh.queryStatusBlock);
}

TEST_F(HandlerTest, StartingAndStoppingTheHostAreLogged) {
  talk_.log.clear();
  handler().startMessageHost();
  handler().startMessageHost();
  handler().stopMessageHost();
  handler().stopMessageHost();
  EXPECT_THAT(
      talk_.log.lines(),
      ElementsAre(LogLine{2, "-[TKSIMessageHandler startMessageHost]"},
                  LogLine{2, "Message Host not started yet, start host."},
                  LogLine{2, "Open message host with handler."}, LogLine{2, "Open message host with handler done."},
                  LogLine{2, "-[TKSIMessageHandler startMessageHost]"},
                  LogLine{2, "Message Host has been started, and don't need start again."},
                  LogLine{2, "-[TKSIMessageHandler stopMessageHost]"}, LogLine{2, "Message Host running, stop it."},
                  LogLine{2, "Close message host."}, LogLine{2, "Close message host done."},
                  LogLine{2, "-[TKSIMessageHandler stopMessageHost]"}));
}

TEST_F(HandlerTest, HostTalksToTheHandler) {
  handler().startMessageHost();
  EXPECT_EQ(handler().messageHost->messageHandler, &handler());
}

TEST_F(HandlerTest, FolderIsPassedToTheHost) {
  handler().setIPCFileFolderPath("/a");
  EXPECT_EQ(handler().messageHost->tempIPCFileFullPathFromTKS2Interface, "/a/ipcFile_TKS2Interface");
}

TEST_F(HandlerTest, DestructionClosesTheHostAndCallsNobody) {
  talk_.hello();
  talk_.launch();
  talk_.disconnect();
  talk_.events();
  talk_.log.clear();
  talk_.handler.reset();
  EXPECT_THAT(talk_.events(), IsEmpty());
  EXPECT_TRUE(talk_.log.has(2, "Message Host running, stop it."));
}

// Requests.

TEST_F(HandlerTest, HelloOpensTheHostAndSendsItsName) {
  talk_.hello();
  EXPECT_TRUE(handler().messageHost->isOpened);
  EXPECT_THAT(talk_.texts, ElementsAre(R"({"message":"hello","message_type":"hello"})"));
}

TEST_F(HandlerTest, DisconnectDoesNotOpenTheHost) {
  talk_.disconnect();
  EXPECT_FALSE(handler().messageHost->isOpened);
  EXPECT_THAT(talk_.texts, IsEmpty());
  EXPECT_TRUE(talk_.log.has(4, "Message host already closed, abandon sending message."));
  EXPECT_TRUE(handler().disconnectFinishBlock && handler().disconnectErrorBlock);
}

TEST_F(HandlerTest, OnlyHelloAndDisconnectAreCommon) {
  handler().startMessageHost();
  EXPECT_TRUE(handler().sendCommonMessageOfType("hello"));
  EXPECT_TRUE(handler().sendCommonMessageOfType("disconnect"));
  talk_.log.clear();
  EXPECT_FALSE(handler().sendCommonMessageOfType("launch_meeting"));
  EXPECT_FALSE(handler().sendCommonMessageOfType(""));
  EXPECT_THAT(talk_.log.lines(), ElementsAre(LogLine{8, "Not able to handle message type: launch_meeting"},
                                             LogLine{8, "Not able to handle message type: "}));
  EXPECT_THAT(talk_.texts, ElementsAre(R"({"message":"hello","message_type":"hello"})",
                                       R"({"message":"disconnect","message_type":"disconnect"})"));
}

TEST_F(HandlerTest, LaterRequestReplacesTheCallbacksOfAnEarlierOne) {
  handler().sendHelloMessage(talk_.finish("first"), talk_.error("first"));
  handler().sendHelloMessage(talk_.finish("second"), talk_.error("second"));
  talk_.saysType("hello_ack");
  EXPECT_THAT(talk_.events(), ElementsAre("sends hello", "sends hello", "notifies 3", "calls second"));
}

TEST_F(HandlerTest, LaunchCarriesTheParametersAndTheSitesAddress) {
  talk_.connect();
  talk_.texts.clear();
  talk_.launch(
      TKSDictionary{{"gpcsitedomain", "https://a.example"}, {"gpcurlroot", "https://b.example"}, {"Key", "v"}});
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 4", "sends launch_meeting"));
  EXPECT_THAT(talk_.texts,
              ElementsAre(R"({"domain":"https://a.example","message":{"Key":"v","gpcsitedomain":"https://a.example",)"
                          R"("gpcurlroot":"https://b.example"},"message_type":"launch_meeting"})"));
}

TEST_F(HandlerTest, RootAddressStandsInForAMissingSiteDomain) {
  talk_.connect();
  talk_.texts.clear();
  talk_.launch(TKSDictionary{{"gpcurlroot", "https://b.example/root"}});
  EXPECT_EQ(TKSMessage::JSONStringToObject(talk_.texts.at(0))["domain"], TKSValue("https://b.example/root"));
}

TEST_F(HandlerTest, SiteDomainThatMakesNoURLGivesNoDomainEvenWithARootAddress) {
  talk_.connect();
  for (const TKSValue& domain : {TKSValue("not a url"), TKSValue(""), TKSValue(7), TKSValue(TKSNull())}) {
    talk_.texts.clear();
    talk_.launch(TKSDictionary{{"gpcsitedomain", domain}, {"gpcurlroot", "https://b.example"}});
    EXPECT_TRUE(TKSMessage::JSONStringToObject(talk_.texts.at(0))["domain"].isNothing());
  }
}

TEST_F(HandlerTest, BareHostNameMakesADomainAsItStands) {
  talk_.connect();
  talk_.texts.clear();
  talk_.launch(TKSDictionary{{"gpcsitedomain", "a.example"}});
  EXPECT_EQ(TKSMessage::JSONStringToObject(talk_.texts.at(0))["domain"], TKSValue("a.example"));
}

TEST_F(HandlerTest, EmptyDictionaryIsAParameterDictionary) {
  talk_.connect();
  talk_.texts.clear();
  talk_.launch(TKSDictionary());
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 4", "sends launch_meeting"));
  EXPECT_THAT(talk_.texts, ElementsAre(R"({"message":{},"message_type":"launch_meeting"})"));
}

TEST_F(HandlerTest, MissingParametersAreReportedAtOnceAndAgainByALaterError) {
  talk_.connect();
  talk_.texts.clear();
  talk_.launch(TKSValue());
  EXPECT_THAT(talk_.log.texts(8), ElementsAre("Launch param nil!"));
  EXPECT_THAT(talk_.events(), ElementsAre("calls launchError TKSIDefaultDomain 0 Launch param nil!", "notifies 4",
                                          "sends launch_meeting"));
  EXPECT_THAT(talk_.texts, ElementsAre(R"({"message_type":"launch_meeting"})"));
  talk_.saysError("\"refused\"");
  EXPECT_THAT(talk_.events(), ElementsAre("sends disconnect", "calls launchError TKSIDefaultDomain 0 refused"));
}

TEST_F(HandlerTest, MissingParametersWithoutAnErrorCallbackAreLogged) {
  talk_.connect();
  handler().sendLaunchMessage({}, nullptr, nullptr, nullptr);
  EXPECT_THAT(talk_.log.texts(8), ElementsAre("Launch param nil!"));
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 4", "sends launch_meeting"));
}

TEST_F(HandlerTest, LaunchWithoutAStatusCallbackIsSent) {
  talk_.connect();
  handler().notifyStatusBlock = nullptr;
  talk_.launch();
  EXPECT_THAT(talk_.events(), ElementsAre("sends launch_meeting"));
}

}  // namespace
