#include "platform/posix/change_mark.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/posix/posix_error.h"

// The kernel sets an item's time of change with whatever is done to it, and nobody but the kernel can. Together with
// the item's number, which no other item has at the time, it tells whether the item is what it was.

namespace tks::posix {
namespace {

/// Kernels count the time of files in steps; a change within the same step as another would not show.
constexpr std::chrono::milliseconds kStep{20};
constexpr int kMostWaits = 50;

timespec changed(const struct stat& facts) {
#ifdef __APPLE__
  return facts.st_ctimespec;
#else
  return facts.st_ctim;
#endif
}

std::int64_t nanoseconds(timespec time) { return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec; }

std::int64_t now() {
  timespec time{};
  ::clock_gettime(CLOCK_REALTIME, &time);
  return nanoseconds(time);
}

class Mark {
 public:
  /// False, and errno, when something cannot be looked at.
  bool take(const std::string& path) {
    entries_.clear();
    newest_ = 0;
    // Its own time of change is set when it is moved; what is in it is looked at anyway.
    if (!add(path, "", false)) return false;
    std::error_code reason;
    std::filesystem::recursive_directory_iterator items(path, reason);
    if (reason == std::errc::not_a_directory) return true;
    for (; !reason && items != std::filesystem::recursive_directory_iterator(); items.increment(reason)) {
      const std::string& item = items->path().native();
      if (!add(item, item.substr(path.size()), true)) return false;
    }
    errno = reason.value();
    return !reason;
  }

  bool isSettled(std::int64_t time) const { return newest_ < time - std::chrono::nanoseconds(kStep).count(); }

  TKSData bytes() {
    std::ranges::sort(entries_);
    TKSData result;
    for (const std::string& entry : entries_) result.insert(result.end(), entry.begin(), entry.end());
    return result;
  }

 private:
  bool add(const std::string& path, const std::string& name, bool withTime) {
    struct stat facts {};
    if (::lstat(path.c_str(), &facts) != 0) return false;
    const std::int64_t time = S_ISDIR(facts.st_mode) && !withTime ? 0 : nanoseconds(changed(facts));
    newest_ = std::max(newest_, time);
    std::string entry = name;
    entry += '\0';
    for (const std::uint64_t fact :
         {std::uint64_t{facts.st_dev}, std::uint64_t{facts.st_ino}, std::uint64_t{facts.st_mode},
          std::uint64_t{facts.st_uid}, static_cast<std::uint64_t>(facts.st_size), static_cast<std::uint64_t>(time)}) {
      entry.append(reinterpret_cast<const char*>(&fact), sizeof fact);
    }
    entries_.push_back(std::move(entry));
    return true;
  }

  std::vector<std::string> entries_;
  std::int64_t newest_ = 0;
};

}  // namespace

std::optional<TKSData> changeMark(std::string_view path, TKSError* error) {
  std::string name(path);
  while (name.size() > 1 && name.ends_with('/')) name.pop_back();
  Mark mark;
  for (int attempt = 0; attempt < kMostWaits; ++attempt) {
    const std::int64_t begin = now();
    if (!mark.take(name)) {
      fail(error, "look through", path);
      return std::nullopt;
    }
    if (mark.isSettled(begin)) return mark.bytes();
    std::this_thread::sleep_for(kStep);
  }
  errno = EBUSY;  // somebody never stops changing it
  fail(error, "look through", path);
  return std::nullopt;
}

}  // namespace tks::posix
