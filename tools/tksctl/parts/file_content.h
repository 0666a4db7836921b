#pragma once

#include <cstddef>
#include <string>

#include <tksinterface/TKSValue.h>

namespace tks::ctl {

/// The bytes of a regular file. Throws std::runtime_error, which names the file, when it cannot be read or is longer
/// than `most`.
TKSData contentOf(const std::string& path, std::size_t most);

}  // namespace tks::ctl
