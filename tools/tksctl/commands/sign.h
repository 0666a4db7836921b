#pragma once

#include "tools/tksctl/frame/command.h"

namespace tks::ctl {

/// The command that is a program of its own as well.
Command signCommand();

}  // namespace tks::ctl
