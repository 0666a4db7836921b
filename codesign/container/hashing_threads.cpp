#include "codesign/container/hashing_threads.h"

#include <pthread.h>
#include <sched.h>
#include <signal.h>

#include <algorithm>
#include <utility>

namespace tks::codesign {
namespace {

/// Large enough that reading costs little beside hashing, small enough to stay in the processor's cache in between.
constexpr std::size_t kBuffer = std::size_t{256} * 1024;
constexpr int kMostThreads = 8;
constexpr std::uint32_t kClosed = 1u << 31;

int processors() {
  cpu_set_t set;
  if (::sched_getaffinity(0, sizeof set, &set) != 0) return 1;
  return std::clamp(CPU_COUNT(&set), 1, kMostThreads);
}

}  // namespace

HashingTools::HashingTools(const std::vector<HashType>& types) : buffer(kBuffer) {
  for (const HashType type : types) hashers.emplace_back(type);
}

HashingThreads::HashingThreads(std::vector<HashType> types, std::size_t capacity, Work work)
    : types_(std::move(types)), work_(std::move(work)), items_(capacity) {}

HashingThreads::~HashingThreads() {
  close(true);
  for (const pthread_t thread : threads_) ::pthread_join(thread, nullptr);
}

void HashingThreads::add(std::uint32_t item) {
  const std::uint32_t position = added_.load(std::memory_order_relaxed);
  items_[position] = item;
  added_.store(position + 1, std::memory_order_release);
  added_.notify_one();
  if (position == 1) startThreads();  // for a single item nobody else is needed
}

void HashingThreads::finish() {
  close(false);
  workUntilClosed();
  for (const pthread_t thread : std::exchange(threads_, {})) ::pthread_join(thread, nullptr);
  if (failure_ != nullptr) std::rethrow_exception(failure_);
}

void HashingThreads::close(bool drop) {
  if (drop) dropped_.store(true, std::memory_order_relaxed);
  added_.fetch_or(kClosed, std::memory_order_release);
  added_.notify_all();
}

void HashingThreads::startThreads() {
  sigset_t all;
  ::sigfillset(&all);
  pthread_attr_t attributes;
  ::pthread_attr_init(&attributes);
  ::pthread_attr_setsigmask_np(&attributes, &all);
  const int others = processors() - 1;
  threads_.reserve(static_cast<std::size_t>(others));
  for (int i = 0; i < others; ++i) {
    pthread_t thread{};
    if (::pthread_create(&thread, &attributes, &HashingThreads::threadMain, this) != 0) break;
    threads_.push_back(thread);
  }
  ::pthread_attr_destroy(&attributes);
}

void* HashingThreads::threadMain(void* self) {
  ::pthread_setname_np(::pthread_self(), "tksinterface");
  static_cast<HashingThreads*>(self)->workUntilClosed();
  return nullptr;
}

std::size_t HashingThreads::most() { return static_cast<std::size_t>(processors()); }

/// The next item, once there is one; nothing when none will come any more.
std::optional<HashingItem> HashingThreads::takeItem() {
  const std::uint32_t position = taken_.fetch_add(1, std::memory_order_relaxed);
  while (!dropped_.load(std::memory_order_relaxed)) {
    const std::uint32_t added = added_.load(std::memory_order_acquire);
    if (position < (added & ~kClosed)) return HashingItem{items_[position], position};
    if ((added & kClosed) != 0) break;
    added_.wait(added, std::memory_order_acquire);
  }
  return std::nullopt;
}

std::optional<HashingItem> HashingThreads::takeReady() {
  std::uint32_t position = taken_.load(std::memory_order_relaxed);
  while (!dropped_.load(std::memory_order_relaxed) && position < (added_.load(std::memory_order_acquire) & ~kClosed)) {
    if (taken_.compare_exchange_weak(position, position + 1, std::memory_order_relaxed)) {
      return HashingItem{items_[position], position};
    }
  }
  return std::nullopt;
}

void HashingThreads::workUntilClosed() noexcept {
  std::optional<HashingTools> tools;
  while (const std::optional<HashingItem> item = takeItem()) {
    try {
      if (!tools) tools.emplace(types_);
      work_(*item, *tools);
    } catch (...) {
      note(*item, std::current_exception());
    }
  }
}

void HashingThreads::note(HashingItem item, std::exception_ptr failure) {
  const std::scoped_lock lock(mutex_);
  if (failure_ != nullptr && failedPosition_ < item.position) return;
  failedPosition_ = item.position;
  failure_ = std::move(failure);
}

}  // namespace tks::codesign
