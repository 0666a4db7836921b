#include <algorithm>

#include "tools/tksctl/diagram/diagram.h"
#include "tools/tksctl/frame/terminal.h"

namespace tks::ctl {
namespace {

/// Columns between the two lines of life.
constexpr std::size_t kWidth = 44;
constexpr std::size_t kTimeColumns = 11;

std::string padded(std::string text, std::size_t columns) {
  const std::size_t taken = columnsOf(text);
  return taken < columns ? text.append(columns - taken, ' ') : text;
}

/// "--- hello --->", or the other way around.
std::string arrow(const RecordedEvent& event) {
  std::string line = "-- " + cutTo(kWidth - 8, labelOf(event)) + " ";
  const std::size_t taken = columnsOf(line);
  line.append(kWidth - 1 - std::min(taken, kWidth - 1), '-');
  return event.direction == Direction::toLauncher ? line + ">" : "<" + line;
}

std::string row(const RecordedEvent& event) {
  std::string time = secondsOf(event);
  time.insert(0, kTimeColumns - std::min(time.size() + 1, kTimeColumns), ' ');
  if (event.isMessage()) return time + " |" + arrow(event) + "|  " + sizeOf(event.length) + "\n";
  return time + " |" + padded("  * " + cutTo(kWidth - 5, labelOf(event)), kWidth) + "|\n";
}

}  // namespace

std::string textDiagram(const Recording& recording) {
  std::string text(kTimeColumns, ' ');
  text += "host" + std::string(kWidth - 4, ' ') + "launcher\n";
  for (const RecordedEvent& event : recording.events) text += row(event);
  return text;
}

}  // namespace tks::ctl
