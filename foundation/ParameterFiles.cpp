#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/logging/Logging.h"
#include "foundation/values/Characters.h"
#include "foundation/values/Utf8.h"
#include "platform/platform.h"

// Files with one parameter a line:
//   line   := prefix key marker value suffix
//   prefix := nine characters      marker := "-=-[VALUE]-=-"      suffix := three characters
// Characters are UTF-16 units. What prefix and suffix hold is not looked at.

namespace {

using Entry = std::pair<std::string, TKSValue>;

constexpr std::size_t kPrefixLength = 9;
constexpr std::string_view kMarker = "-=-[VALUE]-=-";
constexpr std::size_t kSuffixLength = 3;
constexpr std::size_t kLargestFile = 16u * 1024 * 1024;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// The file's text without a byte-order mark; empty when it cannot be read or is not UTF-8.
std::string textOfFile(std::string_view path) {
  const std::optional<TKSData> content = tks::platform::files().read(path, kLargestFile, nullptr);
  if (!content) return {};
  std::string text(content->begin(), content->end());
  if (text.starts_with(kByteOrderMark)) text.erase(0, kByteOrderMark.size());
  return tks::utf8::isValid(text) ? text : std::string();
}

/// Takes a line off a text. Lines end at LF, CR LF or CR; an empty line more does not matter to us.
std::string_view takeLine(std::string_view& text) {
  const std::size_t end = text.find_first_of("\r\n");
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return line;
}

std::optional<Entry> entryOf(std::string_view line) {
  const std::size_t marker = line.find(kMarker);
  if (marker == std::string_view::npos) return std::nullopt;
  tks::platform::Text& text = tks::platform::text();
  const std::string_view head = line.substr(0, marker);
  const std::string_view tail = line.substr(marker + kMarker.size());
  const std::size_t tailLength = text.utf16Length(tail);
  if (text.utf16Length(head) < kPrefixLength || tailLength < kSuffixLength) return std::nullopt;
  const std::string_view key = head.substr(tks::firstCharacters(head, kPrefixLength).size());
  return Entry(key, tks::firstCharacters(tail, tailLength - kSuffixLength));
}

}  // namespace

std::optional<TKSDictionary> TKSUtilBase::getParamDictFromPath(std::string_view path) {
  if (!tks::platform::files().exists(path)) return std::nullopt;
  const std::string text = textOfFile(path);
  std::vector<Entry> entries;
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view line = takeLine(rest);
    if (line.empty()) continue;
    if (std::optional<Entry> entry = entryOf(line)) {
      entries.push_back(*std::move(entry));
    } else {
      TKSILog::logWithLevel(TKSILogLevelWarning, "-=-[VALUE]-=- not found. Line: %@", tks::masked(line));
    }
  }
  return TKSDictionary(std::move(entries));
}
