#include "tools/tksctl/frame/progress_bar.h"

#include <unistd.h>

#include <algorithm>

namespace tks::ctl {
namespace {

std::string inMebibytes(std::uint64_t bytes) {
  constexpr std::uint64_t kTenth = 1024u * 1024 / 10;
  const std::uint64_t tenths = bytes / kTenth;
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10);
}

std::string barOf(double share, std::size_t width) {
  const auto full = static_cast<std::size_t>(share * static_cast<double>(width));
  return "[" + std::string(std::min(full, width), '#') + std::string(width - std::min(full, width), '.') + "]";
}

}  // namespace

void ProgressBar::draw(const std::string& text) const {
  const std::string line = "\r\x1b[K" + text;
  (void)!::write(STDERR_FILENO, line.data(), line.size());
}

void ProgressBar::show(int number, int steps, std::string_view name, std::uint64_t done, std::uint64_t total) {
  if (out_.isQuiet() || out_.isJson()) return;
  std::string text = "step " + std::to_string(number) + " of " + std::to_string(steps) + ": " + std::string(name);
  if (!out_.noteTerminal().canRedraw()) {
    if (number != lastStep_) out_.note(text);
    lastStep_ = number;
    return;
  }
  if (total > 0) {
    constexpr std::size_t kWidth = 20;
    const double share = static_cast<double>(done) / static_cast<double>(total);
    text.append(" ").append(barOf(share, kWidth)).append(" ").append(inMebibytes(done)).append(" of ");
    text.append(inMebibytes(total)).append(" MiB");
  }
  draw(cutTo(out_.noteTerminal().width() - 1, text));
  isDrawn_ = true;
}

void ProgressBar::clear() {
  if (isDrawn_) draw("");
  isDrawn_ = false;
}

}  // namespace tks::ctl
