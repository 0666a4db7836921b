#include "codesign/container/byte_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "codesign/container/status.h"

namespace tks::codesign {

std::shared_ptr<const File> File::openIfThere(const std::string& path) {
  // Without O_NONBLOCK a FIFO would wait for a writer.
  posix::FileDescriptor descriptor(
      posix::retried([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
  if (!descriptor) {
    if (errno == ENOENT || errno == ENOTDIR) return nullptr;
    failByErrno();
  }
  struct stat facts {};
  if (::fstat(descriptor.get(), &facts) != 0) failByErrno();
  if (!S_ISREG(facts.st_mode)) fail(status::ofErrno(S_ISDIR(facts.st_mode) ? EISDIR : EINVAL));
  return std::make_shared<const File>(std::move(descriptor), static_cast<std::uint64_t>(facts.st_size));
}

std::shared_ptr<const File> File::open(const std::string& path) {
  std::shared_ptr<const File> file = openIfThere(path);
  if (file == nullptr) fail(status::ofErrno(ENOENT));
  return file;
}

std::size_t File::read(std::uint64_t offset, std::span<std::uint8_t> into) const {
  std::size_t done = 0;
  while (done < into.size()) {
    const ssize_t count = posix::retried([&] {
      return ::pread(descriptor_.get(), into.data() + done, into.size() - done, static_cast<off_t>(offset + done));
    });
    if (count < 0) failByErrno();
    if (count == 0) break;
    done += static_cast<std::size_t>(count);
  }
  return done;
}

ByteSource::ByteSource(std::shared_ptr<const File> file) : file_(std::move(file)), size_(file_->size()) {}

ByteSource::ByteSource(TKSData bytes)
    : memory_(std::make_shared<const TKSData>(std::move(bytes))), size_(memory_->size()) {}

ByteSource ByteSource::part(std::uint64_t offset, std::uint64_t size) const {
  ByteSource result = *this;
  offset = std::min(offset, size_);
  result.offset_ = offset_ + offset;
  result.size_ = std::min(size, size_ - offset);
  return result;
}

std::size_t ByteSource::read(std::uint64_t offset, std::span<std::uint8_t> into) const {
  if (offset >= size_) return 0;
  into = into.first(static_cast<std::size_t>(std::min<std::uint64_t>(into.size(), size_ - offset)));
  if (file_ != nullptr) return file_->read(offset_ + offset, into);
  std::copy_n(memory_->begin() + static_cast<std::ptrdiff_t>(offset_ + offset), into.size(), into.begin());
  return into.size();
}

std::optional<TKSData> ByteSource::all(std::size_t limit) const {
  if (size_ > limit) return std::nullopt;
  TKSData bytes(static_cast<std::size_t>(size_));
  bytes.resize(read(0, bytes));
  return bytes;
}

}  // namespace tks::codesign
