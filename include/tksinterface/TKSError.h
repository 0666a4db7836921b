#pragma once

#include <cstdint>
#include <string>

#include <tksinterface/TKSExport.h>

/// An error object: where the error comes from, its number there, and the reason in words.
///
/// Operations that can fail take a `TKSError*` as their last argument. It may be null. It is written only on failure.
struct TKS_EXPORT TKSError {
  /// Where the error comes from, for example TKSIDefaultDomain.
  std::string domain;
  /// The error's number in its domain.
  std::int64_t code = 0;
  /// The reason in words.
  std::string localizedDescription;

  /// Error Domain=DOMAIN Code=CODE "TEXT"
  std::string description() const;
  friend bool operator==(const TKSError&, const TKSError&) = default;
};
