#pragma once

#include <filesystem>
#include <string>

namespace tks::test {

/// Makes another folder the working folder for a scope.
class ScopedWorkingFolder {
 public:
  explicit ScopedWorkingFolder(const std::string& path) : before_(std::filesystem::current_path()) {
    std::filesystem::current_path(path);
  }
  ~ScopedWorkingFolder() { std::filesystem::current_path(before_); }
  ScopedWorkingFolder(const ScopedWorkingFolder&) = delete;
  ScopedWorkingFolder& operator=(const ScopedWorkingFolder&) = delete;

 private:
  std::filesystem::path before_;
};

}  // namespace tks::test
