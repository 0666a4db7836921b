#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "tools/tksctl/commands/table.h"
#include "tools/tksctl/parts/conversation.h"
#include "tools/tksctl/parts/file_host.h"
#include "tools/tksctl/parts/launch_wishes.h"
#include "tools/tksctl/recording/recorder.h"

namespace tks::ctl {
namespace {

struct Wishes : LaunchWishes {
  std::string site;
  std::vector<std::string> parameters;
  std::string parameterFile;
  std::string recording;
};

/// The launch parameters; nothing, and the reason told, when they cannot be read.
std::optional<TKSDictionary> readParameters(const Wishes& wishes, Output& out, Exit& code) {
  TKSDictionary parameters;
  if (!wishes.parameterFile.empty()) {
    std::ifstream file(wishes.parameterFile, std::ios::binary);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    TKSError error;
    const TKSValue read = file ? TKSUtilBase::JSONStringToObject(text, &error) : TKSValue();
    if (!read.isDictionary()) {
      const std::string why = !file ? "cannot be read" : "is no JSON object";
      code = out.fail(Exit::failed, wishes.parameterFile + " " + why);
      return std::nullopt;
    }
    parameters = read.dictionary();
  }
  for (const std::string& parameter : wishes.parameters) {
    const std::size_t sign = parameter.find('=');
    if (sign == std::string::npos || sign == 0) {
      code = out.fail(Exit::usage, "\"" + parameter + "\" is no KEY=VALUE");
      return std::nullopt;
    }
    parameters.set(parameter.substr(0, sign), parameter.substr(sign + 1));
  }
  if (!wishes.site.empty()) parameters.set(tks_param_key_gpcsitedomain, wishes.site);
  return parameters;
}

/// The recorder that was asked for, at work; false when it cannot be.
bool beginRecording(const Wishes& wishes, Output& out, std::unique_ptr<Recorder>& recorder, Exit& code) {
  if (wishes.recording.empty()) return true;
  TKSError error;
  recorder = Recorder::create(wishes.recording, &error);
  if (recorder) {
    recorder->watch();
  } else {
    code = out.fail(error);
  }
  return recorder != nullptr;
}

/// What the callbacks leave.
struct Result {
  bool isOver = false;
  std::optional<TKSError> error;
};

Exit judge(Context& context, Interrupts::End end, const Result& result, int timeout) {
  switch (end) {
    case Interrupts::End::interrupted:
      return context.out.fail(Exit::interrupted, "interrupted");
    case Interrupts::End::timedOut:
      return context.out.fail(Exit::timedOut, "no answer within " + std::to_string(timeout) + " s",
                              "See where it stops: tksctl doctor.");
    default:
      break;
  }
  if (result.error) return context.out.fail(*result.error, "the meeting was not launched");
  context.out.note("the meeting was launched");
  return Exit::ok;
}

Exit launch(Context& context, const Wishes& wishes) {
  Exit code = Exit::ok;
  const std::optional<TKSDictionary> parameters = readParameters(wishes, context.out, code);
  if (!parameters) return code;
  std::optional<ActsAsFileHost> fileHost;
  if (wishes.files) fileHost.emplace();
  TKSInterface facade;
  if (const auto refused = apply(wishes, facade, context.out)) return *refused;
  context.interrupts.hold();
  const ConversationView view(context.out);
  std::unique_ptr<Recorder> recorder;
  if (!beginRecording(wishes, context.out, recorder, code)) return code;
  const auto result = std::make_shared<Result>();
  facade.launchMeetingWithParam(
      *parameters, [result] { result->isOver = true; },
      [result](const TKSError& error) {
        if (!result->isOver) result->error = error;
        result->isOver = true;
      });
  const auto end = context.interrupts.runUntil([&] { return result->isOver; }, std::chrono::seconds(wishes.timeout));
  if (end == Interrupts::End::done && !result->error) {
    // The two ends say goodbye after the launch.
    constexpr std::chrono::seconds kGoodbye{10};
    context.interrupts.runUntil([&] { return !facade.isTKSAppProcessing() && !facade.isTKSAppSuspending(); }, kGoodbye);
  } else if (end != Interrupts::End::done) {
    endConversation(facade, context.interrupts);
  }
  context.out.set("launched", end == Interrupts::End::done && !result->error);
  context.out.set("events", view.events());
  if (recorder && !recorder->isWhole()) context.out.warn("the recording could not be written whole");
  return judge(context, end, *result, wishes.timeout);
}

}  // namespace

Command launchCommand() {
  return {
      .name = "launch",
      .summary = "launches a meeting as a host does, and shows the conversation",
      .description =
          "Refreshes the launcher from an archive when that is newer, starts it, greets it, asks for the meeting and "
          "says goodbye. Each message is shown as it goes, with the seconds since the beginning, masked, and recorded "
          "where that is asked for.\n\n"
          "It is a host like any other: a launcher that does not start and is found broken is removed. Look at a "
          "launcher of your own with tksctl doctor first.",
      .examples = {{"tksctl launch --site https://meet.example --param meetingkey=123456789", "A meeting."},
                   {"tksctl launch --record talk.jsonl", "Records the conversation; tksctl diagram draws it."},
                   {"tksctl launch --param-file meeting.json --files", "Parameters from a file, over files."}},
      .setUp = [](const CommandLine& line) -> Action {
        auto wishes = std::make_shared<Wishes>();
        line.option("--site", wishes->site, "The site of the meeting").typeName("URL");
        line.option("--param", wishes->parameters, "A launch parameter; may be given several times")
            .typeName("KEY=VALUE")
            .oneWordEach();
        line.option("--param-file", wishes->parameterFile, "A JSON object of launch parameters").typeName("JSON");
        line.option("--record", wishes->recording, "A file to record the conversation in, made new").typeName("FILE");
        addLaunchOptions(line, *wishes);
        return [wishes](Context& context) { return launch(context, *wishes); };
      }};
}

}  // namespace tks::ctl
