#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace tks {

/// Bytes as lower-case hexadecimal digits, two for each.
std::string hexadecimal(std::span<const std::uint8_t> bytes);

}  // namespace tks
