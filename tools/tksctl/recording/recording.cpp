#include "tools/tksctl/recording/recording.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <system_error>
#include <utility>

#include <tksinterface/MaskSensitiveInformation.h>
#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSMessage.h>
#include <tksinterface/TKSMessageVocabulary.h>

#include "BuildValues.h"
#include "foundation/values/JsonWriter.h"
#include "tools/tksctl/frame/exit_codes.h"
#include "tools/tksctl/frame/json_values.h"

namespace tks::ctl {
namespace {

constexpr std::string_view kFormat = "tksinterface recording";
constexpr std::int64_t kFormatVersion = 1;
/// More is no recording of a conversation that anybody could look at.
constexpr std::streamoff kLargestFile = std::streamoff{1} << 30;

constexpr std::string_view directionName(Direction direction) {
  switch (direction) {
    case Direction::toLauncher:
      return "toLauncher";
    case Direction::toHost:
      return "toHost";
    case Direction::none:
      break;
  }
  return {};
}

Direction directionOf(std::string_view name) {
  for (const Direction direction : {Direction::toLauncher, Direction::toHost}) {
    if (directionName(direction) == name) return direction;
  }
  return Direction::none;
}

std::string_view eventName(TKSConversationEvent::Kind kind) {
  using Kind = TKSConversationEvent::Kind;
  switch (kind) {
    case Kind::opened:
      return "opened";
    case Kind::closed:
      return "closed";
    case Kind::sent:
    case Kind::received:
      return "message";
    case Kind::notSent:
      return "notSent";
    case Kind::fatalError:
      return "fatalError";
    case Kind::started:
      return "started";
    case Kind::ended:
      return "ended";
  }
  return {};
}

/// Which way a message goes that this side sends or receives.
Direction directionFor(const TKSConversationEvent& event) {
  using Kind = TKSConversationEvent::Kind;
  if (event.kind != Kind::sent && event.kind != Kind::received && event.kind != Kind::notSent) return Direction::none;
  const bool byInterface = event.side == tksMessageHostTypeInterface;
  const bool leaves = event.kind != Kind::received;
  return byInterface == leaves ? Direction::toLauncher : Direction::toHost;
}

std::string jsonLine(const TKSDictionary& members) { return json::write(jsonable(members)).value_or("{}") + "\n"; }

void fail(TKSError* error, std::string text) {
  if (error != nullptr) *error = toolError(Exit::failed, std::move(text));
}

double numberOf(const TKSValue& value) { return value.isNumber() ? value.real() : 0; }

/// A file that somebody else wrote may say anything: what is no process identifier counts as none.
std::int32_t processIdentifierOf(const TKSValue& value) {
  const std::int64_t number = value.isInteger() && !value.isUnsignedInteger() ? value.integer() : 0;
  return number > 0 && number <= std::numeric_limits<std::int32_t>::max() ? static_cast<std::int32_t>(number) : 0;
}

std::optional<RecordedEvent> eventOf(const TKSValue& line) {
  if (!line.isDictionary()) return std::nullopt;
  const TKSDictionary& members = line.dictionary();
  RecordedEvent event;
  event.event = members["event"].text();
  event.direction = directionOf(members["direction"].text());
  event.seconds = numberOf(members["seconds"]);
  event.time = members["time"].text();
  event.channel = members["channel"].text();
  event.length = members["length"].unsignedInteger();
  event.type = members["type"].text();
  event.message = members["message"];
  event.note = members["note"].text();
  event.processIdentifier = processIdentifierOf(members["pid"]);
  if (event.event.empty() || (event.isMessage() && event.direction == Direction::none)) return std::nullopt;
  return event;
}

/// Reads the first line; false, and an error, when it is not that of a recording.
bool readHead(const std::string& line, std::string_view path, Recording& recording, TKSError* error) {
  const TKSValue head = TKSMessage::JSONStringToObject(line);
  if (!head.isDictionary() || head.dictionary()["format"].text() != kFormat) {
    fail(error, std::string(path) + " is no recording of a conversation");
    return false;
  }
  const double version = numberOf(head.dictionary()["formatVersion"]);
  if (version != kFormatVersion) {
    fail(error, std::string(path) + " is a recording in a format of another version than " +
                    std::to_string(kFormatVersion) + ", which this tool reads");
    return false;
  }
  recording.library = head.dictionary()["library"].text();
  recording.time = head.dictionary()["time"].text();
  return true;
}

}  // namespace

std::string momentWithMilliseconds(double secondsSince1970) {
  std::string text = momentText(secondsSince1970);
  if (!text.ends_with('Z')) return text;
  char fraction[8];
  const double part = secondsSince1970 - std::floor(secondsSince1970);
  std::snprintf(fraction, sizeof fraction, ".%03dZ", static_cast<int>(part * 1000));
  return text.replace(text.size() - 1, 1, fraction);
}

void describePayload(RecordedEvent& event, std::string_view payload) {
  event.length = payload.size();
  const TKSValue message = TKSMessage::JSONStringToObject(payload);
  if (!message.isDictionary()) {
    event.event = "noMessage";
    event.note = "no JSON object";
    return;
  }
  event.event = "message";
  event.type = message.dictionary()[tks_message_key_message_type].text();
  event.message = maskedMessage(message);
}

RecordedEvent recorded(const TKSConversationEvent& event, std::chrono::steady_clock::time_point beginning) {
  using Kind = TKSConversationEvent::Kind;
  const bool isProcess = event.kind == Kind::started || event.kind == Kind::ended;
  RecordedEvent made;
  made.event = eventName(event.kind);
  made.direction = directionFor(event);
  made.seconds = std::chrono::duration<double>(event.time - beginning).count();
  made.time = momentWithMilliseconds(event.secondsSince1970);
  made.channel = isProcess ? "" : event.byFile ? "file" : "pipe";
  made.processIdentifier = event.processIdentifier;
  if (made.isMessage()) {
    describePayload(made, event.text);
  } else {
    made.note = MaskSensitiveInformation::removeSensitiveInformation(event.text);
  }
  return made;
}

std::string headLine(double secondsSince1970) {
  return jsonLine({{"format", kFormat},
                   {"formatVersion", kFormatVersion},
                   {"library", TKS_PROJECT_VERSION},
                   {"time", momentWithMilliseconds(secondsSince1970)}});
}

std::string lineOf(const RecordedEvent& event) {
  TKSDictionary members{{"event", event.event}, {"seconds", event.seconds}, {"time", event.time}};
  const auto add = [&](std::string_view key, const std::string& text) {
    if (!text.empty()) members.set(key, text);
  };
  add("direction", std::string(directionName(event.direction)));
  add("channel", event.channel);
  add("type", event.type);
  add("note", event.note);
  if (!event.message.isNothing()) members.set("message", event.message);
  if (event.isMessage() || event.event == "noMessage") members.set("length", event.length);
  if (event.processIdentifier != 0) members.set("pid", event.processIdentifier);
  return jsonLine(members);
}

std::optional<Recording> readRecording(std::string_view path, TKSError* error) {
  std::ifstream file{std::string(path), std::ios::binary | std::ios::ate};
  std::error_code ignored;
  const bool isFile = file && std::filesystem::is_regular_file(path, ignored);
  const std::streamoff size = isFile ? static_cast<std::streamoff>(file.tellg()) : -1;
  if (size < 0 || size > kLargestFile) {
    fail(error, std::string(size < 0 ? "cannot read " : "too large for a recording: ").append(path));
    return std::nullopt;
  }
  file.seekg(0);
  Recording recording;
  std::string line;
  std::getline(file, line);
  if (!readHead(line, path, recording, error)) return std::nullopt;
  for (std::size_t number = 2; std::getline(file, line); ++number) {
    std::optional<RecordedEvent> event = eventOf(TKSMessage::JSONStringToObject(line));
    if (!event || file.eof()) {
      fail(error, std::string(path) + ": line " + std::to_string(number) +
                      (file.eof() ? " is cut: the recording was not finished" : " is no event of a recording"));
      return std::nullopt;
    }
    recording.events.push_back(std::move(*event));
  }
  return recording;
}

}  // namespace tks::ctl
