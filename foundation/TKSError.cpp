#include <tksinterface/TKSError.h>

std::string TKSError::description() const {
  return "Error Domain=" + domain + " Code=" + std::to_string(code) + " \"" + localizedDescription + "\"";
}
