// Any bytes as a log line: masked exactly as the literal version of the rules does it, and never cut inside a
// character.

#include <tksinterface/MaskSensitiveInformation.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "foundation/values/Utf8.h"
#include "tests/foundation/ReferenceMasking.h"
#include "tests/fuzz/Require.h"

using tks::fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(tks::fuzz::textOf(data, size));
  const std::string masked = removePII(text);
  require(masked == tks::test::referenceRemovePII(text));
  require(addMaskCpp(text) == tks::test::referenceMask(text, 0, text.size()));

  const std::string whole = MaskSensitiveInformation::removeSensitiveInformation(text);
  require(whole.size() == masked.size());
  if (!tks::utf8::isValid(text)) return 0;
  require(tks::utf8::isValid(whole));
  require(tks::utf8::isValid(MaskSensitiveInformation::addMask(text)));
  for (std::size_t i = 0; i < masked.size(); ++i) require(whole[i] == masked[i] || whole[i] == '*');
  return 0;
}
