#pragma once

#include <string>
#include <string_view>

#include <tksinterface/TKSExport.h>

/// Masking of personal data: user names, e-mail addresses, meeting room names and secrets in URLs.
///
/// Everything here works on UTF-8 bytes; positions and lengths are byte counts and masking never changes a length,
/// except that the query of a URL with a secret is cut off. Linear in the length of the text. Pure: may be called from
/// any thread at any time.

/// The text with all masking rules applied; empty for an empty input.
TKS_EXPORT std::string removePII(const std::string& input);

/// Masks the bytes [start, end) of `text` with "*". Of a range longer than three bytes the first three are kept.
/// An `end` with all bits set, or beyond the text, means the end of the text. A range whose end lies before its start
/// leaves the text unchanged.
TKS_EXPORT std::string mask(std::string text, unsigned long start, unsigned long end);

/// As removePII.
TKS_EXPORT std::string removeSensitiveInformationCpp(const std::string& input);
/// As removePII; a null pointer gives the empty string.
TKS_EXPORT std::string removeSensitiveInformationCpp(const char* input);

/// Masks the whole text, keeping its first three bytes when it is longer than that.
TKS_EXPORT std::string addMaskCpp(const std::string& input);
/// The same; a null pointer gives the empty string.
TKS_EXPORT std::string addMaskCpp(const char* input);

/// A copy with the ASCII letters A to Z in lower case.
TKS_EXPORT std::string toLower(const std::string& input);

/// The same rules for texts. On Linux the names of folders in "/home/", and in the folder that holds this user's real
/// home, are masked like those in "/users/". Where masking would cut a character in two, its remaining bytes are masked
/// as well, so that the result is always valid UTF-8 when the argument was.
class TKS_EXPORT MaskSensitiveInformation {
 public:
  /// `removeSensitiveInformation:` The text with all rules applied; empty for an empty text.
  static std::string removeSensitiveInformation(std::string_view text);
  /// `addMask:` The whole text masked, its first three bytes kept; empty for an empty text.
  static std::string addMask(std::string_view text);
};
