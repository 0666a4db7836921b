#pragma once

#include "tools/tksctl/bundle/scrubber.h"

namespace tks::ctl {

/// Tells a scrubber what is personal on this computer: the home, its people with their account's and their own names,
/// the computer's name. Accounts of the system itself, "root" among them, are nobody's.
void hideThisComputer(Scrubber& scrubber);

}  // namespace tks::ctl
