#pragma once

#include <string>
#include <vector>

#include "tools/tksctl/frame/command.h"

namespace tks::ctl {

// Help and man page are two forms of one description, so that they cannot differ.

/// An option, an argument or a subcommand with its meaning.
struct Entry {
  std::string names;
  std::string meaning;
};

/// A part of a page: "Options" and what is in it.
struct Section {
  std::string title;
  std::vector<Entry> entries;
};

/// What there is to say about the program or one of its commands.
struct Page {
  /// "tksctl plist get"
  std::string title;
  std::string summary;
  /// How it is called, one line each.
  std::vector<std::string> calls;
  std::string description;
  std::vector<Section> sections;
  std::vector<Example> examples;
};

/// The page of an application (`command` is null), of a command, or of a subcommand of it.
Page pageOf(const Application& application, const CLI::App& app, const Command* command);

/// The page as --help shows it.
std::string helpText(const Application& application, const CLI::App& app, const Command* command);

/// The man page of the whole program, in the language of troff.
std::string manual(const Application& application);

/// The options of an app that are not hidden, and its arguments, with the groups in it flattened.
std::vector<const CLI::Option*> optionsOf(const CLI::App& app);
/// Its subcommands that are not hidden; groups of options are none.
std::vector<const CLI::App*> subcommandsOf(const CLI::App& app);

}  // namespace tks::ctl
