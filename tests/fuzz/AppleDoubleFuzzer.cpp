#include <cstddef>
#include <cstdint>

#include "formats/apple_double.h"
#include "tests/fuzz/Require.h"

// Attributes of a file that are kept beside it. What can be read and written again is the same then.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::optional<tks::formats::AppleDouble> parsed = tks::formats::parseAppleDouble({data, size});
  if (!parsed) return 0;
  const std::optional<TKSData> written = tks::formats::serializeAppleDouble(*parsed);
  if (!written) return 0;
  const std::optional<tks::formats::AppleDouble> again = tks::formats::parseAppleDouble(*written);
  tks::fuzz::require(again.has_value());
  tks::fuzz::require(TKSValue(again->attributes) == TKSValue(parsed->attributes));
  return 0;
}
