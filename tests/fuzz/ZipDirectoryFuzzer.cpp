#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "install/ArchiveCheck.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/zip_directory.h"
#include "tests/fuzz/Require.h"

// Any bytes as a zip archive that is looked into: the reader comes to an end, gives a reason when it refuses, and never
// reports more than the archive has room for.

using tks::fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const tks::posix::FileDescriptor file(::memfd_create("archive", MFD_CLOEXEC));
  if (!file || ::write(file.get(), data, size) != static_cast<ssize_t>(size)) return 0;
  constexpr std::size_t kSmallestEntry = 46;
  std::size_t entries = 0;
  const auto visit = [&](const tks::platform::ArchiveEntry& entry) {
    ++entries;
    require(entry.name.size() <= size && entry.target.size() <= size);
    require(tks::install::archiveName(entry.name).size() <= entry.name.size());
    return true;
  };
  const char* reason = nullptr;
  const bool read = tks::posix::readZipDirectory(file, visit, reason);
  require(read || reason != nullptr);
  require(entries * kSmallestEntry <= size);
  return 0;
}
