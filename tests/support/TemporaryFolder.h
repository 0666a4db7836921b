#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tks::test {

/// A folder that lives as long as this object. Its path has no links in it.
class TemporaryFolder {
 public:
  TemporaryFolder() : TemporaryFolder(std::filesystem::temp_directory_path()) {}
  /// In a certain folder, for example on another volume.
  explicit TemporaryFolder(const std::filesystem::path& parent) {
    std::string name = std::filesystem::canonical(parent) / "tks-test-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
    path_ = name;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return path_; }
  /// Path of something in the folder.
  std::string operator/(std::string_view name) const { return path_ + "/" + std::string(name); }

 private:
  std::string path_;
};

/// The content of a file; empty when there is none.
inline std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// Makes a file with all folders above it.
inline void writeFile(const std::string& path, std::string_view content) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << content;
}

}  // namespace tks::test
