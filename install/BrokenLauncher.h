#pragma once

#include <string_view>

namespace tks::install {

/// What the options want done with a launcher that was found broken, instead of removing it: it stays, or the one that
/// was kept when it was put in place takes its place again, if that one is still the maker's and healthy. With a line
/// of level 4. False when neither is wanted or possible: then it is to be removed. Any thread; the caller has the lock
/// of the place.
bool keepOrPutBack(std::string_view launcherPath);

}  // namespace tks::install
