#pragma once

#include <chrono>
#include <string>
#include <vector>

#include <tksinterface/TKSError.h>

#include "tools/tksctl/doubles/rule_book.h"
#include "tools/tksctl/frame/interrupts.h"

namespace tks::ctl {

/// What the trials of a launcher need.
struct TrialBench {
  /// Executable and arguments of its own.
  std::vector<std::string> command;
  std::chrono::milliseconds patience;
  Interrupts& interrupts;
  RuleBook& book;
};

/// How the trials ended.
enum class TrialsEnd : std::uint8_t { done, notStarted, interrupted };

/// Plays a host against the launcher, in a conversation of its own for each thing that could end one, and writes into
/// the book how it keeps the rules. `error`: why it could not be started.
TrialsEnd runTrials(const TrialBench& bench, TKSError* error);

}  // namespace tks::ctl
