#include "platform/linux/text/json_windows.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace tks::gnulinux {
namespace {

constexpr std::size_t kSmallestCapacity = 4096;
/// What exceeds this is not rounded up to a power of two.
constexpr std::size_t kLargestRoundedCapacity = std::size_t{1} << 20;
/// A window and where its tokens begin fit into a processor's second cache; the second size is for where there is no
/// end within the first one, such as in a long text.
constexpr std::size_t kWindowSizes[] = {std::size_t{1} << 16, std::size_t{1} << 20};

/// Fewer tokens are no window: looking for them again at the next one would take too long.
constexpr std::size_t kFewestTokens = 64;

/// Where a character stands for the last time; npos when nowhere.
std::size_t lastOf(char wanted, std::string_view text) noexcept {
  const void* const found = ::memrchr(text.data(), wanted, text.size());
  return found != nullptr ? static_cast<std::size_t>(static_cast<const char*>(found) - text.data()) : text.npos;
}

/// The last quote that no backslash precedes; npos when there is none. Looks at the last few only.
std::size_t lastQuote(std::string_view text) noexcept {
  constexpr int kFew = 16;
  std::size_t at = lastOf('"', text);
  for (int i = 0; i < kFew && at != text.npos; ++i, at = lastOf('"', text.substr(0, at))) {
    if (at == 0 || text[at - 1] != '\\') return at;
  }
  return text.npos;
}

/// Whether a quote before this character is most likely a closing one.
bool mayFollowText(char c) noexcept { return std::string_view(",:}] \t\r\n").find(c) != std::string_view::npos; }

}  // namespace

simdjson::error_code JsonTokenFinder::reserve(std::size_t length) {
  if (length <= capacity_) return simdjson::SUCCESS;
  if (length > simdjson::SIMDJSON_MAXSIZE_BYTES) return simdjson::CAPACITY;
  const std::size_t rounded = length > kLargestRoundedCapacity ? length : std::bit_ceil(length);
  const std::size_t capacity = std::max(rounded, kSmallestCapacity);
  capacity_ = 0;
  if (const simdjson::error_code error = parser_.allocate(capacity, 1)) return error;
  capacity_ = capacity;
  return simdjson::SUCCESS;
}

simdjson::error_code JsonTokenFinder::find(std::string_view text, JsonTokens& tokens) {
  if (text.empty()) return simdjson::EMPTY;
  if (const simdjson::error_code error = reserve(text.size())) return error;
  simdjson::internal::dom_parser_implementation& finder = *parser_.implementation;
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  if (const auto error = finder.stage1(bytes, text.size(), simdjson::stage1_mode::regular)) return error;
  finder.structural_indexes[finder.n_structural_indexes] = static_cast<std::uint32_t>(text.size());
  tokens = {text, {finder.structural_indexes.get(), finder.n_structural_indexes}};
  return simdjson::SUCCESS;
}

bool JsonWindows::findWindow(std::string_view candidate) {
  const std::size_t quote = lastQuote(candidate);
  if (quote == candidate.npos) {
    const std::size_t comma = lastOf(',', candidate);
    return comma != candidate.npos && finder_.find(candidate.substr(0, comma), tokens_) == simdjson::SUCCESS;
  }
  // When the text at the end turns out to be open, the quote opened it, or did not close it.
  const bool isClosing = quote + 1 < candidate.size() && mayFollowText(candidate[quote + 1]);
  auto error = finder_.find(candidate.substr(0, isClosing ? quote + 1 : quote), tokens_);
  if (error == simdjson::UNCLOSED_STRING)
    error = finder_.find(candidate.substr(0, isClosing ? quote : quote + 1), tokens_);
  return error == simdjson::SUCCESS;
}

simdjson::error_code JsonWindows::goTo(const char* token) {
  const std::string_view rest = text_.substr(static_cast<std::size_t>(token - text_.data()));
  isLast_ = false;
  for (const std::size_t size : kWindowSizes) {
    if (rest.size() <= 2 * size) break;
    if (findWindow(rest.substr(0, size)) && tokens_.begins.size() >= kFewestTokens) return simdjson::SUCCESS;
  }
  isLast_ = true;
  return finder_.find(rest, tokens_);
}

simdjson::error_code JsonWindows::goToWhole() {
  isLast_ = true;
  return finder_.find(text_, tokens_);
}

}  // namespace tks::gnulinux
