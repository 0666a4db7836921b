#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "tools/tksctl/frame/output.h"

namespace tks::ctl {

/// Shows how far something has come: one line that is drawn again on a terminal, else a line for each step. Nothing
/// with --quiet or --json.
class ProgressBar {
 public:
  explicit ProgressBar(Output& out) : out_(out) {}
  ~ProgressBar() { clear(); }
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  /// Step `number` of `steps`, by its name; `total` 0: not counted.
  void show(int number, int steps, std::string_view name, std::uint64_t done, std::uint64_t total);
  /// Removes the line, so that others can be written.
  void clear();

 private:
  void draw(const std::string& text) const;

  Output& out_;
  int lastStep_ = 0;
  bool isDrawn_ = false;
};

}  // namespace tks::ctl
