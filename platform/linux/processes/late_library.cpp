#include "platform/linux/processes/late_library.h"

#include <dlfcn.h>

#include <cstddef>
#include <cstdint>

// What packagers and tools read of the libraries that the loader does not know of: a note for each in ".note.dlopen",
// as systemd.io/ELF_DLOPEN_METADATA describes it.

namespace {

struct NoteHeader {
  std::uint32_t nameSize;
  std::uint32_t contentSize;
  std::uint32_t type;
};

constexpr std::uint32_t kLateLibraryNote = 0x407c0c0a;

template <std::size_t size>
struct Note {
  NoteHeader header;
  char name[4];
  alignas(std::uint32_t) char content[size];
};

template <std::size_t size>
constexpr Note<size> noteOf(const char (&content)[size]) {
  Note<size> note{{4, size, kLateLibraryNote}, {'F', 'D', 'O', '\0'}, {}};
  for (std::size_t i = 0; i < size; ++i) note.content[i] = content[i];
  return note;
}

#define TKS_NOTE [[gnu::used, gnu::section(".note.dlopen")]] alignas(std::uint32_t) constinit const auto
#define TKS_LATE_NOTE(feature, priority, description, file)                                           \
  noteOf("[{\"feature\":\"" feature "\",\"description\":\"" description "\",\"priority\":\"" priority \
         "\",\"soname\":[\"" file "\"]}]")

TKS_NOTE kArchiveNote =
    TKS_LATE_NOTE("archive", "recommended", "Looking into tar archives before they are unpacked", TKS_ARCHIVE_FILE);
TKS_NOTE kCurlNote = TKS_LATE_NOTE("download", "recommended", "Downloading lists of delta updates", TKS_CURL_FILE);
TKS_NOTE kIcuCommonNote =
    TKS_LATE_NOTE("text", "required", "Letter case and order of texts that are not ASCII", TKS_ICU_COMMON_FILE);
TKS_NOTE kIcuI18nNote =
    TKS_LATE_NOTE("patterns", "required", "Patterns, and numbers in the user's format", TKS_ICU_I18N_FILE);

/// By the numbers of LateLibrary.
constexpr const char* kFiles[] = {TKS_ARCHIVE_FILE, TKS_CURL_FILE, TKS_ICU_COMMON_FILE, TKS_ICU_I18N_FILE};

std::string lastError() {
  const char* const text = ::dlerror();
  return text == nullptr ? "unknown error" : text;
}

}  // namespace

const char* tks::gnulinux::fileNameOf(LateLibrary library) noexcept {
  return kFiles[static_cast<std::size_t>(library)];
}

bool tks::gnulinux::openLibrary(LateLibrary library, std::span<const char* const> names, std::span<void*> found,
                                std::string& reason) {
  // Functions that it needs itself are looked up at once: a library that does not fit fails here and not in a call.
  void* const opened = ::dlopen(fileNameOf(library), RTLD_NOW | RTLD_LOCAL);
  if (opened == nullptr) {
    reason = lastError();
    return false;
  }
  for (std::size_t i = 0; i < names.size(); ++i) {
    found[i] = ::dlsym(opened, names[i]);
    if (found[i] != nullptr) continue;
    reason = lastError();
    return false;  // and it stays open: another use of it may have begun
  }
  return true;
}
