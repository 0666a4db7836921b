#include <array>
#include <cstdio>

#include "tools/tksctl/diagram/diagram.h"
#include "tools/tksctl/frame/json_values.h"

namespace tks::ctl {
namespace {

struct Words {
  std::string_view event;
  std::string_view words;
};

constexpr Words kWords[] = {{"opened", "channel opened"},    {"closed", "channel closed"},
                            {"notSent", "not sent"},         {"fatalError", "fatal error"},
                            {"started", "launcher started"}, {"ended", "launcher ended"},
                            {"noMessage", "not understood"}};

std::string wordsFor(std::string_view event) {
  for (const Words& each : kWords) {
    if (each.event == event) return std::string(each.words);
  }
  return std::string(event);
}

}  // namespace

std::span<const DiagramFormat> diagramFormats() {
  static constexpr std::array<DiagramFormat, 4> formats{
      {{"text", textDiagram}, {"mermaid", mermaidDiagram}, {"svg", svgDiagram}, {"html", htmlDiagram}}};
  return formats;
}

std::string labelOf(const RecordedEvent& event) {
  if (event.isMessage()) return event.type.empty() ? "(no type)" : oneLine(event.type);
  std::string label = wordsFor(event.event);
  if (event.processIdentifier != 0) label += ", process " + std::to_string(event.processIdentifier);
  if (!event.note.empty()) label += ": " + oneLine(event.note);
  return label;
}

std::string secondsOf(const RecordedEvent& event) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f s", event.seconds);
  return text;
}

std::string sizeOf(std::uint64_t bytes) {
  constexpr std::uint64_t kStep = 1024;
  if (bytes < kStep) return std::to_string(bytes) + " B";
  char text[32];
  const bool isLarge = bytes >= kStep * kStep;
  std::snprintf(text, sizeof text, "%.1f %s",
                static_cast<double>(bytes) / static_cast<double>(isLarge ? kStep * kStep : kStep),
                isLarge ? "MiB" : "KiB");
  return text;
}

std::string escaped(std::string_view text) {
  std::string made;
  for (const char byte : validText(text)) {
    switch (byte) {
      case '&':
        made += "&amp;";
        break;
      case '<':
        made += "&lt;";
        break;
      case '>':
        made += "&gt;";
        break;
      case '"':
        made += "&quot;";
        break;
      case '\'':
        made += "&#39;";
        break;
      default:
        // XML has no other control characters.
        made += static_cast<unsigned char>(byte) < 0x20 && byte != '\n' && byte != '\t' ? ' ' : byte;
    }
  }
  return made;
}

}  // namespace tks::ctl
