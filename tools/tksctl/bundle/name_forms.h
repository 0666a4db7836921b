#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

// The forms that addresses and names have in texts. Everything here is linear in the length of the text, or nearly so,
// and knows nothing of this computer.

namespace tks::ctl {

/// Bytes from `begin` up to `end`.
struct FoundName {
  std::size_t begin = 0;
  std::size_t end = 0;
};

struct FoundURL {
  std::size_t begin = 0;
  std::size_t end = 0;
  std::string_view scheme;
  /// Without user and port.
  std::string_view host;
  /// Whether something follows the host.
  bool hasMore = false;
};

/// ASCII letters in lower case.
std::string lowered(std::string_view text);
std::string replacedAll(std::string_view text, std::string_view what, std::string_view by);

/// The first address of the web, or of anything else with "://" but a file; written with "%3A%2F%2F" as well.
std::optional<FoundURL> findURL(std::string_view text);
/// The first mail address, with "@" or "%40".
std::optional<FoundName> findMail(std::string_view text);
/// The first value after one of these names and "=" or ":", with or without quotes.
std::optional<FoundName> findSecret(std::string_view text, std::span<const std::string_view> names);

/// Where the word ends that begins at `at`: letters and digits, or a single other byte.
std::size_t endOfWord(std::string_view text, std::size_t at);
/// How many bytes at the beginning of a text are an address of a network or of a network card; 0: none.
std::size_t lengthOfAddress(std::string_view text);
/// How many are the name of a computer on a network; 0: none.
std::size_t lengthOfHostName(std::string_view text);
/// Whether the text ends in something that announces a version, whose numbers look like an address.
bool followsVersion(std::string_view text);

/// Whether a known word that was found at [begin, end) is meant: a short one may be a part of another.
bool standsAlone(std::string_view text, std::size_t begin, std::size_t end);
/// The text with "***" in place of each run of stars and the up to three letters before it.
std::string withoutBeginnings(std::string_view text);

}  // namespace tks::ctl
