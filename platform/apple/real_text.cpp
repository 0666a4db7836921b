#include "platform/real_text.h"

#include "platform/apple/shortest_real.h"

namespace tks::platform {

char* writeReal(char* out, double value, RealNotation notation) noexcept {
  return apple::writeShortest(out, value, notation);
}

}  // namespace tks::platform
