// Any bytes as a query, as a URL and as a file of parameters.

#include <tksinterface/TKSURL.h>
#include <tksinterface/TKSUtilBase.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "tests/fuzz/Require.h"
#include "tests/support/ForwardingFiles.h"

using tks::fuzz::require;

namespace {

/// One file in memory, whatever its path.
class OneFile final : public tks::test::ForwardingFiles {
 public:
  explicit OneFile(std::string_view content) : content_(content) {}
  bool exists(std::string_view) override { return true; }
  std::optional<TKSData> read(std::string_view, std::size_t limit, TKSError*) override {
    if (content_.size() > limit) return std::nullopt;
    return TKSData(content_.begin(), content_.end());
  }

 private:
  std::string_view content_;
};

void tryURL(std::string_view text) {
  const std::optional<TKSURL> url = TKSURL::URLWithString(text);
  if (!url) {
    require(TKSUtilBase::getURLQueryDict(text) == std::nullopt);
    return;
  }
  require(url->absoluteString() == text);
  require(TKSUtilBase::getURLQueryDict(text) == TKSUtilBase::getQueryDict(url->query().value_or("")));
  const TKSURL longer = url->appendingPathComponent("x y");
  require(longer.path().ends_with("/x y"));
  require(longer.query() == url->query());
  require(longer.scheme() == url->scheme());
}

void tryPath(std::string_view path) {
  const TKSURL url = TKSURL::fileURLWithPath(path);
  require(path.empty() == url.absoluteString().empty());
  if (path.empty() || path.front() != '/' || (path.size() > 1 && path.back() == '/')) return;
  require(url.isFileURL() && url.path() == path);
  require(TKSURL::URLWithString(url.absoluteString()) == url);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = tks::fuzz::textOf(data, size);
  const std::optional<TKSDictionary> query = TKSUtilBase::getQueryDict(text);
  require(!query || !query->empty());
  if (query) {
    for (const auto& [key, value] : *query) {
      require(key.find('=') == std::string_view::npos && key.find('&') == std::string_view::npos);
      require(value.isText() && value.text().find('&') == std::string_view::npos);
    }
  }
  tryURL(text);
  tryPath(text);
  const OneFile file(text);
  require(TKSUtilBase::getParamDictFromPath("/params").has_value());
  return 0;
}
