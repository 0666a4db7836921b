#include <tksinterface/TKSIMessageHandler.h>
#include <tksinterface/TKSMessage.h>
#include <tksinterface/TKSUtilBase.h>
#include <unistd.h>

#include <memory>

#include "tools/tksctl/commands/table.h"
#include "tools/tksctl/parts/conversation.h"
#include "tools/tksctl/parts/file_host.h"
#include "tools/tksctl/parts/launch_wishes.h"

namespace tks::ctl {
namespace {

/// Lines from a descriptor, as they come.
class LineReader {
 public:
  explicit LineReader(int descriptor) : descriptor_(descriptor) {}

  void read() {
    char piece[4096];
    const ssize_t count = ::read(descriptor_, piece, sizeof piece);
    if (count <= 0) isAtEnd_ = true;
    if (count > 0) held_.append(piece, static_cast<std::size_t>(count));
  }

  std::optional<std::string> take() {
    const std::size_t end = held_.find('\n');
    if (end == std::string::npos) {
      if (!isAtEnd_ || held_.empty()) return std::nullopt;
      return std::exchange(held_, {});
    }
    std::string line = held_.substr(0, end);
    held_.erase(0, end + 1);
    return line;
  }

  bool isAtEnd() const { return isAtEnd_ && held_.empty(); }
  int descriptor() const { return isAtEnd_ ? -1 : descriptor_; }

 private:
  int descriptor_;
  bool isAtEnd_ = false;
  std::string held_;
};

class Talk {
 public:
  Talk(Context& context, TKSInterface& facade) : context_(context), facade_(facade) {}

  /// What a line asks for; false for "quit".
  bool handle(std::string line) {
    if (line.empty()) return true;
    if (line == "quit") return false;
    if (line == "history") return showHistory();
    if (line.front() == '!') {
      const std::size_t number = std::strtoul(line.c_str() + 1, nullptr, 10);
      if (number == 0 || number > history_.size()) return complain("there is no line " + line.substr(1));
      line = history_[number - 1];
    }
    history_.push_back(line);
    return send(line);
  }

 private:
  bool showHistory() {
    for (std::size_t at = 0; at < history_.size(); ++at)
      context_.out.note(std::to_string(at + 1) + "  " + history_[at]);
    return true;
  }

  bool complain(const std::string& problem) {
    context_.out.warn(problem);
    return true;
  }

  /// A line is a message as JSON, or the name of one with an empty body.
  bool send(const std::string& line) {
    TKSMessage message;
    TKSError error;
    if (line.front() != '{') {
      message.messageType = line;
      message.message = "";
    } else if (!message.parseJSONString(line, &error)) {
      return complain("not sent: " + error.localizedDescription);
    }
    facade_.messageHandler->messageHost->sendMessage(message);
    return true;
  }

  Context& context_;
  TKSInterface& facade_;
  std::vector<std::string> history_;
};

/// Starts the launcher; a code when that fails.
std::optional<Exit> start(Context& context, TKSInterface& facade, int timeout) {
  auto isOver = std::make_shared<bool>(false);
  auto problem = std::make_shared<std::optional<TKSError>>();
  facade.start([isOver] { *isOver = true; },
               [isOver, problem](const TKSError& error) {
                 *problem = error;
                 *isOver = true;
               });
  const auto end = context.interrupts.runUntil([&] { return *isOver; }, std::chrono::seconds(timeout));
  if (end == Interrupts::End::interrupted) return context.out.fail(Exit::interrupted, "interrupted");
  if (end == Interrupts::End::timedOut) return context.out.fail(Exit::timedOut, "the launcher does not answer");
  if (*problem) return context.out.fail(**problem, "the launcher was not started");
  return std::nullopt;
}

Exit talk(Context& context, const LaunchWishes& wishes) {
  if (context.noInput)
    return context.out.fail(Exit::usage, "talk reads what is typed; it cannot be used with --no-input");
  std::optional<ActsAsFileHost> fileHost;
  if (wishes.files) fileHost.emplace();
  TKSInterface facade;
  if (const auto refused = apply(wishes, facade, context.out)) return *refused;
  context.interrupts.hold();
  LineReader lines(TKSUtilBase::originalStandardInput());
  const ConversationView view(context.out);
  std::optional<Exit> code = start(context, facade, wishes.timeout);
  if (!code) context.out.note("connected; type messages as JSON, or hello, history, !N, quit");
  Talk typed(context, facade);
  while (!code) {
    std::optional<std::string> line;
    const auto isDone = [&] {
      return !facade.messageHandler->messageHost->isOpened || lines.isAtEnd() || (line = lines.take()).has_value();
    };
    constexpr std::chrono::hours kLong{24};
    const auto end = context.interrupts.runUntil(isDone, kLong, lines.descriptor(), [&] { lines.read(); });
    if (end == Interrupts::End::interrupted) code = context.out.fail(Exit::interrupted, "interrupted");
    const bool goesOn = end == Interrupts::End::done && line && typed.handle(*line);
    if (!code && !goesOn) code = Exit::ok;
  }
  endConversation(facade, context.interrupts);
  context.out.set("events", view.events());
  return *code;
}

}  // namespace

Command talkCommand() {
  return {.name = "talk",
          .summary = "starts a launcher and sends it what you type",
          .description =
              "Each line is a message as JSON, as {\"message_type\": \"hello\", \"message\": {}}, or the name of a "
              "message without a body. history lists what was typed, !3 sends the third line again, quit or the "
              "end of the input says goodbye. What the launcher sends is shown as it comes.",
          .examples = {{"tksctl talk --launcher build/Launcher.app", "Talk to a launcher under development."},
                       {"printf 'hello\\n' | tksctl talk", "A conversation in a script."}},
          .setUp = [](const CommandLine& line) -> Action {
            auto wishes = std::make_shared<LaunchWishes>();
            addLaunchOptions(line, *wishes);
            return [wishes](Context& context) { return talk(context, *wishes); };
          }};
}

}  // namespace tks::ctl
