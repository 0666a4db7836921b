#import <Foundation/Foundation.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "platform/backend.h"
#include "platform/channels.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/posix_error.h"

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

/// Calls `ready` on the main queue for as long as a dispatch source exists and has something to tell.
class Watch {
 public:
  void start(dispatch_source_type_t type, int descriptor, unsigned long mask, std::function<void()> ready) {
    stop();
    source_ = dispatch_source_create(type, static_cast<uintptr_t>(descriptor), mask, dispatch_get_main_queue());
    auto callback = std::make_shared<std::function<void()>>(std::move(ready));
    dispatch_source_set_event_handler(source_, ^{
      // The callback may destroy this watch: keep it alive until it returns.
      const std::shared_ptr<std::function<void()>> kept = callback;
      (*kept)();
    });
    dispatch_resume(source_);
  }
  void stop() {
    if (source_ != nil) dispatch_source_cancel(source_);
    source_ = nil;
  }
  ~Watch() { stop(); }

 private:
  dispatch_source_t source_ = nil;
};

/// Standard input, on a descriptor of its own. The other end of the pipe never sees a change of mode: a read is made
/// only when something is there.
class PipeSource final : public ByteSource {
 public:
  explicit PipeSource(posix::FileDescriptor descriptor) : descriptor_(std::move(descriptor)) {}

  ChannelIdentity identity() const override { return identityOf(descriptor_.get()); }

  Transfer read(std::span<char> into) override {
    Transfer transfer;
    if (into.empty() || !isReady(descriptor_.get(), POLLIN)) return transfer;
    const ssize_t count = posix::retried([&] { return ::read(descriptor_.get(), into.data(), into.size()); });
    if (count < 0) return failed("read", "standard input");
    transfer.count = static_cast<std::size_t>(count);
    transfer.end = count == 0;
    if (transfer.end) watch_.stop();
    return transfer;
  }

  void watch(std::function<void()> ready) override {
    watch_.start(DISPATCH_SOURCE_TYPE_READ, descriptor_.get(), 0, std::move(ready));
  }

  void unwatch() override { watch_.stop(); }

 private:
  posix::FileDescriptor descriptor_;
  Watch watch_;
};

/// Standard output, on a descriptor of its own. F_SETNOSIGPIPE keeps the signal away from this descriptor alone.
class PipeSink final : public ByteSink {
 public:
  explicit PipeSink(posix::FileDescriptor descriptor) : descriptor_(std::move(descriptor)) {
    fcntl(descriptor_.get(), F_SETNOSIGPIPE, 1);
    struct stat information {};
    // Only a pipe's end belongs to us alone; a terminal's mode is shared with whoever else has it open.
    if (fstat(descriptor_.get(), &information) == 0 && S_ISFIFO(information.st_mode)) {
      fcntl(descriptor_.get(), F_SETFL, fcntl(descriptor_.get(), F_GETFL) | O_NONBLOCK);
      nonBlocking_ = true;
    }
  }

  ChannelIdentity identity() const override { return identityOf(descriptor_.get()); }

  Transfer write(std::span<const char> bytes) override {
    Transfer transfer;
    while (transfer.count < bytes.size()) {
      if (!nonBlocking_ && !isReady(descriptor_.get(), POLLOUT)) return transfer;
      const std::size_t rest = bytes.size() - transfer.count;
      // What poll calls writable takes at least this much without waiting.
      const std::size_t portion = nonBlocking_ ? rest : std::min<std::size_t>(rest, PIPE_BUF);
      const ssize_t count =
          posix::retried([&] { return ::write(descriptor_.get(), bytes.data() + transfer.count, portion); });
      if (count < 0 && errno == EAGAIN) return transfer;
      if (count < 0) {
        transfer.error = posix::posixError(errno, "write", "standard output");
        transfer.end = errno == EPIPE;
        return transfer;
      }
      transfer.count += static_cast<std::size_t>(count);
    }
    return transfer;
  }

  /// The kernel grows its pipes by itself.
  void expect(std::size_t) override {}

  void whenWritable(std::function<void()> ready) override {
    auto callback = std::make_shared<std::function<void()>>(std::move(ready));
    dispatch_source_t source = dispatch_source_create(
        DISPATCH_SOURCE_TYPE_WRITE, static_cast<uintptr_t>(descriptor_.get()), 0, dispatch_get_main_queue());
    dispatch_source_set_event_handler(source, ^{
      dispatch_source_cancel(source);
      (*callback)();
    });
    dispatch_resume(source);
  }

 private:
  posix::FileDescriptor descriptor_;
  bool nonBlocking_ = false;
};

