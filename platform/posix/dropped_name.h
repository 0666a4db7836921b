#pragma once

#include <string>

namespace tks::posix {

// A file of a conversation that goes on without its name. Whoever has it open sees from the file itself that the name
// was dropped on purpose, because nobody ever makes such a file executable otherwise: it has the owner's right to
// execute then, and no name.

/// Marks an open file and removes its name. False, and errno, when it keeps the name.
bool dropName(int descriptor, const std::string& path);

/// Whether the name of an open file was dropped on purpose, and the one who did it still goes on with it.
bool isNameDropped(int descriptor);

/// Takes the mark back, so that the other end learns that nobody goes on with the file here.
void leaveDroppedFile(int descriptor);

}  // namespace tks::posix
