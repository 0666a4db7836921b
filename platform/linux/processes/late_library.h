#pragma once

#include <atomic>
#include <span>
#include <string>

namespace tks::gnulinux {

/// The libraries that are opened when the first thing needs them, so that a host which never asks for that does not
/// load them: libcurl alone brings 28 shared objects into a process. docs/architecture.md says what each is for.
enum class LateLibrary {
  archive,    ///< libarchive: looks into archives
  curl,       ///< libcurl: downloads
  icuCommon,  ///< ICU's characters and texts
  icuI18n,    ///< ICU's patterns and numbers
};

/// The file name by which a library is opened, with the number of its binary interface: "libcurl.so.4".
const char* fileNameOf(LateLibrary library) noexcept;

/// Opens a library, which then stays open, and looks up functions of it, one for each name. False, with the reason in
/// `reason`, when the library or one of the functions is missing; `found` is then undefined. Any thread.
bool openLibrary(LateLibrary library, std::span<const char* const> names, std::span<void*> found, std::string& reason);

/// The functions of a library, which is opened when they are asked for the first time; null, with the reason in
/// `reason`, when they cannot be had. A later call tries again, because the library may have been installed meanwhile.
/// `Functions` is a struct of late_functions.h. Any thread. What it returns lives as long as the process.
template <class Functions>
const Functions* lateFunctions(std::string& reason) {
  static std::atomic<const Functions*> kept = nullptr;
  if (const Functions* const known = kept.load(std::memory_order_acquire)) return known;
  typename Functions::Addresses addresses{};
  if (!openLibrary(Functions::kLibrary, Functions::kNames, addresses, reason)) return nullptr;
  const Functions* expected = nullptr;
  const auto* const made = new Functions(Functions::of(addresses));
  if (kept.compare_exchange_strong(expected, made, std::memory_order_acq_rel)) return made;
  delete made;  // another thread was first
  return expected;
}

}  // namespace tks::gnulinux
