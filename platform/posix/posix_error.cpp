#include "platform/posix/posix_error.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/posix/error_reasons.h"

namespace tks::posix {
namespace {

#ifndef __GLIBC__
struct Words {
  int number;
  const char* text;
};

/// Where the system has words of its own: hosts read the same on every system, the GNU C library's.
constexpr Words kCommonWords[] = {
    {EBUSY, "Device or resource busy"},
    {EDQUOT, "Disk quota exceeded"},
    {EILSEQ, "Invalid or incomplete multibyte or wide character"},
    {ENODEV, "No such device"},
    {ENOTCONN, "Transport endpoint is not connected"},
    {ENXIO, "No such device or address"},
    {EOVERFLOW, "Value too large for defined data type"},
    {ERANGE, "Numerical result out of range"},
    {ESTALE, "Stale file handle"},
    {ETIMEDOUT, "Connection timed out"},
    {EXDEV, "Invalid cross-device link"},
};
#endif

}  // namespace

std::string reasonText(int number) {
#ifdef __GLIBC__
  const char* text = ::strerrordesc_np(number);
  return text != nullptr ? text : "Unknown error " + std::to_string(number);
#else
  for (const Words& words : kCommonWords) {
    if (words.number == number) return words.text;
  }
  char text[128] = {};
  return ::strerror_r(number, text, sizeof text) == 0 ? text : "Unknown error: " + std::to_string(number);
#endif
}

TKSError posixError(int number, std::string_view step, std::string_view path) {
  std::string text;
  text.append(step).append(" \"").append(path).append("\": ").append(reasonText(number));
  return systemError("NSPOSIXErrorDomain", number, std::move(text));
}

}  // namespace tks::posix
