#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>
#include <string>

#include "tests/install/InstallWorld.h"
#include "tests/support/LogRecorder.h"

namespace tks::test {

/// A world of its own for each test, with archives made by the system's zip and really signed launchers.
class InstallTest : public ::testing::Test {
 protected:
  void TearDown() override {
    if (!HasFailure()) return;
    for (const LogLine& line : log.lines()) std::cerr << "  " << line << "\n";
  }

  /// An archive with this launcher at its top.
  std::string archive(const LauncherPlan& plan = {}) {
    const std::string place = base_ / ("made-" + std::to_string(++made_));
    makeLauncher(place + "/" + std::string(TKSAppName), plan);
    return zipped(place, std::string(TKSAppName), base_ / ("backup-" + std::to_string(made_) + ".zip"));
  }
  std::string archive(const std::string& version) { return archive(LauncherPlan{.version = version}); }
  std::string file(const std::string& name, std::string_view content) {
    writeFile(base_ / name, content);
    return base_ / name;
  }
  /// Puts a launcher into its place without an archive.
  void putLauncher(const LauncherPlan& plan) { makeLauncher(target(), plan); }
  void putLauncher(const std::string& version) { putLauncher(LauncherPlan{.version = version}); }

  bool install(const std::string& version, const std::string& zip) { return install(version, zip, target()); }
  bool install(const std::string& version, const std::string& zip, const std::string& place) {
    log.clear();
    return TKSUtilBase::installTKSVersion(version, zip, place);
  }
  static std::string target() { return TKSUtilBase::getStandardTKSPath(); }
  static std::string parent() { return target().substr(0, target().rfind('/')); }
  static std::string shown(const std::string& path) { return TKSILog::removeSensitiveInformation(path); }

  /// Nothing of the installation lies about, neither where it unpacks nor beside the target.
  void expectNothingLeft() {
    EXPECT_THAT(namesIn(world.unpackFolder()), testing::IsEmpty());
    EXPECT_THAT(namesIn(world.folders.temporary()), testing::IsSubsetOf({std::string("com.tarvo.host")}));
    for (const std::string& name : namesIn(parent())) EXPECT_EQ(name, TKSAppName);
  }

  bool logged(std::int32_t level, const std::string& beginning) const {
    for (const std::string& text : log.texts(level)) {
      if (text.starts_with(beginning)) return true;
    }
    return false;
  }

  TemporaryFolder base_;
  InstallWorld world{base_.path()};
  LogRecorder log;

 private:
  int made_ = 0;
};

}  // namespace tks::test
