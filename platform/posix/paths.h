#pragma once

#include <string>
#include <string_view>

namespace tks::posix {

/// Whether the system can be given the path at all: it would take one with a NUL byte for a shorter one. Sets errno
/// when not.
bool isPath(std::string_view path);

/// Without closing slashes, which would make the system follow a link at the end.
std::string withoutClosingSlashes(std::string_view path);

/// The folder that an item lies in; "." for a bare name.
std::string folderOf(const std::string& path);

/// What the links at the end of a path lead to, one after the other; it need not exist. The path itself when no link is
/// there. Links that lead in a circle leave one of them.
std::string behindLinks(std::string_view path);

/// Whether the last component is "." or "..", which name a folder by another name than its own.
bool endsInDots(std::string_view path);

/// Whether both lead to the same file or folder (links followed), however they are spelled.
bool isSameItem(const std::string& one, const std::string& other);

/// Whether a folder is "/" or the place where a volume stands. Of these the system lets nobody take away more than what
/// is in them.
bool isRootOfVolume(const std::string& path);

/// Whether `folder` is the folder `outer`, or lies in it however deep (links followed in both).
bool liesWithin(const std::string& folder, const std::string& outer);

}  // namespace tks::posix
