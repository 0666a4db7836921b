#pragma once

#include <functional>

namespace tks::gnulinux {

/// Does `work`, which throws nothing, once on a new thread that nobody joins and that leaves all signals to the host's
/// own threads. Returns 0, or an error number and `work` never runs. Any thread; a copy of the process that was made by
/// fork gets no thread.
int startWorkerThread(std::function<void()> work);

}  // namespace tks::gnulinux
