#pragma once

#include <string_view>

namespace tks::posix {

/// Notes that the library holds things in this process from now on that a copy must not touch: a main loop, channels,
/// locks. Call it before making one. Any thread.
void claimProcess() noexcept;

/// Whether this process is a copy, made by fork without exec, of one that was claimed. Both have the same descriptors,
/// so that what the copy did with them would be done to the other's conversation; and in the copy there are no threads
/// to wait for. One load as a rule. Any thread.
bool isForkedCopy() noexcept;

/// The same, for an operation that therefore does nothing; says so, once for all operations of the process.
bool refusesAsForkedCopy(std::string_view operation);

}  // namespace tks::posix
