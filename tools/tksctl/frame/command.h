#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/tksctl/frame/command_line.h"
#include "tools/tksctl/frame/exit_codes.h"
#include "tools/tksctl/frame/interrupts.h"
#include "tools/tksctl/frame/output.h"

namespace tks::ctl {

/// What a command works with.
struct Context {
  Output& out;
  Interrupts& interrupts;
  /// Never ask, never read what a person would type.
  bool noInput = false;
};

/// What a command does once its options are read. Throws nothing that it can tell of by itself; what it throws all the
/// same is reported as `failed`.
using Action = std::function<Exit(Context& context)>;

/// A call to show in help and man page.
struct Example {
  std::string call;
  std::string meaning;
};

/// One command: a file of commands/, registered in commands/table.cpp.
struct Command {
  std::string name;
  /// One line for the list of commands, without a full stop.
  std::string summary;
  /// Paragraphs for help and man page, parted by empty lines.
  std::string description;
  std::vector<Example> examples;
  /// Adds options, arguments and subcommands, and returns what to do with them. Called once, before the words of the
  /// command line are read; what the options are stored in must be kept by the action (a shared_ptr).
  std::function<Action(const CommandLine& line)> setUp;
};

/// A program of several commands, or of one that needs no name.
struct Application {
  std::string name;
  /// One sentence without a full stop.
  std::string summary;
  std::string description;
  std::vector<Command> commands;
  /// The only command is the program itself: "tkssign" for "tksctl sign".
  bool isSingle = false;
};

}  // namespace tks::ctl
