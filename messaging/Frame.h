#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <string_view>

#include <tksinterface/TKSConstants.h>

#include "foundation/Options.h"

/// The frame that carries one message, in both directions and on both kinds of channel:
///
///   offset  size  content
///   0       4     length: uint32, little-endian, bytes in the payload (these four bytes do not count)
///   4       length  payload: UTF-8 JSON text, no terminator
///
/// Pure functions: no channel, no clock and no log in here.
namespace tks::messaging {

/// Bytes of the length in front of each payload.
inline constexpr std::size_t kHeaderBytes = 4;

/// The largest message, as the transport compares it: read at each use, as an unsigned number.
inline std::uint64_t largestMessage() {
  const auto largest = static_cast<std::uint64_t>(tks_max_msg_size);
  const auto option = static_cast<std::uint64_t>(options().largestFrame);
  return option == 0 ? largest : std::min(largest, option);
}

/// The length that a header announces.
constexpr std::uint32_t decodeLength(std::span<const char, kHeaderBytes> header) {
  std::uint32_t length = 0;
  for (std::size_t i = 0; i < kHeaderBytes; ++i) {
    length |= static_cast<std::uint32_t>(static_cast<unsigned char>(header[i])) << (8 * i);
  }
  return length;
}

/// The length that the first four bytes of `bytes` announce; there must be at least four.
constexpr std::uint32_t announcedLength(std::string_view bytes) {
  return decodeLength(std::span<const char, kHeaderBytes>(bytes.data(), kHeaderBytes));
}

/// Writes the header that announces a length.
constexpr void encodeLength(std::uint32_t length, std::span<char, kHeaderBytes> header) {
  for (std::size_t i = 0; i < kHeaderBytes; ++i) header[i] = static_cast<char>(length >> (8 * i) & 0xFF);
}

/// A frame is made in one buffer: space for the header first, then the payload after it, then the header is filled in.
inline void beginFrame(std::string& frame) { frame.assign(kHeaderBytes, '\0'); }

/// What follows the header.
inline std::string_view payloadOf(const std::string& frame) { return std::string_view(frame).substr(kHeaderBytes); }

/// False when a header cannot announce this many bytes.
constexpr bool fitsFrame(std::uint64_t payloadBytes) {
  return payloadBytes <= std::numeric_limits<std::uint32_t>::max();
}

/// Fills in the header; false when the payload is too long for one.
inline bool finishFrame(std::string& frame) {
  const std::size_t payloadBytes = frame.size() - kHeaderBytes;
  if (!fitsFrame(payloadBytes)) return false;
  encodeLength(static_cast<std::uint32_t>(payloadBytes), std::span<char, kHeaderBytes>(frame.data(), kHeaderBytes));
  return true;
}

/// Decides where the pieces of an input end, for a reader that hands it out piece by piece: a piece never reaches
/// beyond the end of the frame it belongs to, is never longer than the largest message, and never cuts a header.
///
/// What has come of a frame is a piece. A large frame comes as two instead: its header, and all of its payload as soon
/// as that is there, so that it can be read straight into its place.
class PieceCutter {
 public:
  /// Frames with more bytes than this in their payload are large.
  static constexpr std::size_t kMostInPieces = std::size_t{128} * 1024;

  /// The length of the next piece at the front of `ahead`, the bytes that were read but not handed out; they count as
  /// handed out from now on. 0: wait for more. `ended`: nothing more will come, so that a cut header or payload is a
  /// piece too.
  std::size_t next(std::string_view ahead, bool ended) {
    if (ahead.empty()) return 0;
    if (missing_ > 0) return ended || ahead.size() >= awaited() ? cut(ahead, missing_) : 0;
    if (ahead.size() < kHeaderBytes) return ended ? ahead.size() : 0;
    ++begun_;
    const std::uint32_t length = announcedLength(ahead);
    isLarge_ = length > kMostInPieces && length <= largestMessage();
    if (isLarge_) ahead = ahead.substr(0, kHeaderBytes);
    const std::size_t piece = cut(ahead, std::uint64_t{length} + kHeaderBytes);
    // The transport refuses such a frame and takes the next piece for a new one; following the announcement instead
    // would let a stray line of text swallow gigabytes of good frames.
    if (length > largestMessage()) missing_ = 0;
    return piece;
  }

  /// The number of the frame that has begun and is not whole, when `ahead` is left; 0 when there is none.
  std::uint64_t unfinished(std::string_view ahead) const {
    if (missing_ > 0) return begun_;
    return ahead.empty() ? 0 : begun_ + 1;
  }
  /// How many bytes the next piece needs when it is the payload of a large frame; else 0.
  std::size_t awaited() const { return isLarge_ ? static_cast<std::size_t>(std::min(missing_, longestPiece())) : 0; }
  /// There is no memory for a whole payload: what comes of it is handed out in pieces.
  void awaitNothing() { isLarge_ = false; }

 private:
  static std::uint64_t longestPiece() { return std::max<std::uint64_t>(largestMessage(), kHeaderBytes); }

  std::size_t cut(std::string_view ahead, std::uint64_t wanted) {
    const std::uint64_t piece = std::min({wanted, longestPiece(), std::uint64_t{ahead.size()}});
    missing_ = wanted - piece;
    return static_cast<std::size_t>(piece);
  }

  /// Bytes of the current frame that were not handed out yet.
  std::uint64_t missing_ = 0;
  /// Frames of which the header was handed out.
  std::uint64_t begun_ = 0;
  /// The current frame is a large one.
  bool isLarge_ = false;
};

}  // namespace tks::messaging
