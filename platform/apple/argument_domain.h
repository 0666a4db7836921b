#pragma once

#include <tksinterface/TKSValue.h>

namespace tks::platform::apple {

/// The argument domain: pairs "-Name value" of this process's command line, each value the text that stands there. A
/// later pair replaces an earlier one; a name that is followed by another one, or by nothing, has no value. Any thread.
const TKSDictionary& argumentDomain();

}  // namespace tks::platform::apple
