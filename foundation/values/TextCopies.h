#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "foundation/values/Sixteen.h"
#include "foundation/values/Utf8.h"
#include "foundation/values/ValueNodes.h"

// Ways to copy a text into the place of a value.

namespace tks::value {

/// Texts up to this size are copied sixteen bytes at a time, longer ones by a call for each piece. A call for all of a
/// very long text would write past the processor's caches, and whoever reads the value next would wait for it.
inline constexpr std::size_t kWorthACall = 128;
inline constexpr std::size_t kPieceOfText = 4096;

inline void copyInPieces(char* to, std::string_view from) noexcept {
  for (; !from.empty(); from.remove_prefix(std::min(kPieceOfText, from.size())), to += kPieceOfText) {
    std::memcpy(to, from.data(), std::min(kPieceOfText, from.size()));
  }
}

/// Copies up to `kBytesBehind` bytes more.
inline void copyInStrides(char* to, std::string_view from) noexcept {
  if (from.size() > kWorthACall) return copyInPieces(to, from);
  for (std::size_t done = 0; done < from.size(); done += kBytesBehind) {
    std::memcpy(to + done, from.data() + done, kBytesBehind);
  }
}

/// What a copy may be watched for: a certain byte, ...
struct Excluded {
  unsigned char byte;

  /// Where it is, and whether it is there.
  Sixteen marks(Sixteen bytes) const noexcept { return marksOf(bytes == byte); }
  static bool isAmong(Sixteen marks) noexcept { return haveMark(marks); }
  bool isIn(std::string_view text) const noexcept { return std::memchr(text.data(), byte, text.size()) != nullptr; }
};
/// ... bytes that are no ASCII, ...
struct BeyondAscii {
  static Sixteen marks(Sixteen bytes) noexcept { return bytes & 0x80; }
  static bool isAmong(Sixteen marks) noexcept { return haveMark(marks); }
  static bool isIn(std::string_view text) noexcept { return !utf8::isAscii(text); }
};
/// ... or nothing.
struct Unwatched {
  static Sixteen marks(Sixteen) noexcept { return Sixteen{}; }
  static bool isAmong(Sixteen) noexcept { return false; }
  static bool isIn(std::string_view) noexcept { return false; }
};

/// Copies sixteen bytes of a text at a time.
template <class Watch>
class WatchedCopy {
 public:
  WatchedCopy(Watch watch, char* to, const char* from) noexcept : watch_(watch), to_(to), from_(from) {}
  /// Sixteen bytes, `at` from the beginning.
  void copy(std::size_t at) noexcept {
    const Sixteen bytes = sixteenAt(from_ + at);
    found_ |= watch_.marks(bytes);
    std::memcpy(to_ + at, &bytes, sizeof bytes);
  }
  bool hasFound() const noexcept { return Watch::isAmong(found_); }

 private:
  Watch watch_;
  char* to_;
  const char* from_;
  Sixteen found_{};
};

/// Copies a text of any length. False when something is in it that the copy is watched for, and the copy is worth
/// nothing then.
template <class Watch>
[[gnu::noinline]] bool copyLongWatched(Watch watch, char* to, std::string_view from) noexcept {
  while (!from.empty()) {
    const std::string_view piece = from.substr(0, kPieceOfText);
    if (watch.isIn(piece)) return false;
    std::memcpy(to, piece.data(), piece.size());
    to += piece.size();
    from.remove_prefix(piece.size());
  }
  return true;
}

/// The same for a text of more bytes than fit into a value; of fifteen bytes one more is read, looked at and written.
template <class Watch>
bool copyWatched(Watch watch, char* to, std::string_view from) noexcept {
  constexpr std::size_t kStride = sizeof(Sixteen);
  if (from.size() > kWorthACall) return copyLongWatched(watch, to, from);
  WatchedCopy<Watch> watched(watch, to, from.data());
  watched.copy(0);
  if (from.size() > kStride) {  // from both ends, so that most lengths take the same way
    watched.copy(from.size() - kStride);
    if (from.size() > 2 * kStride) {
      watched.copy(kStride);
      watched.copy(from.size() - 2 * kStride);
    }
    for (std::size_t done = 2 * kStride; done + 2 * kStride < from.size(); done += kStride) watched.copy(done);
  }
  return !watched.hasFound();
}
static_assert(sizeof(Sixteen) == kBytesBehind);

}  // namespace tks::value
