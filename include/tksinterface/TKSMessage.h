#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSExport.h>
#include <tksinterface/TKSValue.h>

/// One message of the launcher protocol. It serves both ends: the interface in a host and the launcher.
///
/// On the wire a message is a JSON object with up to four members: "message_type", "token", "domain" (texts) and
/// "message" (text or object). A member whose property is absent is left out; a zero-length text is written.
/// A plain value: may be used on any thread, by one thread at a time.
class TKS_EXPORT TKSMessage {
 public:
  /// One of the message types of TKSMessageVocabulary.h; never checked against the list.
  std::optional<std::string> messageType;
  /// Conversation or launch token.
  std::optional<std::string> token;
  /// Site address that the message concerns.
  std::optional<std::string> domain;
  /// The body: a text, a dictionary, or nothing.
  TKSValue message;
  /// Launch parameters that a user of the record may keep beside it; never written and never read.
  TKSDictionary joinParams;

  /// `parseJSONString:error:` Fills the record from one JSON text. On failure the record keeps what it had, false is
  /// returned and `error` (domain commonErrorDomain, code 0) says why. The keys of a body object are lower-cased, one
  /// level deep; a body text that itself holds a JSON object becomes that object. When such a text turns out not to be
  /// JSON it is kept as text and parsing succeeds, but the reader's error stays in `error`.
  bool parseJSONString(std::string_view json, TKSError* error = nullptr);

  /// `dumpDictionary` The members that would be written.
  TKSDictionary dumpDictionary() const;
  /// `dumpJSONString:` The compact JSON text, or nothing (and `error`) when the body cannot be written as JSON.
  std::optional<std::string> dumpJSONString(TKSError* error = nullptr) const;

  /// `dictionaryWithAllKeysToLowerCase:` The same values under lower-cased keys (Unicode rules), one level deep. Of
  /// keys that differ only in case the one that comes last in byte order wins. Nothing, or no dictionary, gives
  /// nothing.
  static TKSValue dictionaryWithAllKeysToLowerCase(const TKSValue& dictionary);
  /// `JSONStringToObject:error:` Reads a JSON object or array. Nothing, and `error`, when the text is neither.
  static TKSValue JSONStringToObject(std::string_view text, TKSError* error = nullptr);
  /// `objectToJSONString:error:` Compact JSON text of a dictionary or array; nothing, and `error`, for other values and
  /// for values that JSON does not have (data, dates, reals that are no numbers).
  static std::optional<std::string> objectToJSONString(const TKSValue& object, TKSError* error = nullptr);

  /// `generateLaunchAckMessage:` The launcher's answer that a launch is done. The dictionary, when given, receives
  /// "result" and "reason" and becomes the body; token and domain are taken from its "token" and "domain".
  static TKSMessage generateLaunchAckMessage(TKSDictionary* launchParam);
  /// `generateLaunchAckMessageForCrossLaunch:TKSToken:` The answer to a cross launch; either argument may be absent.
  static TKSMessage generateLaunchAckMessageForCrossLaunch(const std::optional<std::string>& domain,
                                                           const std::optional<std::string>& TKSToken);
};
