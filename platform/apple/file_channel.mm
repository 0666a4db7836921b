#include "platform/apple/file_channel.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string>
#include <utility>

#include "platform/apple/descriptor_watch.h"
#include "platform/platform.h"
#include "platform/posix/dropped_name.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/paths.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/standard_handles.h"

namespace tks::platform::apple {
namespace {

/// A file that another process appends to, with a vnode source for what happens to it.
class FileSource final : public ByteSource {
 public:
  FileSource(posix::FileDescriptor descriptor, std::string path)
      : descriptor_(shared(std::move(descriptor))), path_(std::move(path)) {}

  ChannelIdentity identity() const override { return identityOf(descriptor_->get()); }

  Transfer read(std::span<char> into) override {
    if (into.empty()) return {};
    const ssize_t count =
        posix::retried([&] { return pread(descriptor_->get(), into.data(), into.size(), position_); });
    if (count < 0 || (count == 0 && !isIntact())) {
      Transfer broken = failed("read", path_);
      unwatch();
      return broken;
    }
    Transfer transfer;
    transfer.count = static_cast<std::size_t>(count);
    position_ += count;
    // The system tells of changes only, and there may be more already.
    if (count > 0) more_.announce();
    return transfer;
  }

  void watch(std::function<void()> ready) override {
    const unsigned long changes = DISPATCH_VNODE_WRITE | DISPATCH_VNODE_EXTEND | DISPATCH_VNODE_ATTRIB |
                                  DISPATCH_VNODE_LINK | DISPATCH_VNODE_DELETE | DISPATCH_VNODE_RENAME |
                                  DISPATCH_VNODE_REVOKE;
    const Callback callback = shared(std::move(ready));
    watch_.start(DISPATCH_SOURCE_TYPE_VNODE, descriptor_, changes, callback);
    more_.start(DISPATCH_SOURCE_TYPE_DATA_ADD, nullptr, 0, callback);
    // What is there already.
    more_.announce();
  }

  void unwatch() override {
    watch_.stop();
    more_.stop();
  }

  bool dropName(TKSError* error) override {
    return posix::dropName(descriptor_->get(), path_) || posix::fail(error, "remove", path_);
  }

 private:
  /// The path still names this file, or its name was dropped, and the file is not shorter than what was read. Sets
  /// errno when not. The path comes first, and then whether its name was dropped: it may go between the two.
  bool isIntact() const {
    struct stat open {};
    struct stat named {};
    if (fstat(descriptor_->get(), &open) != 0) return false;
    const bool isThere = lstat(path_.c_str(), &named) == 0;
    const int reason = isThere ? ESTALE : errno;
    const bool isInPlace = isThere && open.st_dev == named.st_dev && open.st_ino == named.st_ino;
    const bool isDropped = !isInPlace && posix::isNameDropped(descriptor_->get());
    if ((isInPlace || isDropped) && open.st_size >= position_) return true;
    errno = isDropped ? ESTALE : reason;
    return false;
  }

  SharedDescriptor descriptor_;
  std::string path_;
  off_t position_ = 0;
  Watch watch_;
  Watch more_;
};

/// A file that is appended to: all of a write or nothing of it.
class FileSink final : public ByteSink {
 public:
  FileSink(posix::FileDescriptor descriptor, std::string path)
      : descriptor_(std::move(descriptor)), path_(std::move(path)) {}
  ~FileSink() override {
    if (isNameless_) posix::leaveDroppedFile(descriptor_.get());
  }
  FileSink(const FileSink&) = delete;
  FileSink& operator=(const FileSink&) = delete;

  ChannelIdentity identity() const override { return identityOf(descriptor_.get()); }

  Transfer write(std::span<const char> bytes) override {
    const off_t before = lseek(descriptor_.get(), 0, SEEK_END);
    if (before < 0) return failed("write", path_);
    if (!isWithinFileSizeLimit(before, bytes.size())) return failed("write", path_);
    Transfer transfer;
    while (transfer.count < bytes.size()) {
      const ssize_t count = posix::retried(
          [&] { return ::write(descriptor_.get(), bytes.data() + transfer.count, bytes.size() - transfer.count); });
      if (count <= 0) {
        if (count == 0) errno = ENOSPC;
        return cutBack(transfer.count);
      }
      transfer.count += static_cast<std::size_t>(count);
    }
    return transfer;
  }

  void expect(std::size_t) override {}

  void whenWritable(std::function<void()> ready) override { mainLoop().post(std::move(ready)); }

  bool dropName(TKSError* error) override {
    isNameless_ = posix::dropName(descriptor_.get(), path_);
    return isNameless_ || posix::fail(error, "remove", path_);
  }

 private:
  /// Beyond the process's limit for files a write raises a signal that ends the process.
  static bool isWithinFileSizeLimit(off_t before, std::size_t size) {
    rlimit limit{};
    if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return true;
    errno = EFBIG;
    return static_cast<rlim_t>(before) + size <= limit.rlim_cur;
  }

  /// Removes the part that was written, unless somebody appended after it. What went wrong.
  Transfer cutBack(std::size_t done) const {
    Transfer broken = failed("write", path_);
    // Appending leaves the position after what was appended last.
    const off_t end = lseek(descriptor_.get(), 0, SEEK_CUR);
    const off_t begin = end - static_cast<off_t>(done);
    struct stat facts {};
    const bool isLast = done > 0 && begin >= 0 && fstat(descriptor_.get(), &facts) == 0 && facts.st_size == end;
    const bool isCut = isLast && posix::retried([&] { return ftruncate(descriptor_.get(), begin); }) == 0;
    if (done > 0 && !isCut) broken.error->localizedDescription += ", and a part of the message stays in the file";
    return broken;
  }

  posix::FileDescriptor descriptor_;
  std::string path_;
  bool isNameless_ = false;
};

posix::FileDescriptor openOwnFile(const std::string& path, int flags, TKSError* error) {
  if (!posix::isPath(path)) {
    posix::fail(error, "open", path);
    return {};
  }
  posix::FileDescriptor file(
      posix::retried([&] { return open(path.c_str(), flags | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
  struct stat facts {};
  if (!posix::raiseAboveStandard(file) || fstat(file.get(), &facts) != 0) {
    posix::fail(error, "open", path);
    return {};
  }
  errno = !S_ISREG(facts.st_mode) ? EINVAL : facts.st_nlink > 1 ? EMLINK : EPERM;
  if (!S_ISREG(facts.st_mode) || facts.st_nlink > 1 || facts.st_uid != geteuid()) {
    posix::fail(error, "open", path);
    return {};
  }
  return file;
}

}  // namespace

std::unique_ptr<ByteSource> makeFileSource(std::string_view path, TKSError* error) {
  const std::string name(path);
  posix::FileDescriptor file = openOwnFile(name, O_RDONLY, error);
  return file ? std::make_unique<FileSource>(std::move(file), name) : nullptr;
}

std::shared_ptr<ByteSink> makeFileSink(std::string_view path, TKSError* error) {
  const std::string name(path);
  posix::FileDescriptor file = openOwnFile(name, O_WRONLY | O_APPEND, error);
  return file ? std::make_shared<FileSink>(std::move(file), name) : nullptr;
}

}  // namespace tks::platform::apple
