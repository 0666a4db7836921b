#include <tksinterface/TKSError.h>

#include "foundation/values/ErrorReasons.h"

#include <cstddef>
#include <iterator>
#include <utility>

namespace {

struct ReasonWords {
  std::string_view name;
  std::string_view suggestion;
};

/// In the order of their numbers.
constexpr ReasonWords kReasons[] = {
    {"unspecified", ""},
    {"notInstalled", "Install the launcher, or give the path of the installed one or of a backup archive."},
    {"notTrusted", "Install the launcher again from its maker; do not start what is there."},
    {"broken", "Install the launcher again."},
    {"endedEarly", "Start again. If the launcher ends each time, look at how it ended and install it again."},
    {"notAnswered", "Try again. If the launcher still does not react, end its process first."},
    {"badMessage", "Use a launcher and a library of versions that fit together, and check what was sent or stored."},
    {"noRoom", "Free space on the volume and try again."},
    {"noPermission", "Give this user access to the file or folder that the error names and try again."},
    {"toolMissing", "Install the system's tool that the error names."},
    {"busy", "Wait until the operation that is under way has ended and try again."},
    {"cancelled", "Nothing has to be done; call again if it is still wanted."},
    {"refusedByLauncher", "Show the user what the launcher says; its code tells what it was about."},
    {"channelFailed", "Start again."},
    {"invalidArgument", "Correct what was passed; the same call fails again."},
    {"notFound", "Check the path that the error names."},
    {"alreadyExists", "Remove what is there or choose another name."},
    {"outOfResources", "End programs that are not needed or raise the limits of this process, then try again."},
    {"tooLarge", "Use something smaller; the limit is fixed."},
    {"networkFailed", "Check the connection to the network and the address, then try again."},
    {"serverRefused", "Check the address, and that the server has what is asked for."},
    {"wrongVersion", "Give the version that the package has, or the package of that version."},
    {"noSafeFolder", "Let TMPDIR name a folder of this user that nobody else can write to."},
    {"systemFailed", "Look at the reason that the error gives."},
};

const ReasonWords& wordsOf(TKSErrorReason reason) noexcept {
  const auto number = static_cast<std::size_t>(static_cast<std::uint32_t>(reason));
  return kReasons[number < std::size(kReasons) ? number : 0];
}

}  // namespace

std::string_view TKSErrorReasonName(TKSErrorReason reason) noexcept { return wordsOf(reason).name; }

std::string_view TKSErrorReasonSuggestion(TKSErrorReason reason) noexcept { return wordsOf(reason).suggestion; }

std::string TKSError::description() const {
  return "Error Domain=" + domain + " Code=" + std::to_string(code) + " \"" + localizedDescription + "\"";
}

TKSError tks::makeError(TKSErrorReason reason, std::string_view domain, std::int64_t code, std::string text) {
  return withReason({std::string(domain), code, std::move(text)}, reason);
}

TKSError tks::withReason(TKSError error, TKSErrorReason reason) {
  error.reason = reason;
  error.recoverySuggestion = TKSErrorReasonSuggestion(reason);
  return error;
}
