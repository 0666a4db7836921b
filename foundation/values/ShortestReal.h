#pragma once

#include "foundation/values/RealText.h"

namespace tks {

/// What std::to_chars writes, without it.
char* writeShortest(char* out, double value, RealNotation notation) noexcept;

}  // namespace tks
