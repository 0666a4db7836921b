#pragma once

#include <span>
#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>

namespace tks::ctl {

/// How a command ends. The numbers never change their meaning.
enum class Exit : int {
  ok = 0,
  failed = 1,
  usage = 2,
  nothingToDo = 3,
  notTrusted = 4,
  noPermission = 5,
  timedOut = 6,
  brokenLauncher = 7,
  interrupted = 130,
};

struct ExitRow {
  Exit code;
  std::string_view meaning;
};

/// All of them, in the order of help and man page.
std::span<const ExitRow> exitRows();

/// The code for an error of the library, by its reason.
Exit exitFor(const TKSError& error);

/// An error of the tool's own: domain "tksctl", and the exit code as its code.
TKSError toolError(Exit code, std::string message, std::string_view suggestion = {});

}  // namespace tks::ctl
