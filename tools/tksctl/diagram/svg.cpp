#include "tools/tksctl/diagram/diagram.h"
#include "tools/tksctl/frame/terminal.h"

namespace tks::ctl {
namespace {

constexpr int kLeft = 110;
constexpr int kRight = 610;
constexpr int kTop = 56;
constexpr int kRow = 30;
constexpr int kFullWidth = 720;
constexpr std::size_t kLongestLabel = 70;

std::string number(int value) { return std::to_string(value); }

std::string textAt(int x, int y, std::string_view kind, std::string_view text) {
  return "<text x=\"" + number(x) + "\" y=\"" + number(y) + "\" class=\"" + std::string(kind) + "\">" + escaped(text) +
         "</text>\n";
}

std::string lineFrom(int x1, int y1, int x2, int y2, std::string_view more) {
  return "<line x1=\"" + number(x1) + "\" y1=\"" + number(y1) + "\" x2=\"" + number(x2) + "\" y2=\"" + number(y2) +
         "\" " + std::string(more) + "/>\n";
}

std::string row(const RecordedEvent& event, int y) {
  const std::string time = textAt(kLeft - 12, y + 4, "time", secondsOf(event));
  const std::string label = cutTo(kLongestLabel, labelOf(event));
  const int middle = (kLeft + kRight) / 2;
  if (!event.isMessage()) return time + textAt(middle, y + 4, "note", label);
  const bool leaves = event.direction == Direction::toLauncher;
  return time + textAt(middle, y - 5, "label", label) +
         lineFrom(leaves ? kLeft : kRight, y, leaves ? kRight : kLeft, y, "class=\"arrow\" marker-end=\"url(#tip)\"") +
         textAt(kRight + 12, y + 4, "size", sizeOf(event.length));
}

constexpr std::string_view kStyle =
    "<style>text{font:13px sans-serif;fill:#1a1a1a}.time,.size{fill:#5a5a5a}.time{text-anchor:end}"
    ".label,.note,.name{text-anchor:middle}.name{font-weight:bold}.note{font-style:italic;fill:#8a3b00}"
    ".arrow{stroke:#1f5fa8;stroke-width:1.5}.life{stroke:#9a9a9a;stroke-dasharray:4 4}</style>\n"
    "<defs><marker id=\"tip\" viewBox=\"0 0 10 10\" refX=\"9\" refY=\"5\" markerWidth=\"7\" markerHeight=\"7\" "
    "orient=\"auto\"><path d=\"M0 0 10 5 0 10z\" fill=\"#1f5fa8\"/></marker></defs>\n"
    "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";

}  // namespace

std::string svgDiagram(const Recording& recording) {
  const int bottom = kTop + kRow * static_cast<int>(recording.events.size());
  std::string text = "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " + number(kFullWidth) + " " +
                     number(bottom + 20) + "\" role=\"img\" aria-label=\"Conversation of a host and a launcher\">\n";
  text += kStyle;
  text += textAt(kLeft, 22, "name", "Host") + textAt(kRight, 22, "name", "Launcher");
  for (const int x : {kLeft, kRight}) text += lineFrom(x, 30, x, bottom + 10, "class=\"life\"");
  int y = kTop;
  for (const RecordedEvent& event : recording.events) {
    text += row(event, y);
    y += kRow;
  }
  return text + "</svg>\n";
}

}  // namespace tks::ctl
