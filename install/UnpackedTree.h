#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "install/ArchiveCheck.h"

namespace tks::install {

/// Goes through what an archive was unpacked to, before anything of it is used: there are only files with one name,
/// folders, and links (where `rules` allows them) that stay inside of the top folder they are in, and nothing is there
/// that the archive did not announce. On the way files get the permissions 0644, or 0755 when somebody may execute
/// them, and folders 0755, each without what `allowed` lacks of a group's and others' rights.
///
/// The objection in words, nothing when all is well. Any thread; the folder must be closed to others.
std::optional<std::string> objectionToTree(const std::string& folder, const ArchiveContent& announced,
                                           const ArchiveRules& rules, std::uint32_t allowed);

}  // namespace tks::install
