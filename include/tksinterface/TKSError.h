#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <tksinterface/TKSExport.h>

/// What kind of failure an error tells of, for hosts that decide by it what to do. The numbers never change their
/// meaning and new ones are added at the end, so that they can cross to other languages and into files: a host treats a
/// number that it does not know like `unspecified`.
enum class TKSErrorReason : std::int32_t {
  unspecified = 0,         ///< nothing is known beyond domain, code and text; errors that a host makes itself
  notInstalled = 1,        ///< there is no launcher, or no program in it, where it is expected
  notTrusted = 2,          ///< a signature is missing, not valid or not the maker's
  broken = 3,              ///< the launcher or a package is there, but damaged or incomplete
  endedEarly = 4,          ///< the launcher's process ended before its work was done
  notAnswered = 5,         ///< the launcher did not answer, was not seen running or did not quit in time
  badMessage = 6,          ///< a message, a list or a file's content is not what it has to be
  noRoom = 7,              ///< the volume is full, or the user's share of it
  noPermission = 8,        ///< this user may not do that there
  toolMissing = 9,         ///< a tool of the system that the operation needs is missing or cannot be started
  busy = 10,               ///< something else is under way; the same call may work later
  cancelled = 11,          ///< a later call of the host took the place of this one, or ended it
  refusedByLauncher = 12,  ///< the launcher itself answered with an error
  channelFailed = 13,      ///< the connection to the launcher broke or was misused
  invalidArgument = 14,    ///< the caller gave something that the operation cannot work on
  notFound = 15,           ///< a file or folder is not there
  alreadyExists = 16,      ///< a file or folder is there already
  outOfResources = 17,     ///< memory, descriptors, threads or processes have run out
  tooLarge = 18,           ///< beyond a limit of size, depth or number
  networkFailed = 19,      ///< a server cannot be reached, or the connection to it broke
  serverRefused = 20,      ///< a server answered with something else than what was asked for
  wrongVersion = 21,       ///< a package is not of the version that it was said to be
  noSafeFolder = 22,       ///< there is no temporary folder that nobody else can write to
  systemFailed = 23,       ///< the system refused for a reason that stands in the text
};

/// The name of a reason, as it stands above: "notTrusted". As stable as the number; "unspecified" for unknown numbers.
TKS_EXPORT std::string_view TKSErrorReasonName(TKSErrorReason reason) noexcept;

/// What helps against a reason as a rule, in one or two English sentences; empty for `unspecified`.
TKS_EXPORT std::string_view TKSErrorReasonSuggestion(TKSErrorReason reason) noexcept;

/// An error object: where the error comes from, its number there, and the reason in words.
///
/// Operations that can fail take a `TKSError*` as their last argument. It may be null. It is written only on failure.
struct TKS_EXPORT TKSError {
  /// Where the error comes from, for example TKSIDefaultDomain.
  std::string domain;
  /// The error's number in its domain.
  std::int64_t code = 0;
  /// The reason in words.
  std::string localizedDescription;
  /// The kind of failure. Every error of this library has one.
  TKSErrorReason reason = TKSErrorReason::unspecified;
  /// What a user or host can do about it, in words; empty when nothing is known to help.
  std::string recoverySuggestion{};

  /// Error Domain=DOMAIN Code=CODE "TEXT"
  std::string description() const;
  /// Errors are equal when domain, code and text are; reason and suggestion follow from these.
  friend bool operator==(const TKSError& left, const TKSError& right) {
    return left.domain == right.domain && left.code == right.code &&
           left.localizedDescription == right.localizedDescription;
  }
};
