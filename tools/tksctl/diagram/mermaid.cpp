#include "tools/tksctl/diagram/diagram.h"

namespace tks::ctl {
namespace {

/// Without what means something in the language of the diagram.
std::string plain(std::string text) {
  for (char& byte : text) {
    if (byte == ';' || byte == '#' || byte == '<' || byte == '>') byte = ' ';
  }
  return text;
}

std::string row(const RecordedEvent& event) {
  if (!event.isMessage()) return "  Note over H,L: " + secondsOf(event) + " " + plain(labelOf(event)) + "\n";
  const std::string arrow = event.direction == Direction::toLauncher ? "H->>L" : "L->>H";
  return "  " + arrow + ": " + plain(labelOf(event)) + " (" + secondsOf(event) + ", " + sizeOf(event.length) + ")\n";
}

}  // namespace

std::string mermaidDiagram(const Recording& recording) {
  std::string text = "sequenceDiagram\n  participant H as Host\n  participant L as Launcher\n";
  for (const RecordedEvent& event : recording.events) text += row(event);
  return text;
}

}  // namespace tks::ctl
