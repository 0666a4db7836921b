#pragma once

#include <mutex>

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
    /// Puts the pipes in place of this process's standard handles and closes the child's ends. False, and errno, when
    /// that fails; nothing has changed then.
    bool putInForce();

   private:
    friend class StandardHandles;
    explicit Joint(StandardHandles& handles) : handles_(handles), lock_(handles.mutex_) {}

    StandardHandles& handles_;
    std::unique_lock<std::mutex> lock_;
    Pipe toChild_;
    Pipe fromChild_;
    FileDescriptor inputBefore_;
    FileDescriptor outputBefore_;
  };

  /// Prepares everything that could fail. False, and errno, when something does.
  bool prepare(Joint& joint);
  Joint begin() { return Joint(*this); }

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
  StandardHandles() = default;

  std::mutex mutex_;  // guards what follows
  bool joined_ = false;
  FileDescriptor originalInput_;
  FileDescriptor originalOutput_;
};

}  // namespace tks::posix
