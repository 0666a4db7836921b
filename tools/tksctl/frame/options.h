#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/tksctl/frame/command_line.h"
#include "tools/tksctl/frame/exit_codes.h"
#include "tools/tksctl/frame/output.h"

namespace tks::ctl {

/// What the command line says of the library's options (TKSOptions.h).
struct OptionWishes {
  /// "NAME=VALUE", in their order.
  std::vector<std::string> assignments;
  /// A file with a JSON object of options; those of the command line come after it.
  std::string file;
};

void addLibraryOptions(const CommandLine& line, OptionWishes& wishes);

/// Sets them for this process. A code when they cannot be set, with the reason told.
std::optional<Exit> setLibraryOptions(const OptionWishes& wishes, Output& out);

}  // namespace tks::ctl
