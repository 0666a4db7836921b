#pragma once

#include <functional>
#include <string_view>

#include "platform/platform.h"

namespace tks::test {

/// Archives that are looked into as before, or say what a test wants, for a scope.
class FakeArchives final : public platform::Archives {
 public:
  /// The entry with a number, of `count`, in place of what is in the archive.
  std::function<platform::ArchiveEntry(int number)> entry;
  int count = 1;
  /// Done once an archive was looked into.
  std::function<void()> sequel;

  bool inspect(std::string_view path, platform::ArchiveFormat format,
               const std::function<bool(const platform::ArchiveEntry&)>& visit, TKSError* error) override {
    const bool read = entry ? say(visit) : replaced_.before().inspect(path, format, visit, error);
    if (sequel) sequel();
    return read;
  }

 private:
  bool say(const std::function<bool(const platform::ArchiveEntry&)>& visit) const {
    for (int i = 0; i < count && visit(entry(i)); ++i) {
    }
    return true;
  }

  platform::Replaced<platform::Archives> replaced_{*this};
};

}  // namespace tks::test
