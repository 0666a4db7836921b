#include "platform/linux/channels/file_channel.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>
#include <utility>

#include "platform/linux/channels/file_observer.h"
#include "platform/linux/channels/held_signal.h"
#include "platform/linux/channels/own_descriptor.h"
#include "platform/linux/loop/event_loop.h"
#include "platform/posix/dropped_name.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/paths.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/standard_handles.h"

namespace tks::gnulinux {
namespace {

using platform::ChannelIdentity;
using platform::Transfer;

ChannelIdentity identityOf(const struct stat& facts) {
  return {static_cast<std::uint64_t>(facts.st_dev), static_cast<std::uint64_t>(facts.st_ino)};
}

/// An open file of a message folder, known to be one that only this user can have put there.
struct OpenFile {
  OwnDescriptor descriptor;
  ChannelIdentity identity;
};

bool isOurs(const struct stat& facts) {
  errno = !S_ISREG(facts.st_mode) ? EINVAL : facts.st_nlink > 1 ? EMLINK : EPERM;
  return S_ISREG(facts.st_mode) && facts.st_nlink <= 1 && facts.st_uid == ::geteuid();
}

std::optional<OpenFile> openFile(const std::string& path, int flags, TKSError* error) {
  if (!posix::isPath(path)) {
    posix::fail(error, "open", path);
    return std::nullopt;
  }
  // Non-blocking matters for a FIFO in the file's place only.
  posix::FileDescriptor descriptor(
      posix::retried([&] { return ::open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY); }));
  struct stat facts {};
  if (!posix::raiseAboveStandard(descriptor) || ::fstat(descriptor.get(), &facts) != 0 || !isOurs(facts)) {
    posix::fail(error, "open", path);
    return std::nullopt;
  }
  return OpenFile{OwnDescriptor(std::move(descriptor)), identityOf(facts)};
}

TKSError brokenFile(const std::string& path, std::string_view what) {
  TKSError error = posix::posixError(ESTALE, "read", path);
  error.localizedDescription.assign("read \"").append(path).append("\": ").append(what);
  return error;
}

/// What a FileSource is to the calls of the loop: it lives through them, also when the source is destroyed in one.
class GrowingFile : public std::enable_shared_from_this<GrowingFile> {
 public:
  GrowingFile(OpenFile file, std::string path) : file_(std::move(file)), path_(std::move(path)) {}

  const ChannelIdentity& identity() const { return file_.identity; }

  Transfer read(std::span<char> into) {
    if (into.empty()) return {};
    const auto got = posix::retried([&] { return ::read(file_.descriptor.get(), into.data(), into.size()); });
    if (got > 0) {
      position_ += got;
      return {.count = static_cast<std::size_t>(got), .end = false, .error = {}};
    }
    std::optional<TKSError> fault = got < 0 ? posix::posixError(errno, "read", path_) : faultOfContent();
    if (!fault) fault = faultOfPlace_;
    if (fault) unwatch();
    return {.count = 0, .end = false, .error = std::move(fault)};
  }

  bool dropName(TKSError* error) {
    return posix::dropName(file_.descriptor.get(), path_) || posix::fail(error, "remove", path_);
  }

  void watch(std::function<void()> ready) {
    unwatch();
    ready_ = std::make_shared<const std::function<void()>>(std::move(ready));
    observer_.emplace(path_, [this](FileObserver::Change change) { look(change); });
    // What changed before the observer was there.
    lookSoon();
  }

  void unwatch() {
    ready_.reset();
    observer_.reset();
  }

 private:
  using Change = FileObserver::Change;

  void lookSoon() {
    EventLoop::main().post([weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->look(Change::place);
    });
  }

  /// Calls the reader when it would find something. It may read less than there is.
  void look(Change change) {
    const auto self = shared_from_this();
    if (change == Change::place) faultOfPlace_ = lookAtPlace();
    if (!hasSomething()) return;
    if (observer_) observer_->expectMore();
    const auto ready = ready_;
    if (ready) (*ready)();
    if (ready_ && hasSomething()) lookSoon();
  }

  bool hasSomething() const { return faultOfPlace_ || size() != position_; }

  off_t size() const {
    struct stat facts {};
    return ::fstat(file_.descriptor.get(), &facts) == 0 ? facts.st_size : -1;
  }

  std::optional<TKSError> faultOfContent() const {
    if (size() < position_) return brokenFile(path_, "the file was cut");
    return std::nullopt;
  }

