#include <filesystem>
#include <string>

#include "tests/fuzz/Require.h"
#include "tests/support/TemporaryFolder.h"
#include "tools/tksctl/diagram/diagram.h"
#include "tools/tksctl/recording/frames.h"
#include "tools/tksctl/recording/recording.h"

// Any bytes as a recorded conversation, which others send to us: it is refused with a reason that names it, or read,
// drawn in every form, and written again with the same events. And any bytes as what passes between a host and a
// launcher.

namespace {

using namespace tks::ctl;
using tks::fuzz::require;

std::string written(const Recording& recording) {
  std::string text = headLine(0);
  for (const RecordedEvent& event : recording.events) text += lineOf(event);
  return text;
}

void expectSameEvents(const Recording& left, const Recording& right) {
  require(left.events.size() == right.events.size());
  for (std::size_t i = 0; i < left.events.size(); ++i) require(lineOf(left.events[i]) == lineOf(right.events[i]));
}

void watch(std::string_view bytes) {
  std::size_t found = 0;
  int lost = 0;
  FrameFinder frames(
      [&](std::string_view payload) {
        require(lost == 0);
        found += payload.size() + 4;
        RecordedEvent event;
        describePayload(event, payload);
        require(event.length == payload.size() && !event.event.empty());
      },
      [&](std::string_view why) {
        require(!why.empty());
        ++lost;
      });
  for (std::size_t at = 0; at < bytes.size(); at += 7) frames.take(bytes.substr(at, 7));
  frames.end();
  require(found <= bytes.size() && lost <= 1 && (lost == 1) == (found < bytes.size()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const tks::test::TemporaryFolder folder;
  const std::string path = folder / "talk.jsonl";
  const std::string_view content = tks::fuzz::textOf(data, size);
  watch(content);
  tks::test::writeFile(path, content);
  TKSError error;
  const std::optional<Recording> recording = readRecording(path, &error);
  require(recording.has_value() == error.localizedDescription.empty());
  if (!recording) {
    require(error.localizedDescription.find(path) != std::string::npos);
    return 0;
  }
  for (const DiagramFormat& format : diagramFormats()) require(!format.draw(*recording).empty());
  tks::test::writeFile(path, written(*recording));
  const std::optional<Recording> again = readRecording(path, &error);
  require(again.has_value());
  expectSameEvents(*recording, *again);
  return 0;
}
