#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSURL.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/logging/Logging.h"

// Queries of URLs. Nothing is decoded, neither percent signs nor "+".

namespace {

using Entries = std::vector<std::pair<std::string, TKSValue>>;

constexpr std::string_view kParamKey = "param";

/// Takes the text up to the next separator, and the separator, off `rest`.
std::string_view takeItem(std::string_view& rest, char separator) {
  const std::size_t end = rest.find(separator);
  const std::string_view item = rest.substr(0, end);
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  return item;
}

/// KEY=VALUE. The value begins after the first "=", so that the base64 text of "param" keeps its own ones.
void addItem(Entries& entries, std::string_view item) {
  const std::size_t equals = item.find('=');
  if (equals == std::string_view::npos) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Could not get key/value with item: %@", tks::masked(item));
    return;
  }
  const std::string_view key = item.substr(0, equals);
  const std::string_view value = item.substr(equals + 1);
  if (key == kParamKey) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "getParamValue: %@ forKey: %@", tks::masked(value), key);
  }
  entries.emplace_back(key, value);
}

}  // namespace

std::optional<TKSDictionary> TKSUtilBase::getURLQueryDict(std::string_view url) {
  if (url.empty()) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "URL string empty or nil, fail to get query dict.");
    return std::nullopt;
  }
  const std::optional<TKSURL> parsed = TKSURL::URLWithString(url);
  const std::string query = parsed ? parsed->query().value_or("") : std::string();
  if (query.empty()) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Could not get query string from URL: %@", tks::masked(url));
    return std::nullopt;
  }
  return getQueryDict(query);
}

std::optional<TKSDictionary> TKSUtilBase::getQueryDict(std::string_view query) {
  if (query.empty()) return std::nullopt;
  Entries entries;
  bool more = true;
  while (more) {
    more = query.find('&') != std::string_view::npos;
    addItem(entries, takeItem(query, '&'));
  }
  if (entries.empty()) return std::nullopt;
  return TKSDictionary(std::move(entries));
}
