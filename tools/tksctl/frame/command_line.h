#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The parser of command lines is a large header, and compiling it takes longer than all else of a command. Commands see
// only what stands here; the parser itself is seen by the few files that read the words or describe the options.

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace tks::ctl {

/// An option or argument of a command, to say more about it. Valid as long as the command line that it was added to.
class Option {
 public:
  explicit Option(CLI::Option* option) : option_(option) {}

  /// What stands for its value in help: "FILE".
  Option typeName(const std::string& name) const;
  /// The command does not run without it.
  Option required() const;
  /// The default, which is what the variable holds now, is shown in help.
  Option showsDefault() const;
  /// It may be given only together with the other.
  Option needs(Option other) const;
  /// Given several times, it takes one word each time.
  Option oneWordEach() const;
  /// Any other word is an error of use.
  Option oneOf(const std::vector<std::string>& words) const;
  /// A number outside is an error of use; the bounds belong to it.
  Option between(int least, int most) const;
  Option between(double least, double most) const;

 private:
  CLI::Option* option_;
};

/// What a command, or a subcommand of it, takes. The variables must live until the command has run.
///
/// Names as in "-o,--output"; a name without dashes is an argument, taken by its place. `meaning` is one line for help.
class CommandLine {
 public:
  explicit CommandLine(CLI::App& app) : app_(&app) {}

  Option option(const std::string& names, std::string& value, const std::string& meaning) const;
  Option option(const std::string& names, std::vector<std::string>& values, const std::string& meaning) const;
  Option option(const std::string& names, int& value, const std::string& meaning) const;
  Option option(const std::string& names, std::uint32_t& value, const std::string& meaning) const;
  Option option(const std::string& names, double& value, const std::string& meaning) const;
  /// On when it is given.
  Option flag(const std::string& names, bool& value, const std::string& meaning) const;

  /// A subcommand: "get" of "plist get".
  CommandLine command(const std::string& name, const std::string& summary) const;
  /// One of the subcommands must be given.
  void requireCommand() const;
  /// Whether this subcommand was given; known when the command runs.
  bool isGiven() const;

 private:
  CLI::App* app_;
};

}  // namespace tks::ctl