/// A file that another process appends to, with a vnode source for what happens to it.
class FileSource final : public ByteSource {
 public:
  FileSource(posix::FileDescriptor descriptor, std::string path)
      : descriptor_(std::move(descriptor)), path_(std::move(path)) {}

  ChannelIdentity identity() const override { return identityOf(descriptor_.get()); }

  Transfer read(std::span<char> into) override {
    const ssize_t count = posix::retried([&] { return pread(descriptor_.get(), into.data(), into.size(), position_); });
    if (count < 0) return failed("read", path_);
    Transfer transfer;
    transfer.count = static_cast<std::size_t>(count);
    position_ += count;
    if (count == 0 && !isIntact()) return failed("read", path_);
    return transfer;
  }

  void watch(std::function<void()> ready) override {
    const unsigned long changes = DISPATCH_VNODE_WRITE | DISPATCH_VNODE_EXTEND | DISPATCH_VNODE_DELETE |
                                  DISPATCH_VNODE_RENAME | DISPATCH_VNODE_REVOKE;
    watch_.start(DISPATCH_SOURCE_TYPE_VNODE, descriptor_.get(), changes, ready);
    // A vnode source tells of changes only: what is there already is announced once.
    first_.start(DISPATCH_SOURCE_TYPE_DATA_ADD, 0, 0, std::move(ready));
    first_.announce();
  }

  void unwatch() override {
    watch_.stop();
    first_.stop();
  }

 private:
  /// A watch that can be made to fire.
  class Announcement {
   public:
    void start(dispatch_source_type_t, int, unsigned long, std::function<void()> ready) {
      source_ = dispatch_source_create(DISPATCH_SOURCE_TYPE_DATA_ADD, 0, 0, dispatch_get_main_queue());
      auto callback = std::make_shared<std::function<void()>>(std::move(ready));
      dispatch_source_set_event_handler(source_, ^{
        const std::shared_ptr<std::function<void()>> kept = callback;
        (*kept)();
      });
      dispatch_resume(source_);
    }
    void announce() { dispatch_source_merge_data(source_, 1); }
    void stop() {
      if (source_ != nil) dispatch_source_cancel(source_);
      source_ = nil;
    }
    ~Announcement() { stop(); }

   private:
    dispatch_source_t source_ = nil;
  };

  /// The path still names this file, and the file is not shorter than what was read. Sets errno when not.
  bool isIntact() const {
    struct stat open {};
    struct stat named {};
    if (fstat(descriptor_.get(), &open) != 0 || stat(path_.c_str(), &named) != 0) return false;
    const bool same = open.st_dev == named.st_dev && open.st_ino == named.st_ino && open.st_size >= position_;
    if (!same) errno = ESTALE;
    return same;
  }

  posix::FileDescriptor descriptor_;
  std::string path_;
  off_t position_ = 0;
  Watch watch_;
  Announcement first_;
};

/// A file that is appended to: all of a write or nothing of it.
class FileSink final : public ByteSink {
 public:
  FileSink(posix::FileDescriptor descriptor, std::string path)
      : descriptor_(std::move(descriptor)), path_(std::move(path)) {}

  ChannelIdentity identity() const override { return identityOf(descriptor_.get()); }

  Transfer write(std::span<const char> bytes) override {
    const off_t before = lseek(descriptor_.get(), 0, SEEK_END);
    if (before < 0) return failed("append to", path_);
    Transfer transfer;
    while (transfer.count < bytes.size()) {
      const ssize_t count = posix::retried(
          [&] { return ::write(descriptor_.get(), bytes.data() + transfer.count, bytes.size() - transfer.count); });
      if (count < 0) {
        Transfer broken = failed("append to", path_);
        ftruncate(descriptor_.get(), before);
        return broken;
      }
      transfer.count += static_cast<std::size_t>(count);
    }
    return transfer;
  }

  void expect(std::size_t) override {}

  void whenWritable(std::function<void()> ready) override {
    dispatch_async(dispatch_get_main_queue(), ^{
      ready();
    });
  }

 private:
  posix::FileDescriptor descriptor_;
  std::string path_;
};

/// A private copy of a standard descriptor, which a later launch may replace.
posix::FileDescriptor copyOf(int standard) { return posix::FileDescriptor(fcntl(standard, F_DUPFD_CLOEXEC, 3)); }

posix::FileDescriptor openOwnFile(const std::string& path, int flags, TKSError* error) {
  posix::FileDescriptor file(
      posix::retried([&] { return open(path.c_str(), flags | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK); }));
  struct stat information {};
  if (!file || fstat(file.get(), &information) != 0) {
    posix::fail(error, "open", path);
    return {};
  }
  if (!S_ISREG(information.st_mode) || information.st_uid != getuid()) {
    errno = EPERM;
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
