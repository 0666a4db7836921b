#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "platform/known_folders.h"
#include "platform/platform.h"
#include "tests/support/TemporaryFolder.h"

namespace tks::test {

/// Gives the library a home and a temporary folder of a test's own, for a scope, so that nothing of the real ones is
/// touched. Both exist and are empty.
class FakeHome final : public platform::KnownFolders {
 public:
  FakeHome() : FakeHome(std::string()) {}
  /// A home that is somewhere else, made by the caller; the temporary folder is the test's own all the same.
  explicit FakeHome(std::string home)
      : home_(home.empty() ? folder_ / "home" : std::move(home)), temporary_(folder_ / "tmp"), replaced_(*this) {
    std::filesystem::create_directories(folder_ / "home");
    std::filesystem::create_directories(temporary_);
  }

  std::string realHome() override { return home_; }
  std::string temporary() override { return temporary_; }
  std::string documents() override { return home_ + "/Documents"; }

  /// Path of something in the home.
  std::string operator/(std::string_view name) const { return home_ + "/" + std::string(name); }
  void setTemporary(std::string path) { temporary_ = std::move(path); }

 private:
  TemporaryFolder folder_;
  std::string home_;
  std::string temporary_;
  platform::Replaced<platform::KnownFolders> replaced_;
};

/// Folders that lie below one folder, so that several processes can have the same.
class FoldersBelow final : public platform::KnownFolders {
 public:
  explicit FoldersBelow(std::string base) : base_(std::move(base)), temporary_(base_ + "/tmp") {
    std::filesystem::create_directories(base_ + "/home");
    std::filesystem::create_directories(temporary_);
  }
  std::string realHome() override { return base_ + "/home"; }
  std::string temporary() override { return temporary_; }
  std::string documents() override { return realHome() + "/Documents"; }
  void setTemporary(std::string path) { temporary_ = std::move(path); }

 private:
  std::string base_;
  std::string temporary_;
  platform::Replaced<platform::KnownFolders> replaced_{*this};
};

}  // namespace tks::test
