#include "platform/archives.h"

#include <fcntl.h>
#include <locale.h>

#include <cerrno>
#include <memory>

#include "foundation/values/ErrorReasons.h"
#include "platform/backend.h"
#include "platform/linux/processes/late_functions.h"
#include "platform/posix/error_reasons.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/paths.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/zip_directory.h"

namespace tks::platform {
namespace {

using gnulinux::ArchiveFunctions;

constexpr std::size_t kBlockSize = 64 * 1024;

ArchiveEntry::Kind kindOf(const ArchiveFunctions& library, archive_entry* entry) {
  if (library.archive_entry_hardlink(entry) != nullptr) return ArchiveEntry::Kind::hardLink;
  switch (library.archive_entry_filetype(entry)) {
    case AE_IFREG:
      return ArchiveEntry::Kind::file;
    case AE_IFDIR:
      return ArchiveEntry::Kind::folder;
    case AE_IFLNK:
      return ArchiveEntry::Kind::link;
    default:
      return ArchiveEntry::Kind::other;
  }
}

std::string orEmpty(const char* text) { return text == nullptr ? std::string() : std::string(text); }

/// Lets this thread read names in UTF-8 within a scope: libarchive turns them into the locale's characters, and a host
/// without a locale has none but ASCII.
class Utf8Names {
 public:
  Utf8Names() : locale_(::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)) {
    if (locale_ != nullptr) before_ = ::uselocale(locale_);
  }
  ~Utf8Names() {
    if (locale_ == nullptr) return;
    ::uselocale(before_);
    ::freelocale(locale_);
  }
  Utf8Names(const Utf8Names&) = delete;
  Utf8Names& operator=(const Utf8Names&) = delete;

 private:
  locale_t locale_;
  locale_t before_ = nullptr;
};

ArchiveEntry describe(const ArchiveFunctions& library, archive_entry* entry) {
  ArchiveEntry result;
  result.name = orEmpty(library.archive_entry_pathname(entry));
  result.kind = kindOf(library, entry);
  const bool hasSize = library.archive_entry_size_is_set(entry) != 0;
  result.size = hasSize ? static_cast<std::uint64_t>(library.archive_entry_size(entry)) : 0;
  result.target = result.kind == ArchiveEntry::Kind::hardLink ? orEmpty(library.archive_entry_hardlink(entry))
                                                              : orEmpty(library.archive_entry_symlink(entry));
  return result;
}

using Visitor = std::function<bool(const ArchiveEntry&)>;

bool inspectZip(const std::string& path, const Visitor& visit, TKSError* error) {
  const posix::FileDescriptor file(
      posix::retried([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
  if (!file) return posix::fail(error, "read archive", path);
  const char* reason = nullptr;
  if (posix::readZipDirectory(file, visit, reason)) return true;
  if (error != nullptr) {
    *error =
        makeError(TKSErrorReason::badMessage, "NSPOSIXErrorDomain", EILSEQ, "read archive \"" + path + "\": " + reason);
  }
  return false;
}

bool failToRead(const ArchiveFunctions& library, archive* reader, const std::string& path, TKSError* error) {
  if (error != nullptr) {
    // What the system refused keeps its reason; every other number is about the archive's content.
    const int number = library.archive_errno(reader);
    const TKSErrorReason known = posix::reasonOfSystemError("NSPOSIXErrorDomain", number);
    *error = makeError(known == TKSErrorReason::systemFailed || number == EINVAL ? TKSErrorReason::badMessage : known,
                       "NSPOSIXErrorDomain", number,
                       "read archive \"" + path + "\": " + orEmpty(library.archive_error_string(reader)));
  }
  return false;
}

bool failWithoutLibrary(const std::string& path, const std::string& reason, TKSError* error) {
  if (error != nullptr) {
    *error = makeError(TKSErrorReason::toolMissing, "NSPOSIXErrorDomain", ELIBACC,
                       "read archive \"" + path + "\": " + reason);
  }
  return false;
}

using Reader = std::unique_ptr<archive, decltype(ArchiveFunctions::archive_read_free)>;

Reader makeReader(const ArchiveFunctions& library) {
  Reader reader(library.archive_read_new(), library.archive_read_free);
  // Not all filters: for some the reader would start a program.
  library.archive_read_support_filter_gzip(reader.get());
  library.archive_read_support_filter_bzip2(reader.get());
  library.archive_read_support_filter_xz(reader.get());
  library.archive_read_support_filter_lzma(reader.get());
  library.archive_read_support_filter_zstd(reader.get());
  library.archive_read_support_filter_compress(reader.get());
  library.archive_read_support_format_tar(reader.get());
  return reader;
}

bool inspectTar(const std::string& path, const Visitor& visit, TKSError* error) {
  std::string reason;
  const auto* const library = gnulinux::lateFunctions<ArchiveFunctions>(reason);
  if (library == nullptr) return failWithoutLibrary(path, reason, error);
  const Utf8Names utf8Names;
  const Reader reader = makeReader(*library);
  if (library->archive_read_open_filename(reader.get(), path.c_str(), kBlockSize) != ARCHIVE_OK) {
    return failToRead(*library, reader.get(), path, error);
  }
  for (;;) {
    archive_entry* entry = nullptr;
    const int status = library->archive_read_next_header(reader.get(), &entry);
    if (status == ARCHIVE_EOF) return true;
    // A warning tells of a header that others may read in another way.
    if (status != ARCHIVE_OK) return failToRead(*library, reader.get(), path, error);
    if (!visit(describe(*library, entry))) return true;
  }
}

class LinuxArchives final : public Archives {
 public:
  bool inspect(std::string_view path, ArchiveFormat format, const Visitor& visit, TKSError* error) override {
    if (!posix::isPath(path)) return posix::fail(error, "read archive", path);
    const std::string name(path);
    return format == ArchiveFormat::zip ? inspectZip(name, visit, error) : inspectTar(name, visit, error);
  }
};

}  // namespace

template <>
Archives& backend<Archives>() {
  static auto& archives = *new LinuxArchives;
  return archives;
}

}  // namespace tks::platform
