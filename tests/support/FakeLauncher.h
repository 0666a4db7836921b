#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tests/support/TemporaryFolder.h"

namespace tks::test {

/// A launcher bundle of a test's own, around the program in fake_launcher/main.cpp, which lists the switches.
///   FakeLauncher launcher({"--exit", "3"});
///   TKSUtilBase::launchAppWithExePath(launcher.executable(), {}, &error);
class FakeLauncher {
 public:
  explicit FakeLauncher(const std::vector<std::string>& switches = {});

  /// "Tarvo Kovra Start.app", with the identifier of the real one.
  const std::string& bundle() const { return bundle_; }
  const std::string& executable() const { return executable_; }

  /// What launchers do that are started from now on.
  void setSwitches(const std::vector<std::string>& switches);

  /// Path of a file with a relative name in a switch, for example of "--dump-arguments" "arguments".
  std::string file(std::string_view name) const;
  /// What a launcher wrote into such a file; waits up to ten seconds until it is there.
  std::string report(std::string_view name) const;

  /// Processes that run this executable now, those of its own children included.
  std::vector<int> processes() const;
  /// Ends them and waits until they are gone; also done at the end.
  void endAll() const;

  ~FakeLauncher();
  FakeLauncher(const FakeLauncher&) = delete;
  FakeLauncher& operator=(const FakeLauncher&) = delete;

 private:
  TemporaryFolder folder_;
  std::string bundle_;
  std::string executable_;
};

}  // namespace tks::test
