#pragma once

#include <string>

namespace tks::platform::apple {

/// Whether the places in a bundle that no seal covers hold what belongs there and nothing else, in code inside of it as
/// well: the folders of the signature its parts, the folder of the receipt the receipt, and the place of the ticket a
/// file or a link. False when the bundle cannot be walked through whole. Any thread.
bool holdsOnlyPartsOfSignatures(const std::string& bundle);

}  // namespace tks::platform::apple
