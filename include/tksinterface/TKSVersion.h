#pragma once

/// The version of these headers: the one place where the project's version stands.
#define TKS_VERSION_MAJOR 0
/// See TKS_VERSION_MAJOR; before 1.0 another minor version may break what was there.
#define TKS_VERSION_MINOR 1
/// See TKS_VERSION_MAJOR.
#define TKS_VERSION_PATCH 0

/// The version as one number that grows with it: 1.2.3 is 1002003. For `#if TKS_VERSION >= TKS_VERSION_NUMBER(0, 2,
/// 0)`.
#define TKS_VERSION_NUMBER(major, minor, patch) ((major)*1000000 + (minor)*1000 + (patch))
/// The version of these headers as one number.
#define TKS_VERSION TKS_VERSION_NUMBER(TKS_VERSION_MAJOR, TKS_VERSION_MINOR, TKS_VERSION_PATCH)

#ifdef __cplusplus

#include <tksinterface/TKSExport.h>

#include <cstdint>
#include <string_view>

/// The version of the library that is loaded, which may be another one than that of the headers a host was compiled
/// with. A host that wants to be sure asks once at its start:
///
///     if (!TKSVersion::isCompatible()) { /* name TKSVersion::text() and refuse to go on */ }
///
/// All operations may be called on any thread, at any time, and do not fail.
class TKS_EXPORT TKSVersion {
 public:
  /// The loaded library's version as one number, as TKS_VERSION is for the headers.
  static std::int32_t number() noexcept;

  /// The loaded library's version as "major.minor.patch". NUL-terminated after the view; lives as long as the library.
  static std::string_view text() noexcept;

  /// Whether a host that was compiled with headers of version `headers` may use the loaded library. It may when the
  /// library is the same or newer and belongs to the same line: the same major version, and before 1.0 the same minor
  /// version too. The name of the shared library and the CMake package draw the line in the same place.
  static bool isCompatible(std::int32_t headers = TKS_VERSION) noexcept;
};

#endif
