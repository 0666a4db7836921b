// Any bytes as property list, in either form: what is read can be written, and reads back the same.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>

#include "platform/platform.h"

namespace {

using tks::platform::PropertyLists;
using Format = PropertyLists::Format;

void require(bool condition) {
  if (!condition) std::abort();
}

PropertyLists& lists() { return tks::platform::propertyLists(); }

/// Compares what is written and not the values: a real that is no number differs from itself. Dates lose their fraction
/// in XML, but only once.
void roundTrip(const TKSValue& value, Format format) {
  TKSError error;
  const std::optional<TKSData> written = lists().serialize(value, format, &error);
  require(written.has_value() != (error.code != 0));
  if (!written) return;  // it holds a null, say, or what XML does not have
  const TKSValue back = lists().parse(*written, &error);
  require(back.kind() == value.kind());
  require(lists().serialize(back, format, nullptr) == written);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  TKSError error;
  const TKSValue value = lists().parse({data, size}, &error);
  require(value.isNothing() == (error.code != 0));
  if (value.isNothing()) return 0;
  value.description();
  roundTrip(value, Format::xml);
  roundTrip(value, Format::binary);
  return 0;
}
