#pragma once

#include <tksinterface/TKSValue.h>

#include "tools/tksctl/frame/output.h"

namespace tks::ctl {

/// Shows delta packages as a client gets them, TKSUtilBase::avaliableDeltaUpdates: a line each, and "packages" in the
/// document.
void showPackages(Output& out, const TKSDictionary& packages);

}  // namespace tks::ctl
