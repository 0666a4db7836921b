#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tks::messaging {

/// What one piece of the input means for the message that is being put together. A pure value: what was received and
/// what is missing stays with the host, which also reports and logs.
///
///   bytes missing   piece                         action   taken             missing afterwards
///   any             longer than a message may be  refuse   -                 as before
///   none            no header in it               refuse   -                 none
///   some            empty                         refuse   -                 as before
///   some            anything else                 resume   all of it         the rest; a surplus is taken as well
///   none            announces too much            begin    nothing           none; has a problem, goes on all the same
///   none            part of a frame               begin    after the header  the rest
///   none            a frame, perhaps with more    begin    what it announces none; more is surplus, and ignored
struct PiecePlan {
  enum class Action : std::uint8_t {
    refuse,  ///< report the problem and forget the piece
    begin,   ///< a new message, whose header the piece begins with
    resume,  ///< more of the message of which bytes are missing
  };

  Action action = Action::refuse;
  /// What has to be reported as a fatal error; empty when nothing is wrong.
  std::string problem{};
  /// The length that the header announces; 0 unless a message begins.
  std::uint64_t announced = 0;
  /// The bytes of the piece that belong to the message.
  std::string_view taken{};
  /// Bytes of the message still missing afterwards.
  std::uint64_t missing = 0;
  /// A beginning frame is followed by more bytes than it announces.
  bool hasSurplus = false;
};

/// `missing`: bytes still missing of the message begun earlier. `largest`: the most bytes that a piece or a message may
/// have.
PiecePlan planOf(std::uint64_t missing, std::string_view piece, std::uint64_t largest);

}  // namespace tks::messaging
