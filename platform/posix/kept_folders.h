#pragma once

#include <span>
#include <string>

namespace tks::posix {

/// Whether a folder may be taken away, exchanged or emptied. The root, the home, the places of volumes, and whatever
/// any of these lies in, may not, however the path to it is spelled; nor may a path that ends in "." or "..". What is
/// no folder, a link to one of these included, may. False with errno: EBUSY, EINVAL for the dots.
///   home     the user's home; need not exist
///   volumes  where volumes stand, as far as the system tells: absolute paths without links
bool mayBeTakenAway(const std::string& path, const std::string& home, std::span<const std::string> volumes);

}  // namespace tks::posix
