#pragma once

#include <optional>
#include <string>

namespace tks::posix {

/// Whether a link leads out of a folder: by an absolute target, or at any step of following it, through further links
/// where these are. `link` is its path below `root`, whose folders are no links. One that cannot be read counts as
/// leading out; one that leads nowhere, or round in a circle, does not. Any thread.
bool leadsOut(const std::string& root, const std::string& link);

/// The first link in a folder, or in folders below it, that leads out of the folder: its path below `root`, "" for
/// `root` itself being a link. Nothing when there is none. An item that cannot be looked through is returned like a
/// link. Any thread; no link is followed on the way.
std::optional<std::string> findLinkOut(const std::string& root);

}  // namespace tks::posix
