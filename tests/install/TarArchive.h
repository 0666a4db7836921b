#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace tks::test {

/// Writes tar archives entry by entry, also such as no tool would write.
class TarArchive {
 public:
  enum Kind : char { file = '0', hardLink = '1', link = '2', characterDevice = '3', folder = '5', pipe = '6' };

  TarArchive& add(std::string_view name, std::string_view content) { return add(name, file, content); }
  TarArchive& add(std::string_view name, Kind kind, std::string_view content, std::string_view target = {}) {
    header(name, kind, content.size(), target);
    bytes_.append(content);
    bytes_.append((512 - content.size() % 512) % 512, '\0');
    return *this;
  }
  /// An entry that announces more than there is.
  TarArchive& announce(std::string_view name, std::uint64_t size) {
    header(name, file, size, {});
    return *this;
  }

  /// The archive with the two blocks that end it.
  std::string bytes() const { return bytes_ + std::string(1024, '\0'); }

 private:
  void header(std::string_view name, Kind kind, std::uint64_t size, std::string_view target) {
    std::array<char, 512> block{};
    name.copy(block.data(), 100);
    put(block, 100, "0000644");
    put(block, 108, "0000000");
    put(block, 116, "0000000");
    std::array<char, 12> number{};
    std::snprintf(number.data(), number.size(), "%011llo", static_cast<unsigned long long>(size));
    put(block, 124, number.data());
    put(block, 136, "00000000000");
    put(block, 148, "        ");
    block[156] = kind;
    target.copy(&block[157], 100);
    put(block, 257, "ustar");
    block[263] = block[264] = '0';
    unsigned sum = 0;
    for (const char byte : block) sum += static_cast<unsigned char>(byte);
    std::snprintf(number.data(), number.size(), "%06o", sum);
    put(block, 148, number.data());
    block[154] = '\0';
    bytes_.append(block.data(), block.size());
  }

  static void put(std::array<char, 512>& block, std::size_t at, std::string_view text) {
    text.copy(&block[at], text.size());
  }

  std::string bytes_;
};

}  // namespace tks::test
