#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tksinterface/TKSConversationObserver.h>
#include <tksinterface/TKSError.h>
#include <tksinterface/TKSValue.h>

/// A recorded conversation: JSON Lines, one object a line, in UTF-8. docs/recordings.md describes the members.
///
///   {"format":"tksinterface recording","formatVersion":1,"library":"0.1.0","time":"2026-01-31T12:00:00.000Z"}
///   {"event":"sent","direction":"toLauncher","seconds":0.012,"time":"...","channel":"pipe","length":46,
///    "type":"hello","message":{"message":"hello","message_type":"hello"}}
namespace tks::ctl {

enum class Direction : std::uint8_t { none, toLauncher, toHost };

/// One line of a recording after the first.
struct RecordedEvent {
  /// "opened", "closed", "message", "notSent", "fatalError", "started", "ended", "noMessage".
  std::string event;
  Direction direction = Direction::none;
  /// From the beginning of the recording, by a clock that never jumps.
  double seconds = 0;
  /// By the calendar: "2026-01-31T12:00:00.123Z".
  std::string time;
  /// "pipe" or "file"; empty for what happens to processes.
  std::string channel;
  /// Bytes of the payload of a message, as they were on the channel.
  std::uint64_t length = 0;
  /// What kind of message: its "message_type", or "" when it has none.
  std::string type;
  /// The whole message, masked; nothing when there is none.
  TKSValue message;
  /// Why, how, or which, masked.
  std::string note;
  std::int32_t processIdentifier = 0;

  bool isMessage() const { return event == "message"; }
};

struct Recording {
  /// Of the library that recorded.
  std::string library;
  std::string time;
  std::vector<RecordedEvent> events;
};

/// The message with everything in it masked that may be personal. What the protocol itself says stays readable: types,
/// results, codes, versions, the names of members, numbers. Any other text keeps its first three bytes at most.
TKSValue maskedMessage(const TKSValue& message);

/// An event as the library tells of it, as a line of a recording. `beginning`: when the recording began.
RecordedEvent recorded(const TKSConversationEvent& event, std::chrono::steady_clock::time_point beginning);

/// Fills in type, length and the masked message from the payload of a frame, or makes it a "noMessage" with a note.
void describePayload(RecordedEvent& event, std::string_view payload);

/// The first line of a recording that begins now, and a line for an event; each with its line end.
std::string headLine(double secondsSince1970);
std::string lineOf(const RecordedEvent& event);

/// Reads a whole recording. Nothing, and an error that names the line, when it is cut, is none, or is of a version that
/// this tool does not know.
std::optional<Recording> readRecording(std::string_view path, TKSError* error);

/// "2026-01-31T12:00:00.123Z"
std::string momentWithMilliseconds(double secondsSince1970);

}  // namespace tks::ctl
