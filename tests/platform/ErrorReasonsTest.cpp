#include "platform/posix/error_reasons.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include "platform/posix/posix_error.h"

// One table for the errors of both systems: the domains are those of macOS, and so are the numbers that Linux does not
// have.

namespace {

using Reason = TKSErrorReason;
using tks::posix::reasonOfSystemError;

TEST(SystemErrorReasons, FollowFromTheNumberInItsDomain) {
  struct Row {
    const char* domain;
    std::int64_t code;
    TKSErrorReason reason;
  };
  const Row rows[] = {
      {"NSPOSIXErrorDomain", ENOENT, Reason::notFound},     {"NSPOSIXErrorDomain", EACCES, Reason::noPermission},
      {"NSPOSIXErrorDomain", EROFS, Reason::noPermission},  {"NSPOSIXErrorDomain", ENOSPC, Reason::noRoom},
      {"NSPOSIXErrorDomain", EDQUOT, Reason::noRoom},       {"NSPOSIXErrorDomain", EMFILE, Reason::outOfResources},
      {"NSPOSIXErrorDomain", ETIMEDOUT, Reason::busy},      {"NSPOSIXErrorDomain", EEXIST, Reason::alreadyExists},
      {"NSPOSIXErrorDomain", EPIPE, Reason::channelFailed}, {"NSPOSIXErrorDomain", EIO, Reason::systemFailed},
      {"NSCocoaErrorDomain", 3840, Reason::badMessage},     {"NSCocoaErrorDomain", 260, Reason::notFound},
      {"NSURLErrorDomain", -1003, Reason::networkFailed},   {"NSURLErrorDomain", -1100, Reason::serverRefused},
      {"NSURLErrorDomain", -1002, Reason::invalidArgument}, {"NSURLErrorDomain", -1103, Reason::tooLarge},
      {"NSURLErrorDomain", ENOENT, Reason::systemFailed},   {"somebody.else", ENOENT, Reason::systemFailed},
      {"NSCocoaErrorDomain", 123456, Reason::systemFailed},
  };
  for (const Row& row : rows)
    EXPECT_EQ(reasonOfSystemError(row.domain, row.code), row.reason) << row.domain << row.code;
}

TEST(SystemErrorReasons, StandInEachErrorOfASystemCall) {
  const TKSError error = tks::posix::posixError(ENOSPC, "write", "/x");
  EXPECT_EQ(error, (TKSError{"NSPOSIXErrorDomain", ENOSPC, "write \"/x\": No space left on device"}));
  EXPECT_EQ(error.reason, Reason::noRoom);
  EXPECT_EQ(error.recoverySuggestion, TKSErrorReasonSuggestion(Reason::noRoom));
}

}  // namespace
