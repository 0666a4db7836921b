#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tks::test {

using Arguments = std::vector<std::string>;

/// A part that the test program can play when it is started once more, so that tests with real processes need no second
/// binary. Registered by a variable at namespace scope; the result is the exit code.
///   int printHome(const Arguments& arguments) { ... }
///   const ChildRole role("print-home", printHome);
class ChildRole {
 public:
  using Function = int (*)(const Arguments& arguments);
  ChildRole(std::string_view name, Function function);

  /// Plays the role that the command line asks for ("--child=NAME arguments..."); nothing when it asks for none.
  static std::optional<int> play(int argc, char** argv);
};

/// This very program, started in one of its roles, or another program. Its standard input is empty and its standard
/// output is kept. Ended and collected at the end.
class ChildProcess {
 public:
  static ChildProcess inRole(std::string_view role, Arguments arguments = {}, const Arguments& environment = {});
  /// `environment`: pairs "NAME=value" that replace those of this process; "NAME" alone removes one.
  static ChildProcess run(const std::string& executable, const Arguments& arguments, const Arguments& environment = {});

  ChildProcess(ChildProcess&& other) noexcept;
  ChildProcess& operator=(ChildProcess&&) = delete;
  ~ChildProcess();

  pid_t pid() const { return pid_; }
  /// The exit code, or 128 and the number of the signal; reads the output to its end first.
  int wait();
  /// What it wrote to its standard output; call wait() before.
  const std::string& output() const { return output_; }

 private:
  ChildProcess(pid_t pid, int outputDescriptor) : pid_(pid), descriptor_(outputDescriptor) {}

  pid_t pid_;
  int descriptor_;
  std::string output_;
  std::optional<int> result_;
};

/// Path of this test program.
std::string ownExecutable();

}  // namespace tks::test
