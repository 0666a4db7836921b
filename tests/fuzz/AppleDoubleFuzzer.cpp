#include <cstddef>
#include <cstdint>

#include "formats/apple_double.h"
#include "tests/fuzz/Mutators.h"
#include "tests/fuzz/Require.h"

// Attributes of a file that are kept beside it. What can be read and written again is the same then.

/// Changes one attribute, or takes it away or adds one, and writes the side-car anew, so that all places in it fit.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t room, unsigned seed) {
  tks::fuzz::Choice choice(seed);
  const std::optional<tks::formats::AppleDouble> parsed = tks::formats::parseAppleDouble({data, size});
  if (!parsed || choice.oneIn(2)) return LLVMFuzzerMutate(data, size, room);
  const std::size_t changed = choice.below(parsed->attributes.size() + 1);
  const std::size_t kind = choice.below(3);
  tks::formats::AppleDouble made;
  std::size_t at = 0;
  for (const auto& [key, value] : parsed->attributes) {
    const TKSData content = value.data();
    std::string name(key);
    std::string text(content.begin(), content.end());
    if (at++ == changed) {
      if (kind == 0) continue;
      (kind == 1 ? name : text) = tks::fuzz::mutated(kind == 1 ? name : text, 300);
    }
    made.attributes.set(name, TKSData(text.begin(), text.end()));
  }
  if (at == changed)
    made.attributes.set("com.tarvo." + std::to_string(choice.below(300)), TKSData(choice.below(200), 7));
  const std::optional<TKSData> written = tks::formats::serializeAppleDouble(made);
  if (!written) return LLVMFuzzerMutate(data, size, room);
  return tks::fuzz::putBack(std::string(written->begin(), written->end()), data, room);
}

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
