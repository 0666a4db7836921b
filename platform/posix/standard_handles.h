#pragma once

#include <cstdint>
#include <mutex>
#include <optional>

#include "platform/channels.h"
#include "platform/posix/file_descriptor.h"

namespace tks::posix {

/// Gives a descriptor a number above 2, close-on-exec, also when some of 0 to 2 are closed: one there would be taken
/// for a standard handle, and replaced like one. False, and errno, when that fails; also false, with
/// errno as it is, when there is no descriptor.
bool raiseAboveStandard(FileDescriptor& descriptor);

/// Both ends of a pipe, above the standard descriptors and close-on-exec.
struct Pipe {
  FileDescriptor reader;
  FileDescriptor writer;
};

/// A new pipe, or an empty one and errno.
Pipe makePipe();

/// This process's standard input and output, which a start can join to a child. Any thread.
///
/// What stood there before is put back once the child has ended and the conversation with it is over; and as soon as
/// that is over in good order, with the pipes set aside until the child ends, so that it notices nothing.
class StandardHandles {
 public:
  /// The only ones; never destroyed.
  static StandardHandles& shared();

  /// Two pipes on their way to a child. Destroyed without having been put in force, it leaves everything as it was.
  /// Only one exists at a time.
  class Joint {
   public:
    /// What becomes the child's standard input and output.
    int childInput() const { return toChild_.reader.get(); }
    int childOutput() const { return fromChild_.writer.get(); }
    /// Puts the pipes in place of this process's standard handles and closes the child's ends. Returns the number to
    /// tell the child's end with; 0, and errno, when that fails; nothing has changed then.
    std::uint64_t putInForce();
    /// Keeps this process's ends on private descriptors instead, in place of the private ones before, and closes the
    /// child's. Returns the number to tell the child's end with.
    std::uint64_t keepPrivate();

   private:
    friend class StandardHandles;
    explicit Joint(StandardHandles& handles) : handles_(handles), lock_(handles.mutex_) {}

    StandardHandles& handles_;
    std::unique_lock<std::mutex> lock_;
    Pipe toChild_;
    Pipe fromChild_;
    FileDescriptor inputBefore_;
    FileDescriptor outputBefore_;
    FileDescriptor originalInput_;
    FileDescriptor originalOutput_;
  };

  /// Does `work` with the two descriptors that a conversation goes over: private ones while there are any, else the
  /// standard handles, which stay as they are meanwhile.
  template <class Work>
  auto withTalk(Work work) {
    const std::lock_guard lock(mutex_);
    return privateInput_ ? work(privateInput_.get(), privateOutput_.get()) : work(0, 1);
  }

  /// Prepares everything that could fail. False, and errno, when something does.
  bool prepare(Joint& joint);
  Joint begin() { return Joint(*this); }

  /// The child of a joint has ended.
  void childEnded(std::uint64_t joint);
  /// A conversation over the standard handles begins; those that were set aside for the child come back.
  void beginTalk();
  /// See platform::Channels::endOfTalk.
  void endTalk(const platform::ChannelIdentity& input, bool inGoodOrder);

  /// Does `work` while the standard handles stay as they are; it is told whether they are pipes to a child.
  template <class Work>
  auto whileUnchanged(Work work) {
    const std::lock_guard lock(mutex_);
    return work(joined_);
  }

  /// See platform/child_processes.h.
  int originalInput();
  int originalOutput();

 private:
  /// One standard handle: what stood there before the pipe, the pipe while it is set aside, and how to tell them.
  struct Place {
    int number;
    FileDescriptor before;
    std::optional<platform::ChannelIdentity> identityBefore;
    int flagsBefore = 0;
    std::optional<platform::ChannelIdentity> pipe;
    FileDescriptor aside;

    void remember(FileDescriptor descriptor, int flags);
  };

  StandardHandles() = default;
  bool keepOriginals();
  bool setAside();
  void putBack();
  void closePrivate();

  std::mutex mutex_;  // guards what follows
  /// The pipes stand on 0 and 1.
  bool joined_ = false;
  bool childIsGone_ = false;
  bool talkIsOver_ = false;
  std::uint64_t joints_ = 0;
  Place input_{.number = 0, .before = {}, .identityBefore = {}, .pipe = {}, .aside = {}};
  Place output_{.number = 1, .before = {}, .identityBefore = {}, .pipe = {}, .aside = {}};

  /// This process's ends of the pipes to a child that was started with private ones.
  FileDescriptor privateInput_;
  FileDescriptor privateOutput_;

  bool originalsAreKept_ = false;
  FileDescriptor originalInput_;
  FileDescriptor originalOutput_;
};

}  // namespace tks::posix
