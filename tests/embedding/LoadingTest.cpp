#include <dlfcn.h>
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <link.h>
#include <tksinterface/TKSUtilBase.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/FreshProcess.h"

// What a host's process loads together with the library, and what the library says of what it opens later.

namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::StartsWith;
using testing::UnorderedElementsAre;

link_map* loadLibrary() {
  void* const handle = dlopen(TKS_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  link_map* map = nullptr;
  if (handle == nullptr || dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0) ADD_FAILURE() << dlerror();
  return map;
}

/// The DT_NEEDED entries of a loaded object.
std::vector<std::string> neededBy(const link_map& map) {
  const char* texts = nullptr;
  for (const ElfW(Dyn)* entry = map.l_ld; entry->d_tag != DT_NULL; ++entry) {
    if (entry->d_tag == DT_STRTAB) texts = reinterpret_cast<const char*>(entry->d_un.d_ptr);
  }
  std::vector<std::string> needed;
  for (const ElfW(Dyn)* entry = map.l_ld; entry->d_tag != DT_NULL; ++entry) {
    if (entry->d_tag == DT_NEEDED) needed.emplace_back(texts + entry->d_un.d_val);
  }
  return needed;
}

/// The names of the shared objects in this process.
std::vector<std::string> loadedObjects() {
  std::vector<std::string> names;
  dl_iterate_phdr(
      [](dl_phdr_info* object, std::size_t, void* to) {
        const std::string_view path = object->dlpi_name;
        static_cast<std::vector<std::string>*>(to)->emplace_back(path.substr(path.rfind('/') + 1));
        return 0;
      },
      &names);
  return names;
}

TEST(Loading, NeedsTheLibrariesThatEveryStartNeedsAndNoOther) {
  const link_map* const library = loadLibrary();
  ASSERT_NE(library, nullptr);
  // What is added here is loaded into every host: open it on first use instead
  // (platform/linux/processes/late_library.h).
  EXPECT_THAT(neededBy(*library),
              UnorderedElementsAre("libsimdjson.so.14", "libcrypto.so.3", "libstdc++.so.6", "libm.so.6",
                                   "libgcc_s.so.1", "libc.so.6", "ld-linux-x86-64.so.2"));
}

TEST(Loading, BringsNoOtherLibraryThanThose) {
  TKS_IN_FRESH_PROCESS();
  const std::vector<std::string> before = loadedObjects();
  ASSERT_NE(loadLibrary(), nullptr);
  for (const std::string& object : loadedObjects()) {
    if (std::find(before.begin(), before.end(), object) != before.end()) continue;
    EXPECT_THAT(object, AnyOf("libtksinterface.so.0.1.0", "libtksinterface.so", "libtksinterface.so.0",
                              "libsimdjson.so.14", "libcrypto.so.3", "libm.so.6", "libgcc_s.so.1", "libstdc++.so.6"));
  }
}

/// A note of the loaded library with the given owner and type.
std::vector<std::string> notesOf(const link_map& library, std::uint32_t wantedType) {
  struct Search {
    ElfW(Addr) base;
    std::uint32_t type;
    std::vector<std::string> contents;
  } search{library.l_addr, wantedType, {}};
  dl_iterate_phdr(
      [](dl_phdr_info* object, std::size_t, void* context) {
        auto& wanted = *static_cast<Search*>(context);
        if (object->dlpi_addr != wanted.base) return 0;
        for (int i = 0; i < object->dlpi_phnum; ++i) {
          const ElfW(Phdr)& segment = object->dlpi_phdr[i];
          if (segment.p_type != PT_NOTE) continue;
          const auto* at = reinterpret_cast<const char*>(object->dlpi_addr + segment.p_vaddr);
          const char* const end = at + segment.p_memsz;
          const auto rounded = [](std::uint32_t size) { return (size + 3) & ~std::uint32_t{3}; };
          while (at < end) {
            ElfW(Nhdr) note;
            std::memcpy(&note, at, sizeof note);
            const char* const name = at + sizeof note;
            const char* const content = name + rounded(note.n_namesz);
            if (note.n_type == wanted.type && std::string_view(name) == "FDO") wanted.contents.emplace_back(content);
            at = content + rounded(note.n_descsz);
          }
        }
        return 1;
      },
      &search);
  return search.contents;
}

TEST(Loading, NotesNameWhatIsOpenedOnFirstUse) {
  constexpr std::uint32_t kOpenedLate = 0x407c0c0a;
  const link_map* const library = loadLibrary();
  ASSERT_NE(library, nullptr);
  std::vector<std::string> files;
  for (const std::string& note : notesOf(*library, kOpenedLate)) {
    const TKSValue content = TKSUtilBase::JSONStringToObject(note);
    ASSERT_EQ(content.array().size(), 1u) << note;
    const TKSValue entry = content.array()[0];
    for (const char* key : {"feature", "description"}) EXPECT_FALSE(entry[key].text().empty()) << note;
    EXPECT_THAT(std::string(entry["priority"].text()), AnyOf("required", "recommended")) << note;
    ASSERT_EQ(entry["soname"].array().size(), 1u) << note;
    files.emplace_back(entry["soname"].array()[0].text());
  }
  ASSERT_THAT(files, UnorderedElementsAre(HasSubstr("libarchive.so."), HasSubstr("libcurl.so."),
                                          HasSubstr("libicuuc.so."), HasSubstr("libicui18n.so.")));
  // They are the names by which the loader finds them.
  for (const std::string& file : files) EXPECT_NE(dlopen(file.c_str(), RTLD_LAZY | RTLD_LOCAL), nullptr) << dlerror();
}

}  // namespace
