// Any bytes as base64, as what base64 is made of, and as a text to be percent-encoded.

#include <tksinterface/TKSUtilBase.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/values/Base64.h"
#include "foundation/values/Utf8.h"
#include "tests/fuzz/Require.h"

using tks::fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = tks::fuzz::textOf(data, size);
  const std::string encoded = tks::base64::encode({data, size});
  require(tks::base64::decode(encoded) == TKSData(data, data + size));
  tks::base64::decode(text);

  const std::optional<std::string> checked = TKSUtilBase::checkAndDecodeBase64(text);
  require(checked.has_value() == !text.empty());
  require(text.size() > 4 || !checked || *checked == text);
  const bool comesBack = !text.empty() && encoded.size() > 4 && tks::utf8::isValid(text);
  if (comesBack) require(TKSUtilBase::checkAndDecodeBase64(encoded) == text);

  TKSError error;
  const TKSValue object = TKSUtilBase::getParamsFromEncodedDic({{"key", encoded}}, "key", &error);
  require(object.isNothing() == !error.localizedDescription.empty());

  const std::string percent = TKSUtilBase::encodeURLString(text);
  require(percent.size() <= text.size() * 3);
  for (const char byte : percent) require(byte > ' ' && byte < 0x7F && byte != '&' && byte != '=');
  return 0;
}
