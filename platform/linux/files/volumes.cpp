#include "platform/linux/files/volumes.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/posix/whole_files.h"

namespace tks::gnulinux {
namespace {

constexpr std::string_view kMounts = "/proc/self/mountinfo";
constexpr std::size_t kLargestList = std::size_t{16} << 20;
/// Which of a line's words, counted from 0, says where the volume stands.
constexpr int kPlaceWord = 4;

std::string_view takeUpTo(std::string_view& text, char end) {
  const std::string_view taken = text.substr(0, text.find(end));
  text.remove_prefix(std::min(taken.size() + 1, text.size()));
  return taken;
}

bool isOctal(std::string_view digits) { return digits.find_first_not_of("01234567") == std::string_view::npos; }

/// The kernel writes blanks, line ends and backslashes as "\040".
std::string unescaped(std::string_view word) {
  std::string text;
  while (!word.empty()) {
    const bool isEscape = word.size() >= 4 && word[0] == '\\' && isOctal(word.substr(1, 3));
    text += isEscape ? static_cast<char>((word[1] - '0') * 64 + (word[2] - '0') * 8 + (word[3] - '0')) : word[0];
    word.remove_prefix(isEscape ? 4 : 1);
  }
  return text;
}

}  // namespace

std::vector<std::string> placesOfVolumes() {
  std::vector<std::string> places;
  const std::optional<TKSData> content = posix::readWholeFile(kMounts, kLargestList, nullptr);
  if (!content) return places;
  std::string_view rest(reinterpret_cast<const char*>(content->data()), content->size());
  while (!rest.empty()) {
    std::string_view line = takeUpTo(rest, '\n');
    for (int word = 0; word < kPlaceWord; ++word) takeUpTo(line, ' ');
    if (std::string place = unescaped(takeUpTo(line, ' ')); place.starts_with('/')) places.push_back(std::move(place));
  }
  return places;
}

}  // namespace tks::gnulinux
