#pragma once

#include <sys/mount.h>

#include <filesystem>
#include <string>
#include <string_view>

#include "tests/support/TemporaryFolder.h"

namespace tks::test {

/// A volume of a test's own that is soon full; not there where the test has no right to mount.
///   const SmallVolume volume("64k");
///   if (!volume.isThere()) GTEST_SKIP() << "needs the right to mount";
class SmallVolume {
 public:
  explicit SmallVolume(const std::string& size) : path_(folder_ / "volume") {
    std::filesystem::create_directory(path_);
#ifdef __linux__
    isThere_ = ::mount("tmpfs", path_.c_str(), "tmpfs", 0, ("size=" + size).c_str()) == 0;
#else
    (void)size;
#endif
  }
  ~SmallVolume() {
#ifdef __linux__
    if (isThere_) ::umount2(path_.c_str(), MNT_DETACH);
#endif
  }
  SmallVolume(const SmallVolume&) = delete;
  SmallVolume& operator=(const SmallVolume&) = delete;

  bool isThere() const { return isThere_; }
  std::string operator/(std::string_view name) const { return path_ + "/" + std::string(name); }
  const std::string& path() const { return path_; }

 private:
  TemporaryFolder folder_;
  std::string path_;
  bool isThere_ = false;
};

}  // namespace tks::test
