#include <algorithm>
#include <chrono>
#include <cstddef>
#include <string_view>

#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/logging/Logging.h"
#include "foundation/values/Characters.h"
#include "platform/platform.h"

// Lists of patterns: "foo, ^bar$".

namespace {

using Match = tks::platform::Text::Match;

using Clock = std::chrono::steady_clock;
using Deadline = Clock::time_point;

constexpr std::string_view kEverything = "*";
/// For a whole list of patterns.
constexpr std::chrono::milliseconds kTimeLimit{200};

/// Looks for one pattern of a list, and says what is wrong with it.
Match find(std::string_view pattern, std::string_view text, Deadline deadline) {
  const Match match = tks::platform::text().findPattern(pattern, text, deadline);
  if (match == Match::badPattern) {
    TKSILog::logWithLevel(
        TKSILogLevelError,
        "Fail to get regular expression with pattern:%@! Consider the checked string:%@ is NOT matched.",
        tks::masked(pattern), tks::masked(text));
  } else if (match == Match::timeLimit) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Search for pattern:%@ takes too long, consider as not matched.",
                          tks::masked(pattern));
  }
  return match;
}

}  // namespace

bool TKSUtilBase::isMatchedToRegex(std::string_view patterns, std::string_view text) {
  if (patterns.empty() || text.empty()) return false;
  if (patterns == kEverything) return true;
  const Deadline end = Clock::now() + kTimeLimit;
  for (std::size_t begin = 0; begin <= patterns.size();) {
    const std::string_view rest = patterns.substr(begin);
    const std::string_view pattern = rest.substr(0, rest.find(','));
    // An equal share of what time is left, so that no pattern keeps those after it from being tried.
    const auto patternsLeft = std::count(rest.begin(), rest.end(), ',') + 1;
    const Deadline deadline = Clock::now() + (end - Clock::now()) / patternsLeft;
    const Match match = find(tks::trimmed(pattern), text, deadline);
    // The first match decides; a pattern that does not compile fails the list.
    if (match == Match::matched) return true;
    if (match == Match::badPattern) return false;
    begin += pattern.size() + 1;
  }
  return false;
}
