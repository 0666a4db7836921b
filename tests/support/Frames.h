#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace tks::test {

/// A header that announces `length` bytes, written down independently of the library.
inline std::string header(std::uint32_t length) {
  return {static_cast<char>(length & 0xFF), static_cast<char>(length >> 8 & 0xFF),
          static_cast<char>(length >> 16 & 0xFF), static_cast<char>(length >> 24 & 0xFF)};
}

inline std::string frame(std::string_view payload) {
  return header(static_cast<std::uint32_t>(payload.size())) + std::string(payload);
}

/// The payloads of a run of whole frames; the rest, if there is one, is the last element.
inline std::vector<std::string> payloads(std::string_view bytes) {
  std::vector<std::string> found;
  while (!bytes.empty()) {
    std::uint32_t length = 0;
    for (std::size_t i = 0; i < 4 && i < bytes.size(); ++i) {
      length |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
    }
    if (bytes.size() < 4 || bytes.size() - 4 < length) {
      found.emplace_back(bytes);
      break;
    }
    found.emplace_back(bytes.substr(4, length));
    bytes.remove_prefix(4 + std::size_t{length});
  }
  return found;
}

}  // namespace tks::test
