#include <tksinterface/TKSMessage.h>

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSFormat.h>
#include <tksinterface/TKSMessageVocabulary.h>

#include "foundation/values/ErrorReasons.h"
#include "foundation/values/JsonWriter.h"
#include "foundation/values/OutOfMemory.h"
#include "messaging/MessageText.h"
#include "platform/platform.h"

namespace {

/// Writes the error; always false, so that a failing operation can return it.
bool fail(TKSError* error, std::string description) {
  if (error != nullptr)
    *error = tks::makeError(TKSErrorReason::badMessage, commonErrorDomain, 0, std::move(description));
  return false;
}

/// The same for an exception.
bool fail(TKSError* error, const std::exception& exception) noexcept {
  try {
    return fail(error, std::string(exception.what()));
  } catch (...) {
    tks::setOutOfMemory(error);
    return false;
  }
}

/// The body that a text stands for: the object in it when it holds one, else the text itself.
TKSValue bodyOfText(const TKSValue& text, TKSError* error) {
  const std::string_view view = text.text();
  const bool mayHoldAnObject = view.find('{') != view.npos && view.find('}') != view.npos;
  if (!mayHoldAnObject) return text;
  TKSValue object = TKSMessage::dictionaryWithAllKeysToLowerCase(TKSMessage::JSONStringToObject(view, error));
  return object.isNothing() ? text : object;
}

/// A key that lower-casing leaves as it is, as nearly all are.
bool isLowerCaseASCII(std::string_view key) {
  return std::none_of(key.begin(), key.end(), [](char c) { return (c >= 'A' && c <= 'Z') || (c & 0x80) != 0; });
}

/// Fills a new record; `error` may be written on success as well (see bodyOfText).
bool parse(std::string_view json, TKSMessage& parsed, TKSError* error) {
  const TKSValue object = TKSMessage::JSONStringToObject(json);
  if (object.isNothing()) {
    return fail(error, "Passing nil or not an valid JSON string when try to parse JSON for TKSMessge.");
  }
  if (!object.isDictionary()) {
    return fail(error,
                tks::formatted("Only accept dictionary message string, while passing type: %@", object.className()));
  }
  const TKSValue& type = object[tks_message_key_message_type];
  if (!type.isText()) return fail(error, "Message type empty when TKSMessage parseJSONString:.");

  const TKSValue& body = object[tks_message_key_message];
  if (!body.isText() && !body.isDictionary()) {
    return fail(error,
                tks::formatted("Message data only accept dictionary or string, while receiving: %@", body.className()));
  }
  parsed.message = body.isText() ? bodyOfText(body, error) : TKSMessage::dictionaryWithAllKeysToLowerCase(body);
  parsed.messageType = type.optionalText();
  parsed.token = object[tks_message_key_token].optionalText();
  parsed.domain = object[tks_message_key_domain].optionalText();
  return true;
}

}  // namespace

bool TKSMessage::parseJSONString(std::string_view json, TKSError* error) {
  try {
    TKSMessage parsed;
    if (!parse(json, parsed, error)) return false;
    parsed.joinParams = std::move(joinParams);
    *this = std::move(parsed);
    return true;
  } catch (const std::exception& exception) {
    return fail(error, exception);
  }
}

TKSDictionary TKSMessage::dumpDictionary() const {
  TKSDictionary dictionary;
  dictionary.set(tks_message_key_message_type, messageType);
  dictionary.set(tks_message_key_token, token);
  dictionary.set(tks_message_key_domain, domain);
  dictionary.set(tks_message_key_message, message);
  return dictionary;
}

std::optional<std::string> TKSMessage::dumpJSONString(TKSError* error) const {
  std::string text;
  if (!tks::messaging::appendText(*this, text, error)) return std::nullopt;
  return text;
}

TKSValue TKSMessage::dictionaryWithAllKeysToLowerCase(const TKSValue& dictionary) {
  if (!dictionary.isDictionary()) return {};
  const TKSDictionary given = dictionary.dictionary();
  const bool staysAsItIs =
      std::all_of(given.begin(), given.end(), [](const auto& entry) { return isLowerCaseASCII(entry.first); });
  if (staysAsItIs) return dictionary;
  std::vector<std::pair<std::string, TKSValue>> entries;
  entries.reserve(given.size());
  for (const auto& [key, value] : given) entries.emplace_back(tks::platform::text().lowerCase(key), value);
  return TKSDictionary(std::move(entries));
}

TKSValue TKSMessage::JSONStringToObject(std::string_view text, TKSError* error) {
  try {
    if (!text.empty()) return tks::platform::json().parse(text, error);
    fail(error, "There is no text to read.");
  } catch (const std::exception& exception) {
    fail(error, exception);
  }
  return {};
}

std::optional<std::string> TKSMessage::objectToJSONString(const TKSValue& object, TKSError* error) {
  return tks::json::write(object, error);
}

TKSMessage TKSMessage::generateLaunchAckMessage(TKSDictionary* launchParam) {
  TKSDictionary none;
  TKSDictionary& body = launchParam != nullptr ? *launchParam : none;
  body.set(tks_message_key_result, tks_message_value_result_success);
  body.set(tks_message_key_reason, "Launch meeting done");

  TKSMessage ack;
  ack.messageType = tks_message_type_launch_meeting_ack;
  ack.message = body;
  ack.token = body[tks_message_key_token].optionalText();
  ack.domain = body[tks_message_key_domain].optionalText();
  return ack;
}

TKSMessage TKSMessage::generateLaunchAckMessageForCrossLaunch(const std::optional<std::string>& domain,
                                                              const std::optional<std::string>& TKSToken) {
  TKSMessage ack;
  ack.messageType = tks_message_type_launch_meeting_ack;
  ack.message = TKSDictionary{
      {tks_message_key_result, tks_message_value_result_success},
      {tks_message_key_reason, "Launch meeting done by cross launch"},
      {tks_message_key_tkstoken, TKSToken},
      {"isLoadClientCred", "false"},
  };
  ack.domain = domain;
  ack.token = TKSToken;
  return ack;
}