  /// The place comes first, and then whether its name was dropped: it may go between the two.
  std::optional<TKSError> lookAtPlace() const {
    struct stat facts {};
    const bool isThere = ::lstat(path_.c_str(), &facts) == 0;
    if (isThere && identityOf(facts) == file_.identity) return std::nullopt;
    if (posix::isNameDropped(file_.descriptor.get())) return std::nullopt;
    return brokenFile(path_, isThere ? "another file took its place" : "the file was removed");
  }

  OpenFile file_;
  std::string path_;
  off_t position_ = 0;
  std::optional<TKSError> faultOfPlace_;
  std::shared_ptr<const std::function<void()>> ready_;
  std::optional<FileObserver> observer_;
};

class FileSource final : public platform::ByteSource {
 public:
  FileSource(OpenFile file, std::string path)
      : file_(std::make_shared<GrowingFile>(std::move(file), std::move(path))) {}
  ~FileSource() override { file_->unwatch(); }

  ChannelIdentity identity() const override { return file_->identity(); }
  Transfer read(std::span<char> into) override { return file_->read(into); }
  void watch(std::function<void()> ready) override { file_->watch(std::move(ready)); }
  void unwatch() override { file_->unwatch(); }
  bool dropName(TKSError* error) override { return file_->dropName(error); }

 private:
  std::shared_ptr<GrowingFile> file_;
};

class FileSink final : public platform::ByteSink {
 public:
  FileSink(OpenFile file, std::string path) : file_(std::move(file)), path_(std::move(path)) {}
  ~FileSink() override {
    if (isNameless_) posix::leaveDroppedFile(file_.descriptor.get());
  }
  FileSink(const FileSink&) = delete;
  FileSink& operator=(const FileSink&) = delete;

  ChannelIdentity identity() const override { return file_.identity; }

  Transfer write(std::span<const char> bytes) override {
    std::size_t done = 0;
    while (done < bytes.size()) {
      const ssize_t wrote = writeQuietly(bytes.subspan(done));
      if (wrote <= 0) return {.count = 0, .end = false, .error = cutBack(done, wrote == 0 ? ENOSPC : errno)};
      done += static_cast<std::size_t>(wrote);
    }
    return {.count = done, .end = false, .error = {}};
  }

  void expect(std::size_t) override {}

  void whenWritable(std::function<void()> ready) override { EventLoop::main().post(std::move(ready)); }

  bool dropName(TKSError* error) override {
    isNameless_ = posix::dropName(file_.descriptor.get(), path_);
    return isNameless_ || posix::fail(error, "remove", path_);
  }

 private:
  /// Beyond the process's limit for files a write raises a signal that ends the process.
  ssize_t writeQuietly(std::span<const char> bytes) const {
    HeldSignal tooLarge(SIGXFSZ);
    const ssize_t wrote = posix::retried([&] { return ::write(file_.descriptor.get(), bytes.data(), bytes.size()); });
    if (wrote < 0 && errno == EFBIG) tooLarge.takeBack();
    return wrote;
  }

  /// Removes the part that was written, unless somebody appended to it. Returns what went wrong.
  TKSError cutBack(std::size_t done, int reason) const {
    TKSError error = posix::posixError(reason, "write", path_);
    if (done == 0) return error;
    // Appending leaves the position after what was appended last.
    const off_t end = ::lseek(file_.descriptor.get(), 0, SEEK_CUR);
    struct stat facts {};
    const bool isLast =
        end >= static_cast<off_t>(done) && ::fstat(file_.descriptor.get(), &facts) == 0 && facts.st_size == end;
    const off_t begin = end - static_cast<off_t>(done);
    if (isLast && posix::retried([&] { return ::ftruncate(file_.descriptor.get(), begin); }) == 0) return error;
    error.localizedDescription += ", and a part of the message stays in the file";
    return error;
  }

  OpenFile file_;
  std::string path_;
  bool isNameless_ = false;
};

}  // namespace

std::unique_ptr<platform::ByteSource> fileSource(std::string_view path, TKSError* error) {
  std::string text(path);
  std::optional<OpenFile> file = openFile(text, O_RDONLY, error);
  if (!file) return nullptr;
  return std::make_unique<FileSource>(*std::move(file), std::move(text));
}

std::shared_ptr<platform::ByteSink> fileSink(std::string_view path, TKSError* error) {
  std::string text(path);
  std::optional<OpenFile> file = openFile(text, O_WRONLY | O_APPEND, error);
  if (!file) return nullptr;
  return std::make_shared<FileSink>(*std::move(file), std::move(text));
}

}  // namespace tks::gnulinux
