#include "foundation/values/RealText.h"
#include "foundation/values/ShortestReal.h"

namespace tks {

char* writeReal(char* out, double value, RealNotation notation) noexcept { return writeShortest(out, value, notation); }

}  // namespace tks
