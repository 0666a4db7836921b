#include "platform/posix/error_reasons.h"

#include <cerrno>
#include <span>
#include <string>
#include <utility>

#include "foundation/values/ErrorReasons.h"

namespace tks::posix {
namespace {

using Reason = TKSErrorReason;

struct KnownNumber {
  std::int64_t number;
  TKSErrorReason reason;
};

constexpr KnownNumber kErrno[] = {
    {ENOENT, Reason::notFound},
    {ENOTDIR, Reason::notFound},
    {EACCES, Reason::noPermission},
    {EPERM, Reason::noPermission},
    {EROFS, Reason::noPermission},
    {ENOSPC, Reason::noRoom},
    {EDQUOT, Reason::noRoom},
    {EMFILE, Reason::outOfResources},
    {ENFILE, Reason::outOfResources},
    {ENOMEM, Reason::outOfResources},
    {EAGAIN, Reason::outOfResources},
    {EEXIST, Reason::alreadyExists},
    {ENOTEMPTY, Reason::alreadyExists},
    {EBUSY, Reason::busy},
    {ETXTBSY, Reason::busy},
    {ETIMEDOUT, Reason::busy},
    {EDEADLK, Reason::busy},
    {EFBIG, Reason::tooLarge},
    {E2BIG, Reason::tooLarge},
    {EOVERFLOW, Reason::tooLarge},
    {EMSGSIZE, Reason::tooLarge},
    {ENAMETOOLONG, Reason::tooLarge},
    {EINVAL, Reason::invalidArgument},
    {EILSEQ, Reason::invalidArgument},
    {EISDIR, Reason::invalidArgument},
    {ELOOP, Reason::invalidArgument},
    {EPIPE, Reason::channelFailed},
    {ECONNRESET, Reason::channelFailed},
    {ENOTCONN, Reason::channelFailed},
};

/// NSFileReadNoSuchFileError and so on.
constexpr KnownNumber kCocoa[] = {
    {4, Reason::notFound},       {260, Reason::notFound},    {257, Reason::noPermission},  {513, Reason::noPermission},
    {642, Reason::noPermission}, {640, Reason::noRoom},      {516, Reason::alreadyExists}, {259, Reason::badMessage},
    {263, Reason::tooLarge},     {3840, Reason::badMessage}, {3841, Reason::badMessage},   {3842, Reason::badMessage},
    {3851, Reason::badMessage},  {3852, Reason::badMessage},
};

/// NSURLErrorTimedOut and so on.
constexpr KnownNumber kURLLoading[] = {
    {-1000, Reason::invalidArgument}, {-1002, Reason::invalidArgument}, {-1001, Reason::networkFailed},
    {-1003, Reason::networkFailed},   {-1004, Reason::networkFailed},   {-1005, Reason::networkFailed},
    {-1006, Reason::networkFailed},   {-1009, Reason::networkFailed},   {-1200, Reason::networkFailed},
    {-1202, Reason::networkFailed},   {-1007, Reason::serverRefused},   {-1011, Reason::serverRefused},
    {-1100, Reason::serverRefused},   {-1102, Reason::noPermission},    {-1103, Reason::tooLarge},
};

struct KnownDomain {
  std::string_view domain;
  std::span<const KnownNumber> numbers;
};

constexpr KnownDomain kDomains[] = {
    {"NSPOSIXErrorDomain", kErrno}, {"NSCocoaErrorDomain", kCocoa}, {"NSURLErrorDomain", kURLLoading}};

}  // namespace

TKSErrorReason reasonOfSystemError(std::string_view domain, std::int64_t code) noexcept {
  for (const KnownDomain& known : kDomains) {
    if (known.domain != domain) continue;
    for (const KnownNumber& row : known.numbers) {
      if (row.number == code) return row.reason;
    }
  }
  return Reason::systemFailed;
}

TKSError systemError(std::string_view domain, std::int64_t code, std::string text) {
  return makeError(reasonOfSystemError(domain, code), domain, code, std::move(text));
}

}  // namespace tks::posix
