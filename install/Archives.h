#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace tks::install {

/// TKSUtilBase::unzip with a limit on what may be written; the tool is ended when it writes more.
void unzip(std::string_view zipPath, std::string_view folder, std::optional<std::uint64_t> mostBytes);
/// The same with a tar archive.
void untar(std::string_view archivePath, std::string_view folder, std::optional<std::uint64_t> mostBytes);

}  // namespace tks::install
