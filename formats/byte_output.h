#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>
#include <utility>

#include <tksinterface/TKSValue.h>

namespace tks::formats {

/// Bytes that are written one after the other, most of them few at a time. Their end stands on a stage of fixed size.
class ByteOutput {
 public:
  /// How much may be written to `room` before it is told.
  static constexpr std::size_t kMostAtOnce = 1024;

  /// Makes room for about so many bytes more, so that they need not be moved once they are many. Throws std::bad_alloc.
  void expect(std::size_t more) { bytes_.reserve(size() + more); }

  /// Where to write next.
  char* room() {
    if (used_ > kStage - kMostAtOnce) flush();
    return stage_ + used_;
  }
  /// Something was written, from `room` to here.
  void wroteTo(const char* end) { used_ = static_cast<std::size_t>(end - stage_); }

  /// Any number of bytes.
  void append(std::string_view bytes) {
    if (bytes.size() <= kMostAtOnce) {
      char* const to = room();
      std::memcpy(to, bytes.data(), bytes.size());
      return wroteTo(to + bytes.size());
    }
    flush();
    insert(bytes);
  }

  std::size_t size() const { return bytes_.size() + used_; }
  /// Everything that was written; nothing is left.
  TKSData take() {
    flush();
    return std::exchange(bytes_, {});
  }

 private:
  static constexpr std::size_t kStage = 16 * kMostAtOnce;

  void flush() {
    insert({stage_, used_});
    used_ = 0;
  }
  void insert(std::string_view bytes) {
    const auto* const first = reinterpret_cast<const TKSData::value_type*>(bytes.data());  // so that it is one copy
    bytes_.insert(bytes_.end(), first, first + bytes.size());
  }

  TKSData bytes_;
  std::size_t used_ = 0;
  char stage_[kStage];
};

/// Writes a constant text and returns where it ends.
inline char* copied(char* to, std::string_view text) {
  std::memcpy(to, text.data(), text.size());
  return to + text.size();
}

}  // namespace tks::formats
