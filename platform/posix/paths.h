#pragma once

#include <string>
#include <string_view>

namespace tks::posix {

/// The same as tks::isPath, and sets errno when the system cannot be given the path.
bool isPath(std::string_view path);

/// What the links at the end of a path lead to, one after the other; it need not exist. The path itself when no link is
/// there. Links that lead in a circle leave one of them.
std::string behindLinks(std::string_view path);

/// Whether the last component is "." or "..", which name a folder by another name than its own.
bool endsInDots(std::string_view path);

/// Whether both lead to the same file or folder (links followed), however they are spelled.
bool isSameItem(const std::string& one, const std::string& other);

/// Whether a folder is "/" or the place where a volume stands. These can be emptied but not removed.
bool isRootOfVolume(const std::string& path);

/// Whether `folder` is the folder `outer`, or lies in it however deep (links followed in both).
bool liesWithin(const std::string& folder, const std::string& outer);

}  // namespace tks::posix
