#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

#include "codesign/container/digest.h"

namespace tks::codesign {

/// What one thread needs for hashing: made by it, used by it alone.
struct HashingTools {
  explicit HashingTools(const std::vector<HashType>& types);
  std::vector<std::uint8_t> buffer;  ///< what is read next
  std::vector<Hasher> hashers;       ///< one for each type, in their order
};

/// What is to be hashed, and which of all it is in the order in which they were added.
struct HashingItem {
  std::uint32_t number;
  std::size_t position;
};

/// Threads that hash for one check: as many as there are processors for this process, the calling thread among them.
/// They block all signals, and are gone when the check is. Items are numbers, worked on in the order in which they were
/// added. Without further threads (a limit forbids them) the calling thread does everything.
class HashingThreads {
 public:
  using Work = std::function<void(HashingItem item, HashingTools& tools)>;

  /// At most `capacity` items can be added.
  HashingThreads(std::vector<HashType> types, std::size_t capacity, Work work);
  /// Drops what was not begun.
  ~HashingThreads();
  HashingThreads(const HashingThreads&) = delete;
  HashingThreads& operator=(const HashingThreads&) = delete;

  void add(std::uint32_t item);
  /// Waits until all items are done, and helps. What the work of one threw is thrown here; of several it is that of the
  /// item added first.
  void finish();

  /// For the work on an item that takes others along: the next one, nothing when none is there now.
  std::optional<HashingItem> takeReady();
  /// And for what went wrong with one of them.
  void note(HashingItem item, std::exception_ptr failure);

  /// As many threads as hash at most.
  static std::size_t most();

 private:
  static void* threadMain(void* self);
  void startThreads();
  void workUntilClosed() noexcept;
  std::optional<HashingItem> takeItem();
  void close(bool drop);

  const std::vector<HashType> types_;
  const Work work_;
  std::vector<std::uint32_t> items_;
  /// Items added; the highest bit says that no more will come.
  std::atomic<std::uint32_t> added_{0};
  std::atomic<std::uint32_t> taken_{0};
  std::atomic<bool> dropped_{false};
  std::vector<pthread_t> threads_;

  std::mutex mutex_;  // guards what follows
  std::size_t failedPosition_ = 0;
  std::exception_ptr failure_;
};

}  // namespace tks::codesign
