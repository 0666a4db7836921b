#include "tools/tksctl/recording/replay.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <tksinterface/MaskSensitiveInformation.h>
#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSMessageVocabulary.h>

#include "foundation/values/JsonWriter.h"
#include "tools/tksctl/frame/json_values.h"

namespace tks::ctl {
namespace {

/// For what is sent last to leave this process.
constexpr std::chrono::milliseconds kLastWords{50};
/// Longer pauses of a recording are not waited out.
constexpr std::chrono::duration<double> kLongestPause{60};

std::optional<std::string> optionalText(const TKSValue& value) {
  if (!value.isText()) return std::nullopt;
  return std::string(value.text());
}

TKSMessage messageOf(const RecordedEvent& event) {
  const TKSDictionary& members = event.message.dictionary();
  TKSMessage message;
  message.messageType = optionalText(members[tks_message_key_message_type]);
  message.token = optionalText(members[tks_message_key_token]);
  message.domain = optionalText(members[tks_message_key_domain]);
  message.message = members[tks_message_key_message];
  return message;
}

std::string shown(const TKSValue& message) { return json::write(jsonable(message)).value_or("null"); }

}  // namespace

Replay::Replay(const Recording& recording, const ReplayOptions& options, Interrupts& interrupts)
    : recording_(recording),
      options_(options),
      interrupts_(interrupts),
      channel_(options.asLauncher ? tksMessageHostTypeTKS : tksMessageHostTypeInterface) {
  // The payload as it came: the delegate gets a message that was put in order already.
  TKSConversationObserver::observe([this](const TKSConversationEvent& event) {
    if (event.kind != TKSConversationEvent::Kind::received) return;
    RecordedEvent heard;
    describePayload(heard, event.text);
    heard_.push_back(std::move(heard));
  });
  channel_.openWithMessengeHandler(this);
}

Replay::~Replay() {
  TKSConversationObserver::observe(nullptr);
  channel_.close();
}

void Replay::handleMessage(const TKSMessage&, TKSMessageHandlerDelegate*) {}

void Replay::handleMessageHostFatalError(const std::string& description) {
  if (!broken_) broken_ = MaskSensitiveInformation::removeSensitiveInformation(description);
}

bool Replay::isOurs(const RecordedEvent& event) const {
  return event.direction == (options_.asLauncher ? Direction::toHost : Direction::toLauncher);
}

ReplayResult Replay::run() {
  double last = recording_.events.empty() ? 0 : recording_.events.front().seconds;
  for (std::size_t at = 0; at < recording_.events.size(); ++at) {
    const RecordedEvent& event = recording_.events[at];
    if (!event.isMessage()) continue;
    const std::chrono::duration<double> since(std::max(0.0, event.seconds - std::exchange(last, event.seconds)));
    if (!isOurs(event)) {
      if (!expect(event, at + 1)) return result_;
      continue;
    }
    if (!pause(since)) return result_;
    channel_.sendMessage(messageOf(event));
    ++result_.sent;
  }
  pause(kLastWords);
  return result_;
}

/// False when the replay is over meanwhile.
bool Replay::pause(std::chrono::duration<double> time) {
  if (options_.speed <= 0) time = {};
  const auto scaled = std::min(options_.speed > 0 ? time / options_.speed : time, kLongestPause);
  const auto limit = std::chrono::ceil<std::chrono::milliseconds>(scaled);
  return stopFor(interrupts_.runUntil([] { return false; }, limit));
}

bool Replay::stopFor(Interrupts::End end) {
  if (end != Interrupts::End::interrupted) return true;
  result_.outcome = ReplayResult::Outcome::interrupted;
  return false;
}

bool Replay::expect(const RecordedEvent& event, std::size_t number) {
  const auto isThere = [this] { return !heard_.empty() || broken_.has_value(); };
  const Interrupts::End end = interrupts_.runUntil(isThere, options_.patience);
  if (!stopFor(end)) return false;
  if (heard_.empty()) {
    differ(event, number, broken_ ? "the channel broke: " + *broken_ : std::string("nothing came"));
    if (!broken_) result_.outcome = ReplayResult::Outcome::timedOut;
    return false;
  }
  const RecordedEvent heard = std::move(heard_.front());
  heard_.pop_front();
  ++result_.received;
  if (heard.message == event.message) return true;
  differ(event, number,
         heard.type != event.type || !heard.isMessage()
             ? "came " + (heard.isMessage() ? oneLine(heard.type) : heard.note)
             : "it was " + shown(event.message) + ", it is " + shown(heard.message));
  return false;
}

void Replay::differ(const RecordedEvent& event, std::size_t number, const std::string& how) {
  result_.outcome = ReplayResult::Outcome::different;
  // The first line of a recording is not an event.
  result_.difference = "line " + std::to_string(number + 1) + ": expected " + oneLine(event.type) + ", " + how;
}

}  // namespace tks::ctl
