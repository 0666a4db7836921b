#pragma once

namespace tks {

/// Whether this thread is inside the host's log callback: what the host destroys there may be in the midst of the step
/// that the line is about. Any thread.
bool isDeliveringLine() noexcept;

}  // namespace tks
