#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <new>
#include <thread>

// Replaces operator new for a whole test program, so that the n-th request for memory can be refused. Included by one
// source file of a program that has no other.

namespace tks::test {

inline std::atomic<long> piecesOfMemory = 0;
/// Of the thread under test: how many requests are still granted; negative when all are.
inline thread_local long grantedRequests = -1;
/// Whether memory is back after the first request that was refused.
inline thread_local bool refusesOnce = false;

/// Grants all requests for a scope: what a test itself does in the middle of an attempt.
class PlentyOfMemory {
 public:
  PlentyOfMemory() : granted_(std::exchange(grantedRequests, -1)), once_(std::exchange(refusesOnce, false)) {}
  ~PlentyOfMemory() {
    grantedRequests = granted_;
    refusesOnce = once_;
  }
  PlentyOfMemory(const PlentyOfMemory&) = delete;
  PlentyOfMemory& operator=(const PlentyOfMemory&) = delete;

 private:
  long granted_;
  bool once_;
};

/// Calls `attempt` on a thread of its own, so that what a thread keeps for itself does not count as leaked; with so
/// many requests granted, then again with plenty of memory. Returns whether it succeeded the first time.
inline bool succeedsWith(long granted, bool once, const std::function<bool()>& attempt) {
  const long before = piecesOfMemory;
  bool succeeded = false;
  bool checked = false;
  std::thread([&] {
    refusesOnce = once;
    grantedRequests = granted;
    succeeded = attempt();
    grantedRequests = -1;
    refusesOnce = false;
    checked = attempt();  // once memory is back, all goes well
  }).join();
  EXPECT_EQ(piecesOfMemory, before) << "leaked after the request " << granted;
  EXPECT_TRUE(checked) << "after the request " << granted;
  return succeeded;
}

/// Calls `attempt` with ever more memory until it returns that it has succeeded: each time with the n-th request
/// refused alone, and with all from the n-th on. Returns how many times it failed.
inline long failuresUntilSuccess(const std::function<bool()>& attempt) {
  for (long n = 0; n < 10'000; ++n) {
    succeedsWith(n, true, attempt);
    if (succeedsWith(n, false, attempt) || ::testing::Test::HasFailure()) return n;
  }
  ADD_FAILURE() << "never succeeds";
  return -1;
}

namespace allocation {

inline void* request(std::size_t size, std::size_t alignment = 0) noexcept {
  if (grantedRequests == 0) {
    if (refusesOnce) grantedRequests = -1;
    return nullptr;
  }
  if (grantedRequests > 0) --grantedRequests;
  if (size == 0) size = 1;
  void* const memory = alignment == 0 ? std::malloc(size)
                                      : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
  if (memory != nullptr) ++piecesOfMemory;
  return memory;
}

inline void* demand(std::size_t size, std::size_t alignment = 0) {
  void* const memory = request(size, alignment);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

inline void giveBack(void* memory) noexcept {
  if (memory == nullptr) return;
  --piecesOfMemory;
  std::free(memory);
}

}  // namespace allocation
}  // namespace tks::test

void* operator new(std::size_t size) { return tks::test::allocation::demand(size); }
void* operator new[](std::size_t size) { return tks::test::allocation::demand(size); }
void* operator new(std::size_t size, std::align_val_t alignment) {
  return tks::test::allocation::demand(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return tks::test::allocation::demand(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return tks::test::allocation::request(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return tks::test::allocation::request(size); }
void operator delete(void* memory) noexcept { tks::test::allocation::giveBack(memory); }
void operator delete[](void* memory) noexcept { tks::test::allocation::giveBack(memory); }
void operator delete(void* memory, std::size_t) noexcept { tks::test::allocation::giveBack(memory); }
void operator delete[](void* memory, std::size_t) noexcept { tks::test::allocation::giveBack(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { tks::test::allocation::giveBack(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { tks::test::allocation::giveBack(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { tks::test::allocation::giveBack(memory); }
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept {
  tks::test::allocation::giveBack(memory);
}
