#pragma once

#include <archive.h>
#include <archive_entry.h>
#include <curl/curl.h>
#include <unicode/unorm.h>
#include <unicode/unumberformatter.h>
#include <unicode/uregex.h>
#include <unicode/ustring.h>

#include <array>
#include <bit>

#include "platform/linux/processes/late_library.h"

// Every function that is called in a library opened late, in one table for each library. A new one needs its name here
// and nothing else. Types come from the library's own headers; of ICU, whose functions bear its version in their names,
// the names do as well.

#define TKS_ARCHIVE_FUNCTIONS(FUNCTION)          \
  FUNCTION(archive_entry_filetype)               \
  FUNCTION(archive_entry_hardlink)               \
  FUNCTION(archive_entry_pathname)               \
  FUNCTION(archive_entry_size)                   \
  FUNCTION(archive_entry_size_is_set)            \
  FUNCTION(archive_entry_symlink)                \
  FUNCTION(archive_errno)                        \
  FUNCTION(archive_error_string)                 \
  FUNCTION(archive_read_free)                    \
  FUNCTION(archive_read_new)                     \
  FUNCTION(archive_read_next_header)             \
  FUNCTION(archive_read_open_filename)           \
  FUNCTION(archive_read_support_filter_bzip2)    \
  FUNCTION(archive_read_support_filter_compress) \
  FUNCTION(archive_read_support_filter_gzip)     \
  FUNCTION(archive_read_support_filter_lzma)     \
  FUNCTION(archive_read_support_filter_xz)       \
  FUNCTION(archive_read_support_filter_zstd)     \
  FUNCTION(archive_read_support_format_tar)

#define TKS_CURL_FUNCTIONS(FUNCTION) \
  FUNCTION(curl_easy_cleanup)        \
  FUNCTION(curl_easy_getinfo)        \
  FUNCTION(curl_easy_init)           \
  FUNCTION(curl_easy_perform)        \
  FUNCTION(curl_easy_setopt)         \
  FUNCTION(curl_global_init)

#define TKS_ICU_COMMON_FUNCTIONS(FUNCTION) \
  FUNCTION(u_strFromUTF8WithSub)           \
  FUNCTION(u_strToLower)                   \
  FUNCTION(u_strToUTF8WithSub)             \
  FUNCTION(unorm_compare)

#define TKS_ICU_I18N_FUNCTIONS(FUNCTION)   \
  FUNCTION(unumf_close)                    \
  FUNCTION(unumf_closeResult)              \
  FUNCTION(unumf_formatDecimal)            \
  FUNCTION(unumf_formatDouble)             \
  FUNCTION(unumf_formatInt)                \
  FUNCTION(unumf_openForSkeletonAndLocale) \
  FUNCTION(unumf_openResult)               \
  FUNCTION(unumf_resultToString)           \
  FUNCTION(uregex_close)                   \
  FUNCTION(uregex_find)                    \
  FUNCTION(uregex_open)                    \
  FUNCTION(uregex_setFindProgressCallback) \
  FUNCTION(uregex_setMatchCallback)        \
  FUNCTION(uregex_setText)

#define TKS_LATE_MEMBER(name) decltype(&::name) name;
#define TKS_LATE_TEXT(name) #name
#define TKS_LATE_NAME(name) TKS_LATE_TEXT(name),
/// A struct `type` with a member for each function, called like the function.
#define TKS_LATE_FUNCTIONS(type, library, FUNCTIONS)                                               \
  struct type {                                                                                    \
    static constexpr LateLibrary kLibrary = LateLibrary::library;                                  \
    static constexpr const char* kNames[] = {FUNCTIONS(TKS_LATE_NAME)};                            \
    using Addresses = std::array<void*, std::size(kNames)>;                                        \
    static type of(const Addresses& addresses) noexcept { return std::bit_cast<type>(addresses); } \
    FUNCTIONS(TKS_LATE_MEMBER)                                                                     \
  }

namespace tks::gnulinux {

TKS_LATE_FUNCTIONS(ArchiveFunctions, archive, TKS_ARCHIVE_FUNCTIONS);
TKS_LATE_FUNCTIONS(CurlFunctions, curl, TKS_CURL_FUNCTIONS);
TKS_LATE_FUNCTIONS(IcuCommonFunctions, icuCommon, TKS_ICU_COMMON_FUNCTIONS);
TKS_LATE_FUNCTIONS(IcuI18nFunctions, icuI18n, TKS_ICU_I18N_FUNCTIONS);

}  // namespace tks::gnulinux

#undef TKS_LATE_FUNCTIONS
#undef TKS_LATE_NAME
#undef TKS_LATE_TEXT
#undef TKS_LATE_MEMBER
#undef TKS_ICU_I18N_FUNCTIONS
#undef TKS_ICU_COMMON_FUNCTIONS
#undef TKS_CURL_FUNCTIONS
#undef TKS_ARCHIVE_FUNCTIONS
