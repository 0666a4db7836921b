#include "tools/tksctl/parts/archive_writer.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <clocale>
#include <ctime>
#include <stdexcept>

#include "platform/posix/file_descriptor.h"

namespace tks::ctl {
namespace {

/// 1980-01-01, which every archive can hold. A zip archive would have it in the time zone of who writes it: there none
/// is said, and readers show the same day.
constexpr std::time_t kAnyTime = 315532800;
constexpr mode_t kPlain = 0644;
constexpr mode_t kExecutable = 0755;

using Entry = std::unique_ptr<archive_entry, decltype(&archive_entry_free)>;

}  // namespace

struct ArchiveWriter::Content {
  Content() : writer(archive_write_new(), archive_write_free) {}

  void check(int status) const {
    if (status == ARCHIVE_OK) return;
    const char* why = archive_error_string(writer.get());
    throw std::runtime_error(std::string("cannot write the archive: ") + (why == nullptr ? "no reason given" : why));
  }

  void begin(const std::string& name, mode_t kind, mode_t permissions, std::int64_t size,
             const char* target = nullptr) {
    const Entry entry(archive_entry_new(), archive_entry_free);
    archive_entry_set_pathname(entry.get(), name.c_str());
    archive_entry_set_mode(entry.get(), kind | permissions);
    archive_entry_set_size(entry.get(), size);
    if (format == Format::tar) archive_entry_set_mtime(entry.get(), kAnyTime, 0);
    if (target != nullptr) archive_entry_set_symlink(entry.get(), target);
    check(archive_write_header(writer.get(), entry.get()));
  }

  void write(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
      const la_ssize_t count = archive_write_data(writer.get(), bytes.data(), bytes.size());
      if (count <= 0) check(count == 0 ? ARCHIVE_FATAL : static_cast<int>(count));
      bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
  }

  std::unique_ptr<archive, decltype(&archive_write_free)> writer;
  Format format = Format::zip;
};

ArchiveWriter::ArchiveWriter(int descriptor, Format format) : content_(std::make_unique<Content>()) {
  // By its locale the library tells in which characters names are.
  std::setlocale(LC_CTYPE, "C.UTF-8");
  content_->format = format;
  archive* const writer = content_->writer.get();
  if (format == Format::zip) {
    content_->check(archive_write_set_format_zip(writer));
    content_->check(archive_write_set_format_option(writer, "zip", "compression-level", "9"));
  } else {
    content_->check(archive_write_set_format_ustar(writer));
  }
  content_->check(archive_write_set_bytes_in_last_block(writer, 1));
  content_->check(archive_write_open_fd(writer, descriptor));
}

ArchiveWriter::~ArchiveWriter() = default;

void ArchiveWriter::addFolder(const std::string& name) { content_->begin(name + "/", S_IFDIR, kExecutable, 0); }

bool ArchiveWriter::addFile(const std::string& name, bool isExecutable, const std::string& path,
                            const std::function<bool()>& isStopped) {
  const posix::FileDescriptor file(
      posix::retried([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK); }));
  struct stat facts {};
  if (!file || ::fstat(file.get(), &facts) != 0) throw std::runtime_error("cannot read " + path);
  content_->begin(name, S_IFREG, isExecutable ? kExecutable : kPlain, facts.st_size);
  std::array<std::uint8_t, 65536> piece;
  std::int64_t rest = facts.st_size;
  while (rest > 0) {
    if (isStopped && isStopped()) return false;
    const ssize_t count = posix::retried([&] { return ::read(file.get(), piece.data(), piece.size()); });
    if (count <= 0 || count > rest) throw std::runtime_error(path + " changed while it was packed");
    content_->write(std::span(piece).first(static_cast<std::size_t>(count)));
    rest -= count;
  }
  return true;
}

void ArchiveWriter::addContent(const std::string& name, std::span<const std::uint8_t> content) {
  content_->begin(name, S_IFREG, kPlain, static_cast<std::int64_t>(content.size()));
  content_->write(content);
}

void ArchiveWriter::addLink(const std::string& name, const std::string& target) {
  content_->begin(name, S_IFLNK, kExecutable, 0, target.c_str());
}

void ArchiveWriter::finish() { content_->check(archive_write_close(content_->writer.get())); }

}  // namespace tks::ctl
