#include "tools/tksctl/frame/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>

namespace tks::ctl {
namespace {

constexpr std::size_t kUsualWidth = 80;

struct StyleRow {
  Style style;
  std::string_view sequence;
};
constexpr StyleRow kStyles[] = {
    {Style::good, "\x1b[32m"}, {Style::warning, "\x1b[33m"}, {Style::bad, "\x1b[31m"},
    {Style::dim, "\x1b[2m"},   {Style::bold, "\x1b[1m"},
};

std::string_view variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string_view() : value;
}

bool isFirstByte(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }

}  // namespace

Terminal::Terminal(int descriptor, ColourWish wish) : descriptor_(descriptor) {
  canRedraw_ = ::isatty(descriptor) == 1 && !variable("TERM").empty() && variable("TERM") != "dumb";
  hasColours_ =
      wish == ColourWish::always || (wish == ColourWish::automatic && canRedraw_ && variable("NO_COLOR").empty());
}

std::size_t Terminal::width() const {
  winsize size{};
  if (::ioctl(descriptor_, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  const std::string_view columns = variable("COLUMNS");
  std::size_t width = 0;
  std::from_chars(columns.data(), columns.data() + columns.size(), width);
  return width > 0 ? width : kUsualWidth;
}

std::string Terminal::styled(Style style, std::string_view text) const {
  if (hasColours_) {
    for (const StyleRow& row : kStyles) {
      if (row.style == style) return std::string(row.sequence).append(text).append("\x1b[0m");
    }
  }
  return std::string(text);
}

std::size_t columnsOf(std::string_view text) {
  return static_cast<std::size_t>(std::ranges::count_if(text, isFirstByte));
}

std::string cutTo(std::size_t columns, std::string_view text) {
  constexpr std::size_t kDots = 3;
  if (columnsOf(text) <= columns) return std::string(text);
  std::size_t kept = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (isFirstByte(text[at]) && kept++ + kDots >= columns) return std::string(text.substr(0, at)).append("...");
  }
  return std::string(text);
}

std::string wrapped(std::string_view text, std::string_view indent, std::size_t columns) {
  std::string lines;
  std::string line;
  const auto finishLine = [&] {
    if (!line.empty()) lines.append(indent).append(line).append("\n");
    line.clear();
  };
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of(" \n"), text.size());
    const std::string_view word = text.substr(0, end);
    const bool breaks = end < text.size() && text[end] == '\n';
    if (!line.empty() && columnsOf(indent) + columnsOf(line) + 1 + columnsOf(word) > columns) finishLine();
    if (!word.empty()) line.append(line.empty() ? "" : " ").append(word);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (breaks) {
      if (line.empty()) lines.append("\n");
      finishLine();
    }
  }
  finishLine();
  return lines;
}

}  // namespace tks::ctl
