#pragma once

#include <string_view>

namespace tks::install {

/// Whether a launcher lies at a path: a folder whose name ends in ".app" and that bears the launcher's name, as the one
/// at the standard path does, or names the launcher's identifier. Nothing else is ever removed as a broken launcher.
bool isLauncher(std::string_view path);

/// Whether a launcher that was found broken may be cleaned up: it is a launcher, or it is missing altogether. Anything
/// else that lies there because a path is wrong is left alone, with a line of level 8.
bool mayBeCleanedUp(std::string_view path);

/// Whether an installation may put a launcher where something lies already: a launcher, or what little is left of one,
/// a link, or an empty folder. Not in the place of documents, of a program, or of another application: that would lose
/// them because a path is wrong.
bool mayBeReplaced(std::string_view path);

}  // namespace tks::install
