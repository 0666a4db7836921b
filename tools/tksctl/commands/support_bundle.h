#pragma once

#include "tools/tksctl/frame/command.h"

namespace tks::ctl {

Command supportBundleCommand();

}  // namespace tks::ctl
