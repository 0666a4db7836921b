#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include <tksinterface/MaskSensitiveInformation.h>
#include <tksinterface/TKSMessageVocabulary.h>

#include "tools/tksctl/recording/recording.h"

// What of a message may stand in a recording.

namespace tks::ctl {
namespace {

/// Members whose texts are words of the protocol or versions. The rules of the log still apply to them.
bool isOfTheProtocol(std::string_view key) {
  const std::array readable{tks_message_key_message_type,  tks_message_key_result,     tks_message_key_reason,
                            tks_message_key_tksversion,    tks_message_key_secversion, tks_message_key_error_code,
                            tks_message_key_error_message, tks_message_key_status,     tks_message_key_isdownloadonly};
  return std::ranges::find(readable, key) != readable.end();
}

TKSValue hidden(const TKSValue& value);

TKSDictionary hiddenEntries(const TKSDictionary& dictionary) {
  std::vector<std::pair<std::string, TKSValue>> entries;
  for (const auto& [key, value] : dictionary) {
    const bool isReadable = value.isText() && isOfTheProtocol(key);
    entries.emplace_back(
        MaskSensitiveInformation::removeSensitiveInformation(key),
        isReadable ? TKSValue(MaskSensitiveInformation::removeSensitiveInformation(value.text())) : hidden(value));
  }
  return TKSDictionary(std::move(entries));
}

TKSValue hidden(const TKSValue& value) {
  if (value.isText()) return MaskSensitiveInformation::addMask(value.text());
  if (value.isDictionary()) return hiddenEntries(value.dictionary());
  if (!value.isArray()) return value;
  TKSArray made;
  for (const TKSValue& each : value.array()) made.append(hidden(each));
  return made;
}

}  // namespace

TKSValue maskedMessage(const TKSValue& message) {
  if (!message.isDictionary()) return hidden(message);
  TKSDictionary masked = hiddenEntries(message.dictionary());
  // Most bodies are nothing but the name of the message once more.
  const TKSValue& body = message.dictionary()[tks_message_key_message];
  if (body.isText() && body == message.dictionary()[tks_message_key_message_type]) {
    masked.set(tks_message_key_message, MaskSensitiveInformation::removeSensitiveInformation(body.text()));
  }
  return masked;
}

}  // namespace tks::ctl
