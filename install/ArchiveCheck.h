#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tks::install {

/// Looks at an archive before it is unpacked into `folder`: every name stays inside, there are only files, folders and
/// links that stay inside, nothing is put through a link, and the declared sizes fit on the volume and are no bomb.
/// Nothing when all is well, else the reason in words.
std::optional<std::string> reasonAgainstUnpacking(std::string_view archivePath, std::string_view folder);

}  // namespace tks::install
