#include <fcntl.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "tools/tksctl/commands/table.h"
#include "tools/tksctl/recording/joined_command.h"
#include "tools/tksctl/recording/passage.h"

// Stands between a host and its launcher: what comes from either is passed on at once and written down.

namespace tks::ctl {
namespace {

constexpr std::chrono::hours kNoLimit{24 * 365};

struct RecordOptions {
  std::string file;
  std::vector<std::string> command;
};

RecordedEvent aboutProcess(std::string_view event, std::string note, const JoinedCommand& command) {
  RecordedEvent made;
  made.event = event;
  made.note = TKSILog::removeSensitiveInformation(note);
  made.processIdentifier = command.processIdentifier();
  return made;
}

/// Gives the ends of the pipes to the passages alone: each side learns of the other's end by the end of its input.
void letGoOfStandardHandles() {
  const posix::FileDescriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
  ::dup2(nothing.get(), STDIN_FILENO);
  ::dup2(nothing.get(), STDOUT_FILENO);
}

Interrupts::End passOn(Context& context, JoinedCommand& command, Recorder& recorder) {
  Passage toLauncher(TKSUtilBase::originalStandardInput(), STDOUT_FILENO, Direction::toLauncher, recorder);
  Passage toHost(STDIN_FILENO, TKSUtilBase::originalStandardOutput(), Direction::toHost, recorder);
  letGoOfStandardHandles();
  int stop[2];
  if (::pipe2(stop, O_CLOEXEC) != 0) return Interrupts::End::timedOut;
  posix::FileDescriptor stopped(stop[0]);
  posix::FileDescriptor running(stop[1]);
  std::thread there([&] { toLauncher.run(stopped.get()); });
  std::thread back([&] { toHost.run(stopped.get()); });
  const Interrupts::End end = context.interrupts.runUntil([&] { return command.hasEnded(); }, kNoLimit);
  command.end(context.interrupts);
  running.reset();
  there.join();
  back.join();
  return end;
}

Exit record(Context& context, const RecordOptions& options) {
  if (context.out.isJson())
    return context.out.fail(Exit::usage, "standard output carries the conversation, not --json");
  TKSError error;
  const auto recorder = Recorder::create(options.file, &error);
  if (!recorder) return context.out.fail(error);
  TKSUtilBase::originalStandardInput();
  context.interrupts.hold();
  JoinedCommand command;
  if (!command.start(options.command, &error)) return context.out.fail(Exit::brokenLauncher, error);
  recorder->add(aboutProcess("started", command.executable(), command));
  const Interrupts::End end = passOn(context, command, *recorder);
  recorder->add(aboutProcess("ended", command.endInWords(), command));
  if (!recorder->isWhole()) return context.out.fail(Exit::failed, "the recording could not be written whole");
  if (end == Interrupts::End::interrupted) return Exit::interrupted;
  if (command.succeeded()) return Exit::ok;
  return context.out.fail(Exit::brokenLauncher, "the command ended with " + command.endInWords());
}

}  // namespace

Command recordCommand() {
  return {
      .name = "record",
      .summary = "runs a launcher and records its conversation with its host",
      .description =
          "Stands between a host and a launcher that talk over pipes: runs the command with its standard input "
          "and output passed on byte for byte, and writes each message with its time as a line of JSON. Let the host "
          "start it in the launcher's place. Personal data is masked: of texts that the protocol does not know, three "
          "bytes are kept. Standard output carries the conversation, so there is no JSON document.\n\n"
          "What talks over files is recorded by launch --record.",
      .examples = {{"tksctl record talk.jsonl -- ./Launcher -Communicate Pipe", "Records what a host says to it."},
                   {"tksctl diagram talk.jsonl", "Shows the conversation."}},
      .setUp = [](const CommandLine& line) -> Action {
        auto options = std::make_shared<RecordOptions>();
        line.option("file", options->file, "the recording, which is made new").required().typeName("FILE");
        line.option("command", options->command, "the launcher's executable and its arguments, after --")
            .required()
            .typeName("COMMAND");
        return [options](Context& context) { return record(context, *options); };
      }};
}

}  // namespace tks::ctl
