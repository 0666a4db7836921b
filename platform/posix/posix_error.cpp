#include "platform/posix/posix_error.h"

#include <cstring>

namespace tks::posix {

std::string reasonText(int number) {
#ifdef __GLIBC__
  const char* text = ::strerrordesc_np(number);
  return text != nullptr ? text : "Unknown error " + std::to_string(number);
#else
  char text[128] = {};
  return ::strerror_r(number, text, sizeof text) == 0 ? text : "Unknown error: " + std::to_string(number);
#endif
}

TKSError posixError(int number, std::string_view step, std::string_view path) {
  TKSError error;
  error.domain = "NSPOSIXErrorDomain";
  error.code = number;
  error.localizedDescription.append(step).append(" \"").append(path).append("\": ").append(reasonText(number));
  return error;
}

}  // namespace tks::posix
