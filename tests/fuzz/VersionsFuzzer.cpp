// Two versions, one a line: parts are numbers, and with as many parts on both sides at most one side is the newer one.

#include <tksinterface/TKSUtilBase.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/Versions.h"
#include "tests/fuzz/Require.h"

using tks::fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view local = tks::fuzz::textOf(data, size);
  const std::string_view candidate = tks::fuzz::takeFirst(local);
  const std::vector<std::string> parts = tks::versions::parts(candidate);
  for (const std::string& part : parts) {
    require(!part.empty() &&
            std::all_of(part.begin(), part.end(), [](char byte) { return byte >= '0' && byte <= '9'; }));
  }
  const bool isNewer = TKSUtilBase::isNewerVersion(candidate, local);
  const bool isOlder = TKSUtilBase::isNewerVersion(local, candidate);
  require(!TKSUtilBase::isNewerVersion(candidate, candidate));
  require(candidate.empty() == local.empty() || (isNewer && isOlder));
  if (candidate.empty() || local.empty()) return 0;
  if (parts.size() == tks::versions::parts(local).size()) require(!(isNewer && isOlder));
  return 0;
}
