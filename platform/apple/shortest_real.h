#pragma once

#include "platform/real_text.h"

namespace tks::platform::apple {

/// What std::to_chars writes, without it.
char* writeShortest(char* out, double value, RealNotation notation) noexcept;

}  // namespace tks::platform::apple
