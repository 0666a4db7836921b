#include "tools/tksctl/doubles/rule_trials.h"

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSMessageVocabulary.h>

#include <algorithm>
#include <array>
#include <functional>
#include <utility>

#include "messaging/Frame.h"
#include "tools/tksctl/doubles/channel_files.h"
#include "tools/tksctl/doubles/trial.h"
#include "tools/tksctl/frame/json_values.h"

namespace tks::ctl {
namespace {

/// A type that no launcher can know.
constexpr std::string_view kUnheardOf = "tksctl_unheard_of";

TKSDictionary meeting() { return {{"gpcsitedomain", "https://meet.example"}, {"meetingkey", "123456789"}}; }

TKSDictionary messageOf(std::string_view type, TKSValue body = {}) {
  return {{tks_message_key_message_type, type}, {tks_message_key_message, body.isNothing() ? TKSValue(type) : body}};
}

std::string typeOf(const TKSValue& message) { return std::string(message[tks_message_key_message_type].text()); }

bool isAnswerToLaunch(const TKSValue& message) {
  const std::array answers{tks_message_type_launch_meeting_ack, tks_message_type_error, tks_message_type_update_done};
  return std::ranges::find(answers, typeOf(message)) != answers.end();
}

std::string named(const TKSValue& message) {
  return message.isDictionary() ? "\"" + oneLine(typeOf(message)) + "\"" : "what is no JSON object";
}

void judgeBody(RuleBook& book, const TKSValue& body) {
  for (const auto& [key, value] : body.dictionary()) {
    if (!value.isNumber()) continue;
    book.fail(12, "\"" + oneLine(key) + "\" is a " + std::string(value.className()),
              "Send numbers and flags as texts: \"0\" instead of 0.");
  }
}

/// Looks at what every message of a launcher has to have.
void judgeForm(RuleBook& book, const TKSValue& message) {
  constexpr std::string_view kRemedy =
      "Send objects with \"message_type\", a text, and \"message\", a text or an object.";
  if (!message.isDictionary()) {
    return book.fail(7, "a payload is no JSON object in UTF-8", std::string(kRemedy));
  }
  const TKSValue& type = message[tks_message_key_message_type];
  const TKSValue& body = message[tks_message_key_message];
  if (!type.isText()) return book.fail(8, "a message has no \"message_type\"", std::string(kRemedy));
  if (!body.isText() && !body.isDictionary()) {
    return book.fail(8, named(message) + " has no \"message\"", std::string(kRemedy));
  }
  for (const std::string_view key : {tks_message_key_token, tks_message_key_domain}) {
    const TKSValue& value = message[key];
    if (value.isNothing() || value.isText()) continue;
    book.fail(8, "\"" + std::string(key) + "\" of " + named(message) + " is no text",
              "Send it as a text or not at all.");
  }
  judgeBody(book, body);
}

/// The answer that a rule asks for did not come.
void lose(RuleBook& book, const Trial& trial, int rule, const std::string& remedy) {
  if (trial.isBroken() && !trial.isClosed()) {
    book.fail(2, trial.silence(), "Print nothing to standard output, and let no child of yours do so.");
  }
  if (trial.isInsideFrame()) {
    book.fail(5, "a frame announces more bytes than came",
              "Write the length of the payload's bytes, without its own four.");
  }
  const bool isGone = trial.hasEnded() || trial.isClosed();
  const Exit code = isGone ? Exit::brokenLauncher : trial.isBroken() ? Exit::failed : Exit::timedOut;
  book.fail(rule, trial.silence(), remedy, code);
}

/// Waits for a message of a type. False, and the rule failed, when something else comes or nothing.
bool expect(RuleBook& book, Trial& trial, int rule, std::string_view type) {
  const std::string remedy = "Answer with \"" + std::string(type) + "\", at once.";
  const std::optional<TKSValue> message = trial.next();
  if (!message) {
    lose(book, trial, rule, remedy);
    return false;
  }
  judgeForm(book, *message);
  if (typeOf(*message) == type) return true;
  book.fail(rule, "came " + named(*message), remedy);
  return false;
}

/// The rule that a fault counts for: what a launcher never does breaks one rule, wherever it shows.
int ruleFor(const RuleBook& book, int rule, int cause) { return book.hasFailed(cause) ? cause : rule; }

/// The same for an answer to "launch_meeting".
std::optional<TKSValue> expectLaunch(RuleBook& book, Trial& trial, int about) {
  const int rule = ruleFor(book, about, 14);
  const std::string remedy = "Answer with one of \"launch_meeting_ack\", \"error\" and \"host_notify\".";
  std::optional<TKSValue> message = trial.next();
  if (!message) {
    lose(book, trial, rule, remedy);
    return std::nullopt;
  }
  judgeForm(book, *message);
  if (isAnswerToLaunch(*message)) return message;
  book.fail(rule, "came " + named(*message), remedy);
  return std::nullopt;
}

void judgeRefusal(RuleBook& book, const TKSValue& message) {
  const TKSValue& body = message[tks_message_key_message];
  if (body.isText()) return book.pass(17, "a text: " + std::string(body.text()));
  const std::string code(body[tks_message_key_error_code].text());
  if (code.size() == 4 && code >= "2001" && code <= "2007") return book.pass(17, "with the code " + code);
  book.fail(17, code.empty() ? "without a code" : "with the code " + oneLine(code),
            "Send \"error_code\", \"2001\" to \"2007\", and \"error_message\".");
}

void sayGoodbye(RuleBook& book, Trial& trial, bool isUpdated) {
  trial.say(tks_message_type_disconnect);
  if (!expect(book, trial, 15, tks_message_type_disconnect_ack)) return;
  book.pass(15, "answered");
  if (!isUpdated) return book.skip(18, "it did not update itself");
  if (trial.ends()) return book.pass(18, "it quit after the goodbye");
  book.fail(18, "it runs on after \"host_notify\" and the goodbye",
            "Quit, so that the host can start the new launcher.", Exit::timedOut);
}

void launchAndLeave(RuleBook& book, Trial& trial) {
  trial.say(tks_message_type_launch_meeting, meeting());
  const std::optional<TKSValue> answer = expectLaunch(book, trial, 14);
  if (!answer) return;
  const std::optional<TKSValue> another = trial.more();
  if (another) {
    book.fail(14, named(*answer) + " and then " + named(*another), "Send one answer and no more.");
  } else {
    book.pass(14, named(*answer));
  }
  if (typeOf(*answer) == tks_message_type_error) {
    judgeRefusal(book, *answer);
  } else {
    book.skip(17, "it did not refuse");
  }
  sayGoodbye(book, trial, typeOf(*answer) == tks_message_type_update_done);
}

/// A whole conversation over pipes. False when nothing else can be asked of the launcher.
bool converse(RuleBook& book, Trial& trial) {
  if (const std::optional<TKSValue> early = trial.more()) {
    book.fail(13, "it spoke first: " + named(*early), "Wait for \"hello\".");
  }
  trial.say(tks_message_type_hello);
  if (!expect(book, trial, 13, tks_message_type_hello_ack)) return false;
  book.pass(13, "answered");
  book.pass(5, "four bytes, little-endian");
  book.pass(8, "both are there");
  book.pass(12, "they are");
  trial.say(tks_message_type_hello);
  if (!expect(book, trial, 16, tks_message_type_hello_ack)) return true;
  book.pass(16, "answered");
  trial.say(kUnheardOf);
  trial.say(tks_message_type_hello);
  if (!expect(book, trial, 11, tks_message_type_hello_ack)) return true;
  book.pass(11, "nothing was answered to it");
  launchAndLeave(book, trial);
  if (!trial.isBroken() || trial.isClosed()) book.pass(2, "nothing else was written there");
  return true;
}

bool greet(RuleBook& book, Trial& trial, int rule) {
  trial.say(tks_message_type_hello);
  return expect(book, trial, rule, tks_message_type_hello_ack);
}

/// The parameters of a launch as a text that holds JSON.
void launchByText(RuleBook& book, Trial& trial) {
  const std::string remedy = "Parse a body that is a text with \"{\" and \"}\" as JSON.";
  const std::string_view text = R"({"gpcsitedomain":"https://meet.example","meetingkey":"123456789"})";
  trial.say(tks_message_type_launch_meeting, text);
  const std::optional<TKSValue> answer = expectLaunch(book, trial, 10);
  if (!answer) return;
  if (typeOf(*answer) == tks_message_type_error) {
    // It may refuse any launch. The same as an object tells.
    trial.say(tks_message_type_launch_meeting, meeting());
    const std::optional<TKSValue> other = trial.next();
    if (other && typeOf(*other) == tks_message_type_launch_meeting_ack) {
      return book.fail(10, "it refused as a text what it launches as an object", remedy);
    }
  }
  book.pass(10, "answered with " + named(*answer));
}

/// Started without a word about the channel, which means pipes.
void converseUnnamed(RuleBook& book, Trial& trial) {
  if (!greet(book, trial, 1)) return;
  // Before and after the true name: who takes any spelling takes the first or the last.
  for (const std::string_view text : {R"({"Message_Type":"disconnect","message":"hello","message_type":"hello"})",
                                      R"({"message":"hello","message_type":"hello","Message_Type":"disconnect"})"}) {
    trial.write(Trial::frameAround(text));
    if (!expect(book, trial, ruleFor(book, 9, 16), tks_message_type_hello_ack)) return;
  }
  book.pass(9, "\"Message_Type\" is another name");
  launchByText(book, trial);
}

/// One step of the conversation over files; then the files are looked at. False when there is nothing more to ask.
bool saidOverFiles(RuleBook& book, Trial& trial, const std::function<bool()>& step) {
  RuleBook before = book;
  const bool isAnswered = step();
  const std::optional<std::string> fault = trial.fileFault();
  if (!fault) return isAnswered;
  // Silence comes of what was done to the files then.
  if (!isAnswered) book = std::move(before);
  book.fail(3, *fault, "Only append to ipcFile_TKS2Interface, only read ipcFile_Interface2TKS, and make nothing.");
  return false;
}

void converseOverFiles(RuleBook& book, Trial& trial) {
  const auto launch = [&] {
    trial.say(tks_message_type_launch_meeting, meeting());
    return expectLaunch(book, trial, 1).has_value();
  };
  const auto leave = [&] {
    trial.say(tks_message_type_disconnect);
    return expect(book, trial, ruleFor(book, 1, 15), tks_message_type_disconnect_ack);
  };
  if (!saidOverFiles(book, trial, [&] { return greet(book, trial, 1); })) return;
  book.pass(1, "over pipes, over pipes without a word, and over files");
  if (saidOverFiles(book, trial, launch) && saidOverFiles(book, trial, leave)) {
    book.pass(3, "they are as the host made them");
  }
}

/// Frames in parts, and two at a time.
void conversePiecewise(RuleBook& book, Trial& trial) {
  const std::string hello = Trial::frameOf(messageOf(tks_message_type_hello));
  for (const char byte : hello) {
    trial.write({&byte, 1});
    if (trial.hasEnded()) break;
  }
  if (!expect(book, trial, 7, tks_message_type_hello_ack)) return;
  trial.write(hello + Trial::frameOf(messageOf(tks_message_type_launch_meeting, meeting())));
  if (!expect(book, trial, ruleFor(book, 7, 16), tks_message_type_hello_ack) || !expectLaunch(book, trial, 7)) return;
  book.pass(7, "a frame byte by byte, and two at once");
}

void converseUntilTheEnd(RuleBook& book, Trial& trial) {
  if (!greet(book, trial, 4)) return;
  trial.closeItsInput();
  if (trial.ends()) return book.pass(4, "it ended with its standard input");
  book.fail(4, "it runs on after the end of its standard input", "End when the channel ends: the host is gone.",
            Exit::timedOut);
}

/// A frame of the greatest size, and one that announces more.
void converseAtLength(RuleBook& book, Trial& trial) {
  if (!greet(book, trial, 6)) return;
  const std::uint64_t largest = messaging::largestMessage();
  TKSDictionary message = messageOf(kUnheardOf, "");
  const std::size_t bare = Trial::frameOf(message).size() - messaging::kHeaderBytes;
  message.set(tks_message_key_message, std::string(largest - bare, 'x'));
  const bool isTaken = trial.write(Trial::frameOf(message));
  trial.say(tks_message_type_hello);
  if (book.hasFailed(11) || book.hasFailed(16)) return;
  if (!isTaken || !expect(book, trial, 6, tks_message_type_hello_ack)) {
    return book.fail(6, "a message of " + std::to_string(largest) + " bytes was not taken",
                     "Read frames up to that size.", Exit::timedOut);
  }
  std::array<char, messaging::kHeaderBytes> header{};
  messaging::encodeLength(static_cast<std::uint32_t>(largest + 1), header);
  trial.write({header.data(), header.size()});
  trial.write("x");
  if (trial.ends() || trial.isBroken()) return book.pass(6, "one of that size was taken, a longer one ended it");
  book.fail(6, "it waits for a payload of " + std::to_string(largest + 1) + " bytes",
            "End the conversation when a longer payload is announced.", Exit::timedOut);
}

void converseInHaste(RuleBook& book, Trial& trial) {
  if (!greet(book, trial, 20)) return;
  trial.write(Trial::frameOf(messageOf(tks_message_type_launch_meeting, meeting())) +
              Trial::frameOf(messageOf(tks_message_type_disconnect)));
  // The answer to the launch may come before, or not at all.
  for (int answers = 0; answers < 2; ++answers) {
    const std::optional<TKSValue> message = trial.next();
    if (!message) return lose(book, trial, 20, "Answer with \"disconnect_ack\" whatever is under way.");
    if (typeOf(*message) == tks_message_type_disconnect_ack) return book.pass(20, "answered during a launch");
  }
  book.fail(20, "two other messages came instead", "Answer with \"disconnect_ack\" whatever is under way.");
}

struct TrialRow {
  TrialChannel channel;
  void (*run)(RuleBook& book, Trial& trial);
};

constexpr TrialRow kTrials[] = {
    {TrialChannel::unnamed, converseUnnamed}, {TrialChannel::files, converseOverFiles},
    {TrialChannel::pipe, conversePiecewise},  {TrialChannel::pipe, converseUntilTheEnd},
    {TrialChannel::pipe, converseAtLength},   {TrialChannel::pipe, converseInHaste},
};

}  // namespace

TrialsEnd runTrials(const TrialBench& bench, TKSError* error) {
  bench.book.skip(19, "this is the host's part");
  {
    Trial first(bench.command, TrialChannel::pipe, bench.interrupts, bench.patience);
    if (!first.start(error)) return TrialsEnd::notStarted;
    const bool goesOn = converse(bench.book, first);
    if (first.wasInterrupted()) return TrialsEnd::interrupted;
    if (!goesOn) return TrialsEnd::done;
  }
  for (const TrialRow& row : kTrials) {
    Trial trial(bench.command, row.channel, bench.interrupts, bench.patience);
    if (!trial.start(error)) return TrialsEnd::notStarted;
    row.run(bench.book, trial);
    if (trial.wasInterrupted()) return TrialsEnd::interrupted;
  }
  return TrialsEnd::done;
}

}  // namespace tks::ctl
