#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <tksinterface/TKSValue.h>

#include "tools/tksctl/frame/command.h"

namespace tks::ctl::doctor {

/// How a check ended. `skip`: it could not be made, or there was nothing to check.
enum class State { pass, warn, fail, skip };

/// "PASS", "WARN", "FAIL", "SKIP".
std::string_view nameOf(State state);

/// One check: what was looked at, what was seen, and what to do about it.
struct Finding {
  /// Stable, for programs: "tools.unzip".
  std::string id;
  std::string title;
  State state = State::pass;
  std::string seen{};
  /// Empty when all is well.
  std::string remedy{};
  /// What the command ends with when this is the first that fails.
  Exit code = Exit::failed;
};

/// What the user asked for.
struct Wishes {
  std::string launcher;
  std::string backup;
  std::string version;
  bool withoutStart = false;
  bool files = false;
  int patience = 10;  ///< seconds for each tool and each step of the start
};

/// The checks as they are made: each is shown at once.
class Report {
 public:
  explicit Report(Context& context) : context_(context) {}

  void pass(std::string id, std::string title, std::string seen);
  void skip(std::string id, std::string title, std::string seen);
  void warn(std::string id, std::string title, std::string seen, std::string remedy);
  void fail(std::string id, std::string title, std::string seen, std::string remedy, Exit code = Exit::failed);
  void add(Finding finding);

  Context& context() const { return context_; }
  const std::vector<Finding>& findings() const { return findings_; }
  /// Whether a check of a group ("tools.") failed.
  bool failed(std::string_view beginning) const;
  std::size_t count(State state) const;
  TKSArray document() const;

 private:
  Context& context_;
  std::vector<Finding> findings_;
};

// The groups of checks, in the order in which they are made. None of them changes anything but its own probes, which
// are gone afterwards.

void checkLibrary(Report& report);
void checkTools(Report& report, const Wishes& wishes);
void checkFolders(Report& report);
void checkLimits(Report& report);
void checkLocks(Report& report);
void checkPreferences(Report& report);
void checkLauncher(Report& report, const Wishes& wishes);
void checkArchive(Report& report, const Wishes& wishes);
/// Starts the launcher, greets it and says goodbye. Nothing is removed when that fails.
void checkStart(Report& report, const Wishes& wishes);

/// Path of the launcher that is meant.
std::string launcherPath(const Wishes& wishes);

/// All groups; those that are left are left out once a signal came.
void checkAll(Report& report, const Wishes& wishes);

}  // namespace tks::ctl::doctor
