#pragma once

#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>

namespace tks {

/// A stack of small things for work on nested data that must not recurse. The first ones stand in the object itself;
/// more take memory from the heap.
template <class T, std::size_t kOwn = 64>
class WorkList {
  static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_default_constructible_v<T>);

 public:
  WorkList() = default;
  WorkList(const WorkList&) = delete;
  WorkList& operator=(const WorkList&) = delete;
  ~WorkList() {
    if (items_ != own_) delete[] items_;
  }

  bool empty() const noexcept { return size_ == 0; }
  std::size_t size() const noexcept { return size_; }
  /// The last one. The reference holds until the next push.
  T& top() noexcept { return items_[size_ - 1]; }
  void pop() noexcept { --size_; }
  /// Throws std::bad_alloc and changes nothing then.
  void push(const T& item) {
    if (!tryPush(item)) throw std::bad_alloc();
  }
  /// Returns false, and changes nothing, when there is no memory.
  bool tryPush(const T& item) noexcept {
    if (size_ == capacity_ && !grow()) return false;
    items_[size_++] = item;
    return true;
  }

 private:
  bool grow() noexcept {
    T* const larger = new (std::nothrow) T[2 * capacity_];
    if (larger == nullptr) return false;
    std::memcpy(larger, items_, size_ * sizeof(T));
    if (items_ != own_) delete[] items_;
    items_ = larger;
    capacity_ *= 2;
    return true;
  }

  T own_[kOwn];
  T* items_ = own_;
  std::size_t size_ = 0;
  std::size_t capacity_ = kOwn;
};

}  // namespace tks
