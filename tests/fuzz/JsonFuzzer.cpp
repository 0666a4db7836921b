// Any bytes as JSON: what is read can be printed, changed and written, and reads back the same.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "foundation/values/JsonWriter.h"
#include "platform/platform.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

void change(const TKSValue& value) {
  TKSDictionary dictionary = value.dictionary();
  TKSArray array = value.array();
  for (const auto& [key, inner] : value.dictionary()) dictionary.set(key, TKSArray{inner, key});
  for (std::size_t i = 0; i < array.size(); ++i) array.set(i, TKSDictionary{{"inner", array[i]}});
  array.append(dictionary);
  require(array.size() == value.array().size() + 1);
  require(dictionary.size() == value.dictionary().size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  TKSError error;
  const TKSValue value = tks::platform::json().parse({reinterpret_cast<const char*>(data), size}, &error);
  require(value.isNothing() != (error == TKSError()));
  if (value.isNothing()) return 0;
  require(value.isArray() || value.isDictionary());
  require(!value.description().empty());

  const auto text = tks::json::write(value, &error);
  require(text.has_value());
  const TKSValue back = tks::platform::json().parse(*text, &error);
  require(back == value);
  require(tks::json::write(back) == text);
  change(value);
  require(back == value);
  return 0;
}
