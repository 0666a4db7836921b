#import <Foundation/Foundation.h>

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "platform/apple/guarded.h"
#include "platform/backend.h"
#include "platform/channels.h"
#include "platform/platform.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/standard_handles.h"

namespace tks::platform {
namespace {

Transfer failed(std::string_view step, std::string_view what) {
  Transfer transfer;
  transfer.error = posix::posixError(errno, step, what);
  return transfer;
}

ChannelIdentity identityOf(int descriptor) {
  struct stat information {};
  if (fstat(descriptor, &information) != 0) return {};
  return {static_cast<std::uint64_t>(information.st_dev), information.st_ino};
}

bool isReady(int descriptor, short events) {
  pollfd entry{descriptor, events, 0};
  return posix::retried([&] { return poll(&entry, 1, 0); }) > 0;
}

using SharedDescriptor = std::shared_ptr<const posix::FileDescriptor>;
using Callback = std::shared_ptr<const std::function<void()>>;

/// A source that calls `ready` on the main queue. It keeps the descriptor open until the system has let go of it. Both
/// are taken by value, for a block would keep no more than the address of a reference's object.
dispatch_source_t makeSource(dispatch_source_type_t type, SharedDescriptor descriptor, unsigned long mask,
                             Callback ready) {
  const auto handle = descriptor ? static_cast<uintptr_t>(descriptor->get()) : 0;
  dispatch_source_t source = dispatch_source_create(type, handle, mask, dispatch_get_main_queue());
  if (source == nil) return nil;
  dispatch_source_set_event_handler(source, ^{
    // The callback may destroy whoever holds it: keep it alive until it returns.
    const Callback kept = ready;
    apple::runGuarded("watched descriptor", *kept);
  });
  dispatch_source_set_cancel_handler(source, ^{
    const SharedDescriptor kept = descriptor;
  });
  dispatch_resume(source);
  return source;
}

/// Calls `ready` on the main queue for as long as it exists and has something to tell.
class Watch {
 public:
  void start(dispatch_source_type_t type, const SharedDescriptor& descriptor, unsigned long mask,
             const Callback& ready) {
    stop();
    source_ = makeSource(type, descriptor, mask, ready);
  }
  /// Makes a source of counts tell.
  void announce() {
    if (source_ != nil) dispatch_source_merge_data(source_, 1);
  }
  void stop() {
    if (source_ != nil) dispatch_source_cancel(source_);
    source_ = nil;
  }
  Watch() = default;
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
  ~Watch() { stop(); }

 private:
  dispatch_source_t source_ = nil;
};

SharedDescriptor shared(posix::FileDescriptor descriptor) {
  return std::make_shared<const posix::FileDescriptor>(std::move(descriptor));
}

Callback shared(std::function<void()> ready) { return std::make_shared<const std::function<void()>>(std::move(ready)); }

/// Standard input, on a descriptor of its own. The other end of the pipe never sees a change of mode: a read is made
/// only when something is there.
class PipeSource final : public ByteSource {
 public:
  explicit PipeSource(posix::FileDescriptor descriptor) : descriptor_(shared(std::move(descriptor))) {}

  ChannelIdentity identity() const override { return identityOf(descriptor_->get()); }

  Transfer read(std::span<char> into) override {
    Transfer transfer;
    if (into.empty() || !isReady(descriptor_->get(), POLLIN)) return transfer;
    const ssize_t count = posix::retried([&] { return ::read(descriptor_->get(), into.data(), into.size()); });
    if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return transfer;
    if (count < 0) transfer = failed("read", "standard input");
    if (count <= 0) watch_.stop();
    transfer.count = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    transfer.end = count == 0;
    return transfer;
  }

  void watch(std::function<void()> ready) override {
    watch_.start(DISPATCH_SOURCE_TYPE_READ, descriptor_, 0, shared(std::move(ready)));
  }

  void unwatch() override { watch_.stop(); }

 private:
  SharedDescriptor descriptor_;
  Watch watch_;
};

/// Standard output, on a descriptor of its own. F_SETNOSIGPIPE keeps the signal away from whoever writes to this pipe
/// or terminal here; the calls fail all the same. The mode is left as it is, for others in this process may write there
/// too: a write is made only of what fits.
class PipeSink final : public ByteSink {
 public:
  explicit PipeSink(posix::FileDescriptor descriptor) : descriptor_(shared(std::move(descriptor))) {
    fcntl(descriptor_->get(), F_SETNOSIGPIPE, 1);
  }

  ChannelIdentity identity() const override { return identityOf(descriptor_->get()); }

