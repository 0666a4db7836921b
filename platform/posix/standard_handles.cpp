#include "platform/posix/standard_handles.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace tks::posix {
namespace {

constexpr int kFirstFree = 3;

/// A private copy of a standard handle. True, and an empty copy, when the process has none.
bool keep(int number, FileDescriptor& copy) {
  copy.reset(::fcntl(number, F_DUPFD_CLOEXEC, kFirstFree));
  return copy || errno == EBADF;
}

/// Puts `descriptor` in the place of a standard handle, close-on-exec: other children of the host must not keep the
/// conversation alive. The calls that exist everywhere, since dup3 does not.
bool put(const FileDescriptor& descriptor, int number) {
  return retried([&] { return ::dup2(descriptor.get(), number); }) == number &&
         ::fcntl(number, F_SETFD, FD_CLOEXEC) == 0;
}

using platform::ChannelIdentity;

/// What a descriptor stands for; nothing when it is closed.
std::optional<ChannelIdentity> identityOf(int descriptor) {
  struct stat facts {};
  if (descriptor < 0 || ::fstat(descriptor, &facts) != 0) return std::nullopt;
  return ChannelIdentity{static_cast<std::uint64_t>(facts.st_dev), static_cast<std::uint64_t>(facts.st_ino)};
}

void restore(const FileDescriptor& before, int number, int flags) {
  if (!before) {
    ::close(number);
    return;
  }
  retried([&] { return ::dup2(before.get(), number); });
  ::fcntl(number, F_SETFD, flags);
}

}  // namespace

bool raiseAboveStandard(FileDescriptor& descriptor) {
  if (descriptor.get() >= kFirstFree) return true;
  if (!descriptor) return false;
  FileDescriptor raised(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, kFirstFree));
  if (!raised) return false;
  descriptor = std::move(raised);
  return true;
}

Pipe makePipe() {
  int ends[2];
#ifdef __linux__
  if (::pipe2(ends, O_CLOEXEC) != 0) return {};
#else
  if (::pipe(ends) != 0) return {};
  for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
#endif
  Pipe pipe{FileDescriptor(ends[0]), FileDescriptor(ends[1])};
  if (!raiseAboveStandard(pipe.reader) || !raiseAboveStandard(pipe.writer)) return {};
  return pipe;
}

StandardHandles& StandardHandles::shared() {
  static auto& handles = *new StandardHandles;
  return handles;
}

bool StandardHandles::prepare(Joint& joint) {
  return (joint.toChild_ = makePipe()).reader && (joint.fromChild_ = makePipe()).reader &&
         keep(STDIN_FILENO, joint.inputBefore_) && keep(STDOUT_FILENO, joint.outputBefore_) &&
         (originalsAreKept_ ||
          (keep(STDIN_FILENO, joint.originalInput_) && keep(STDOUT_FILENO, joint.originalOutput_)));
}

std::uint64_t StandardHandles::Joint::putInForce() {
  const int inputFlags = ::fcntl(STDIN_FILENO, F_GETFD);
  const int outputFlags = ::fcntl(STDOUT_FILENO, F_GETFD);
  if (!put(toChild_.writer, STDOUT_FILENO) || !put(fromChild_.reader, STDIN_FILENO)) {
    const int reason = errno;
    restore(outputBefore_, STDOUT_FILENO, outputFlags);
    restore(inputBefore_, STDIN_FILENO, inputFlags);
    errno = reason;
    return 0;
  }
  toChild_ = {};
  fromChild_ = {};
  if (!handles_.joined_) {
    handles_.input_.remember(std::move(inputBefore_), inputFlags);
    handles_.output_.remember(std::move(outputBefore_), outputFlags);
  }
  if (!std::exchange(handles_.originalsAreKept_, true)) {
    handles_.originalInput_ = std::move(originalInput_);
    handles_.originalOutput_ = std::move(originalOutput_);
  }
  for (Place* place : {&handles_.input_, &handles_.output_}) {
    place->pipe = identityOf(place->number);
    place->aside.reset();
  }
  handles_.joined_ = true;
  handles_.childIsGone_ = handles_.talkIsOver_ = false;
  return ++handles_.joints_;
}

std::uint64_t StandardHandles::Joint::keepPrivate() {
  handles_.privateOutput_ = std::move(toChild_.writer);
  handles_.privateInput_ = std::move(fromChild_.reader);
  toChild_ = {};
  fromChild_ = {};
  handles_.childIsGone_ = handles_.talkIsOver_ = false;
  return ++handles_.joints_;
}

void StandardHandles::closePrivate() {
  privateInput_.reset();
  privateOutput_.reset();
}

// Putting back what stood there before.

void StandardHandles::childEnded(std::uint64_t joint) {
  const std::lock_guard lock(mutex_);
  if (joint != joints_) return;
  childIsGone_ = true;
  input_.aside.reset();
  output_.aside.reset();
  if (!talkIsOver_) return;
  putBack();
  closePrivate();
}

void StandardHandles::beginTalk() {
  const std::lock_guard lock(mutex_);
  talkIsOver_ = false;
  if (joined_ || !input_.aside) return;
  // Unless the host has put something else there meanwhile.
  for (const Place* place : {&input_, &output_}) {
    if (identityOf(place->number) != place->identityBefore) return;
  }
  if (!put(output_.aside, STDOUT_FILENO) || !put(input_.aside, STDIN_FILENO)) return;
  input_.aside.reset();
  output_.aside.reset();
  joined_ = true;
}

void StandardHandles::endTalk(const ChannelIdentity& input, bool inGoodOrder) {
  const std::lock_guard lock(mutex_);
  if (privateInput_ && identityOf(privateInput_.get()) == input) {
    talkIsOver_ = true;
    if (childIsGone_) closePrivate();
    return;
  }
  if (!joined_ || input_.pipe != input) return;
  talkIsOver_ = true;
  if (childIsGone_ || (inGoodOrder && setAside())) putBack();
}

bool StandardHandles::setAside() {
  for (Place* place : {&input_, &output_}) place->aside.reset(::fcntl(place->number, F_DUPFD_CLOEXEC, kFirstFree));
  if (input_.aside && output_.aside) return true;
  input_.aside.reset();
  output_.aside.reset();
  return false;
}

void StandardHandles::Place::remember(FileDescriptor descriptor, int flags) {
  before = std::move(descriptor);
  identityBefore = identityOf(before.get());
  flagsBefore = flags;
}

/// What the host itself has put in place of a pipe stays there. A copy that the host has closed by mistake is nothing
/// to put back.
void StandardHandles::putBack() {
  if (!std::exchange(joined_, false)) return;
  for (Place* place : {&output_, &input_}) {
    const bool isOurs = identityOf(place->number) == place->pipe;
    if (identityOf(place->before.get()) != place->identityBefore) {
      place->before.release();
    } else if (isOurs) {
      restore(place->before, place->number, place->flagsBefore);
    }
    if (childIsGone_) place->before.reset();
  }
}

// The originals.

bool StandardHandles::keepOriginals() {
  if (!originalsAreKept_)
    originalsAreKept_ = keep(STDIN_FILENO, originalInput_) && keep(STDOUT_FILENO, originalOutput_);
  return originalsAreKept_;
}

int StandardHandles::originalInput() {
  const std::lock_guard lock(mutex_);
  return keepOriginals() ? originalInput_.get() : STDIN_FILENO;
}

int StandardHandles::originalOutput() {
  const std::lock_guard lock(mutex_);
  return keepOriginals() ? originalOutput_.get() : STDOUT_FILENO;
}

}  // namespace tks::posix
