#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <tksinterface/TKSExport.h>

/// A file URL or a web address.
class TKS_EXPORT TKSURL {
 public:
  TKSURL() = default;

  /// The URL of a file or folder; `path` may hold any bytes. A relative path means the working folder of this moment.
  /// An empty path gives an empty URL, and so does a relative one when there is no working folder any more.
  static TKSURL fileURLWithPath(std::string_view path);
  /// The URL that a text holds, or nothing. Any non-empty text without blanks or control characters makes a URL.
  static std::optional<TKSURL> URLWithString(std::string_view text);

  /// The URL as text, for example "file:///Applications/A.app" or "https://a.example/x?y=z".
  const std::string& absoluteString() const noexcept { return text_; }
  /// Whether the scheme is "file", in any case.
  bool isFileURL() const noexcept;
  /// The scheme as written, without the colon; empty when there is none.
  std::string scheme() const;
  /// The path part, percent-decoded, without a closing slash.
  std::string path() const;
  /// The text between "?" and "#" as written, or nothing when there is no "?".
  std::optional<std::string> query() const;
  /// This URL with one more path component, percent-encoded and joined by one slash.
  TKSURL appendingPathComponent(std::string_view component) const;

  friend bool operator==(const TKSURL&, const TKSURL&) = default;

 private:
  std::string text_;
};