  Transfer write(std::span<const char> bytes) override {
    Transfer transfer;
    while (transfer.count < bytes.size() && isReady(descriptor_->get(), POLLOUT)) {
      // What poll calls writable takes at least this much without waiting.
      const std::size_t portion = std::min<std::size_t>(bytes.size() - transfer.count, PIPE_BUF);
      const ssize_t count =
          posix::retried([&] { return ::write(descriptor_->get(), bytes.data() + transfer.count, portion); });
      if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return transfer;
      if (count < 0) {
        // What was moved is told first; the next write gives the error again.
        if (transfer.count > 0) return transfer;
        transfer.end = errno == EPIPE;
        transfer.error = posix::posixError(errno, "write", "standard output");
        return transfer;
      }
      transfer.count += static_cast<std::size_t>(count);
    }
    return transfer;
  }

  /// The kernel grows its pipes by itself.
  void expect(std::size_t) override {}

  void whenWritable(std::function<void()> ready) override {
    // The source holds itself until it has told once.
    auto holder = std::make_shared<dispatch_source_t>();
    const Callback once = shared([holder, work = std::move(ready)] {
      dispatch_source_cancel(*holder);
      *holder = nil;
      work();
    });
    dispatch_source_t source = dispatch_source_create(
        DISPATCH_SOURCE_TYPE_WRITE, static_cast<uintptr_t>(descriptor_->get()), 0, dispatch_get_main_queue());
    *holder = source;
    const SharedDescriptor descriptor = descriptor_;
    dispatch_source_set_event_handler(source, ^{
      const Callback kept = once;
      apple::runGuarded("watched descriptor", *kept);
    });
    dispatch_source_set_cancel_handler(source, ^{
      const SharedDescriptor kept = descriptor;
    });
    dispatch_resume(source);
  }

 private:
  SharedDescriptor descriptor_;
};

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

 private:
  /// The path still names this file, and the file is not shorter than what was read. Sets errno when not.
  bool isIntact() const {
    struct stat open {};
    struct stat named {};
    if (fstat(descriptor_->get(), &open) != 0 || lstat(path_.c_str(), &named) != 0) return false;
    const bool same = open.st_dev == named.st_dev && open.st_ino == named.st_ino && open.st_size >= position_;
    if (!same) errno = ESTALE;
    return same;
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

 private:
  /// Beyond the process's limit for files a write raises a signal that ends the process.
  static bool isWithinFileSizeLimit(off_t before, std::size_t size) {
    rlimit limit{};
    if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return true;
    errno = EFBIG;
    return static_cast<rlim_t>(before) + size <= limit.rlim_cur;
  }

  /// Removes the part that was written, unless somebody appended behind it. What went wrong.
  Transfer cutBack(std::size_t done) const {
    Transfer broken = failed("write", path_);
    // Appending leaves the position behind what was appended last.
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
};

/// A private copy of a standard descriptor, which a later launch may replace.
posix::FileDescriptor copyOf(int standard) {
  return posix::StandardHandles::shared().whileUnchanged(
      [&](bool) { return posix::FileDescriptor(fcntl(standard, F_DUPFD_CLOEXEC, 3)); });
}

posix::FileDescriptor openOwnFile(const std::string& path, int flags, TKSError* error) {
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

class AppleChannels final : public Channels {
 public:
  std::unique_ptr<ByteSource> standardInput(TKSError* error) override {
    posix::FileDescriptor descriptor = copyOf(STDIN_FILENO);
    if (descriptor) return std::make_unique<PipeSource>(std::move(descriptor));
    posix::fail(error, "open", "standard input");
    return nullptr;
  }

  std::shared_ptr<ByteSink> standardOutput(TKSError* error) override {
    posix::FileDescriptor descriptor = copyOf(STDOUT_FILENO);
    if (descriptor) return std::make_shared<PipeSink>(std::move(descriptor));
    posix::fail(error, "open", "standard output");
    return nullptr;
  }

  std::unique_ptr<ByteSource> fileSource(std::string_view path, TKSError* error) override {
    const std::string name(path);
    posix::FileDescriptor file = openOwnFile(name, O_RDONLY, error);
    return file ? std::make_unique<FileSource>(std::move(file), name) : nullptr;
  }

  std::shared_ptr<ByteSink> fileSink(std::string_view path, TKSError* error) override {
    const std::string name(path);
    posix::FileDescriptor file = openOwnFile(name, O_WRONLY | O_APPEND, error);
    return file ? std::make_shared<FileSink>(std::move(file), name) : nullptr;
  }
};

}  // namespace

template <>
Channels& backend<Channels>() {
  static auto& channels = *new AppleChannels;
  return channels;
}

}  // namespace tks::platform
