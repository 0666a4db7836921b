#include "tools/tksctl/recording/replay.h"

#include <memory>
#include <string>
#include <vector>

#include "tools/tksctl/commands/table.h"
#include "tools/tksctl/recording/joined_command.h"

namespace tks::ctl {
namespace {

struct ReplayWords {
  std::string file;
  std::string side;
  double speed = 1;
  double seconds = 10;
  std::vector<std::string> command;
};

struct OutcomeRow {
  ReplayResult::Outcome outcome;
  std::string_view name;
  Exit code;
};

constexpr OutcomeRow kOutcomes[] = {{ReplayResult::Outcome::same, "same", Exit::ok},
                                    {ReplayResult::Outcome::different, "different", Exit::failed},
                                    {ReplayResult::Outcome::timedOut, "timedOut", Exit::timedOut},
                                    {ReplayResult::Outcome::interrupted, "interrupted", Exit::interrupted}};

Exit report(Context& context, const ReplayResult& result) {
  const OutcomeRow& row = kOutcomes[static_cast<std::size_t>(result.outcome)];
  context.out.set("outcome", row.name);
  context.out.set("sent", static_cast<std::int64_t>(result.sent));
  context.out.set("received", static_cast<std::int64_t>(result.received));
  if (!result.difference.empty()) return context.out.fail(row.code, result.difference);
  if (row.code == Exit::ok) {
    context.out.note("no difference: " + std::to_string(result.sent) + " messages sent, " +
                     std::to_string(result.received) + " received");
  }
  return row.code;
}

Exit replay(Context& context, const ReplayWords& words) {
  TKSError error;
  const std::optional<Recording> recording = readRecording(words.file, &error);
  if (!recording) return context.out.fail(Exit::failed, error);
  const bool asLauncher = words.side == "launcher";
  if (!asLauncher && words.command.empty()) {
    return context.out.fail(Exit::usage, "name the launcher's executable and its arguments after --");
  }
  if (asLauncher && context.out.isJson()) {
    return context.out.fail(Exit::usage, "standard output carries the conversation, not --json");
  }
  context.interrupts.hold();
  JoinedCommand command;
  if (!asLauncher && !command.start(words.command, &error)) return context.out.fail(Exit::brokenLauncher, error);
  ReplayResult result;
  {
    const ReplayOptions options{asLauncher, words.speed,
                                std::chrono::milliseconds(static_cast<std::int64_t>(words.seconds * 1000))};
    result = Replay(*recording, options, context.interrupts).run();
  }
  if (!asLauncher) command.end(context.interrupts);
  return report(context, result);
}

}  // namespace

Command replayCommand() {
  return {
      .name = "replay",
      .summary = "plays one side of a recorded conversation against a real other side",
      .description =
          "Sends what that side sent, with the pauses that it made, waits for what it received, and reports the first "
          "difference. Messages are compared as recordings have them: masked. As host it starts the launcher's "
          "executable, which is named after --, over pipes. As launcher it is started by a host in the launcher's "
          "place; the arguments that the host gives follow after --, so that it talks over pipes or files as asked.",
      .examples = {{"tksctl replay talk.jsonl --as host -- ./Launcher -Communicate Pipe",
                    "Asks a launcher the same again."},
                   {"tksctl replay talk.jsonl --as launcher --speed 0 -- \"$@\"",
                    "In a script that stands in for a launcher."}},
      .setUp = [](const CommandLine& line) -> Action {
        auto words = std::make_shared<ReplayWords>();
        line.option("file", words->file, "a recording made by record or by launch --record")
            .required()
            .typeName("FILE");
        line.option("--as", words->side, "the side to play: launcher or host")
            .required()
            .typeName("SIDE")
            .oneOf({"launcher", "host"});
        line.option("--speed", words->speed, "how many times as fast as recorded; 0 makes no pauses; 1 unless told")
            .typeName("N")
            .between(0.0, 1e6);
        line.option("--wait", words->seconds, "seconds to wait for each message; 10 unless told")
            .typeName("SECONDS")
            .between(0.001, 86400.0);
        line.option("command", words->command, "after --: the launcher, or what the host gave as arguments")
            .typeName("COMMAND");
        return [words](Context& context) { return replay(context, *words); };
      }};
}

}  // namespace tks::ctl
