#pragma once

#include <cstdint>

#include <tksinterface/TKSInstallProgress.h>

namespace tks::install {

/// Tells the host's callback, if there is one, how far an installation has come. Any thread; holds no lock while the
/// host is called.
void tellProgress(TKSInstallStep step, std::uint64_t bytesDone = 0, std::uint64_t bytesTotal = 0);

}  // namespace tks::install
