// A list of patterns and, after the first line feed, a text. A search that runs away must come back.

#include <tksinterface/TKSUtilBase.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/platform.h"
#include "tests/fuzz/Require.h"

using tks::fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Many patterns of 200 ms each tell no more than a few.
  constexpr std::size_t kLongest = 256;
  if (size > kLongest) return 0;
  std::string_view text = tks::fuzz::textOf(data, size);
  const std::string_view patterns = tks::fuzz::takeFirst(text);
  const bool matches = TKSUtilBase::isMatchedToRegex(patterns, text);
  if (text.empty() || patterns.empty()) require(!matches);
  if (patterns == "*") require(matches == !text.empty());

  tks::platform::Text& rules = tks::platform::text();
  const std::string lower = rules.lowerCase(text);
  require(rules.equalIgnoringCase(text, text));
  require(rules.compareNumerically(text, text) == 0);
  const int order = rules.compareNumerically(patterns, text);
  const int back = rules.compareNumerically(text, patterns);
  require((order < 0) == (back > 0) && (order == 0) == (back == 0));
  require(rules.utf16Length(text) <= text.size());
  return 0;
}
