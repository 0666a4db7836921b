#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>

namespace tks::posix {

/// Takes every right of others away from a folder. False, and `error`, when it is not this user's own folder; a link to
/// one does not count.
bool closeToOthers(std::string_view path, TKSError* error);

/// See platform::Files::makePrivateDirectory.
std::optional<std::string> makePrivateFolder(std::string_view beginning, TKSError* error);

}  // namespace tks::posix
