#pragma once

#include <tksinterface/TKSInterface.h>

#include <optional>
#include <string>
#include "tools/tksctl/frame/command_line.h"

#include "tools/tksctl/frame/command.h"

namespace tks::ctl {

/// What commands that start a launcher as a host does are told.
struct LaunchWishes {
  std::string launcher;
  std::string backup;
  std::string version;
  bool files = false;
  int timeout = 120;
};

void addLaunchOptions(const CommandLine& line, LaunchWishes& wishes);

/// Gives them to a facade. A code when one of them cannot be, with the reason told.
std::optional<Exit> apply(const LaunchWishes& wishes, TKSInterface& facade, Output& out);

/// Says goodbye where there is a conversation, after a signal too, and waits a little until it is over.
void endConversation(TKSInterface& facade, Interrupts& interrupts);

}  // namespace tks::ctl
