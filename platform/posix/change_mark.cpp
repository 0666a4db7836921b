#include "platform/posix/change_mark.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "foundation/values/FilePaths.h"
#include "platform/posix/folder_items.h"
#include "platform/posix/paths.h"
#include "platform/posix/posix_error.h"

// The kernel sets an item's time of change with whatever is done to it, and nobody but the kernel can. Together with
// the item's number, which no other item has at the time, it tells whether the item is what it was.

namespace tks::posix {
namespace {

using std::chrono::nanoseconds;

/// Kernels count the time of files in steps; a change within the same step as another would not show.
constexpr nanoseconds kStep = std::chrono::milliseconds(20);
/// Volumes of older kinds count whole seconds, or every other one.
constexpr nanoseconds kLongStep = std::chrono::seconds(2);
/// How long to wait for a tree that keeps changing.
constexpr std::chrono::seconds kPatience{5};

timespec changed(const struct stat& facts) {
#ifdef __APPLE__
  return facts.st_ctimespec;
#else
  return facts.st_ctim;
#endif
}

std::int64_t inNanoseconds(timespec time) { return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec; }

std::int64_t now() {
  timespec time{};
  ::clock_gettime(CLOCK_REALTIME, &time);
  return inNanoseconds(time);
}

class Mark {
 public:
  /// False, and errno, when something cannot be looked at.
  bool take(const std::string& path) {
    facts_.clear();
    entries_.clear();
    settled_ = 0;
    // Moving it sets its own time of change; its content is looked at anyway.
    struct stat facts {};
    if (::lstat(path.c_str(), &facts) != 0) return false;
    add(facts, "", "", false);
    std::vector<std::string> folders;
    if (S_ISDIR(facts.st_mode)) folders.push_back(path);
    while (!folders.empty()) {
      const std::string folder = std::move(folders.back());
      folders.pop_back();
      if (!addItemsOf(folder, path.size(), folders)) return false;
    }
    return true;
  }

  /// From when on nothing can be changed without being told.
  std::int64_t settled() const { return settled_; }

  TKSData bytes() {
    const auto factsOf = [this](Entry entry) { return std::string_view(facts_).substr(entry.begin, entry.size); };
    std::ranges::sort(entries_, {}, factsOf);
    TKSData result;
    result.reserve(facts_.size());
    for (const Entry entry : entries_) {
      const std::string_view facts = factsOf(entry);
      result.insert(result.end(), facts.begin(), facts.end());
    }
    return result;
  }

 private:
  /// What is noted of one item.
  struct Entry {
    std::size_t begin = 0;
    std::size_t size = 0;
  };

  /// `folders` receives those in it.
  bool addItemsOf(const std::string& folder, std::size_t prefix, std::vector<std::string>& folders) {
    return visitItems(folder, [&](std::string_view name, const struct stat& facts, int) {
      add(facts, std::string_view(folder).substr(prefix), name, true);
      if (S_ISDIR(facts.st_mode)) folders.push_back(joinedPath(folder, name));
      return true;
    });
  }

  void add(const struct stat& facts, std::string_view folder, std::string_view name, bool withTime) {
    const std::int64_t time = S_ISDIR(facts.st_mode) && !withTime ? 0 : inNanoseconds(changed(facts));
    settled_ = std::max(settled_, settledFrom(time));
    const std::size_t begin = facts_.size();
    facts_.append(folder).append("/").append(name).push_back('\0');
    for (const std::uint64_t fact :
         {static_cast<std::uint64_t>(facts.st_dev), std::uint64_t{facts.st_ino}, std::uint64_t{facts.st_mode},
          std::uint64_t{facts.st_uid}, static_cast<std::uint64_t>(facts.st_size), static_cast<std::uint64_t>(time)}) {
      facts_.append(reinterpret_cast<const char*>(&fact), sizeof fact);
    }
    entries_.push_back({begin, facts_.size() - begin});
  }

  /// One item after the other; a mark is taken before each start, so that none has memory of its own.
  std::string facts_;
  std::vector<Entry> entries_;
  std::int64_t settled_ = 0;
};

}  // namespace

std::int64_t settledFrom(std::int64_t changed) {
  const bool isWholeSecond = changed % nanoseconds(std::chrono::seconds(1)).count() == 0;
  return changed + (isWholeSecond ? kLongStep : kStep).count();
}

std::optional<TKSData> changeMark(std::string_view path, TKSError* error) {
  const std::string name = withoutClosingSlashes(path);
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  Mark mark;
  while (true) {
    const std::int64_t begin = now();
    if (!isPath(path) || !mark.take(name)) break;
    if (mark.settled() < begin) return mark.bytes();
    errno = EBUSY;
    if (std::chrono::steady_clock::now() > deadline) break;
    std::this_thread::sleep_for(std::clamp(nanoseconds(mark.settled() - begin), kStep, kLongStep));
  }
  fail(error, "look through", path);
  return std::nullopt;
}

}  // namespace tks::posix
