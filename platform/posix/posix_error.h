#pragma once

#include <cerrno>
#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>

namespace tks::posix {

/// What a number of errno means, in English whatever the locale.
std::string reasonText(int number);

/// The error of a failed system call: domain "NSPOSIXErrorDomain", the number, and `step "path": reason`.
TKSError posixError(int number, std::string_view step, std::string_view path);

/// Stores the error of the call that just set errno, and returns false.
inline bool fail(TKSError* error, std::string_view step, std::string_view path) {
  if (error != nullptr) *error = posixError(errno, step, path);
  return false;
}

}  // namespace tks::posix
