#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include <tksinterface/TKSError.h>

namespace tks::platform {

/// What one read or write came to. `count` bytes were moved; with 0 bytes `end` and `error` tell why: the other end is
/// gone for good, or the channel is broken; neither: nothing can be moved right now.
struct Transfer {
  std::size_t count = 0;
  bool end = false;
  std::optional<TKSError> error;
};

/// Tells channels apart by what the system knows them by (device and inode): handles of one pipe or file have the same
/// identity. Bytes that were read ahead of a closed conversation, or still wait to be written for it, are followed up
/// only on the channel that they belong to, not on one that has taken its place.
struct ChannelIdentity {
  std::uint64_t device = 0;
  std::uint64_t object = 0;
  friend bool operator==(const ChannelIdentity&, const ChannelIdentity&) = default;
};

/// The reading end of a message channel. Main thread only.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  virtual ChannelIdentity identity() const = 0;
  /// Reads the bytes that have come, at most `into.size()`; never waits. For a file `end` never comes: more may be
  /// appended.
  virtual Transfer read(std::span<char> into) = 0;
  /// Calls `ready` on the main thread whenever a read would give bytes, the end or an error, until `unwatch`; costs
  /// nothing while there is nothing. Once a read gave the end, `ready` is not called for it again. `ready` may call
  /// anything here, and may destroy the source.
  virtual void watch(std::function<void()> ready) = 0;
  virtual void unwatch() = 0;
  /// Removes the file's name; the conversation goes on without it, and neither end takes that for its end. False, and
  /// `error`, when the name stays; a channel without a name has none to remove.
  virtual bool dropName(TKSError* error) {
    static_cast<void>(error);
    return true;
  }
};

/// The writing end of a message channel. `write` may be called from any thread, by one at a time.
class ByteSink {
 public:
  virtual ~ByteSink() = default;
  virtual ChannelIdentity identity() const = 0;
  /// Writes as much as the channel takes now; never waits, never raises a signal. A file takes all bytes or, cut back
  /// to its earlier length, none.
  virtual Transfer write(std::span<const char> bytes) = 0;
  /// Tells that a frame of `size` bytes is about to be written, so that the channel can make room for it.
  virtual void expect(std::size_t size) = 0;
  /// Calls `ready` once on the main thread when a write would move bytes or fail. Any thread.
  virtual void whenWritable(std::function<void()> ready) = 0;
  /// As ByteSource::dropName. The reader of a file that has lost its name like this learns that the sink is gone: the
  /// file then counts as removed.
  virtual bool dropName(TKSError* error) {
    static_cast<void>(error);
    return true;
  }
};

/// The message channels of the process. macOS: libdispatch read, write and vnode sources on descriptors of their own.
/// Linux: the main loop, inotify for files.
class Channels {
 public:
  virtual ~Channels() = default;
  /// Standard input and output as they are now. A later pipe-mode launch puts other pipes in their place: ask again at
  /// each opening. Null, and `error`, when the process has none.
  virtual std::unique_ptr<ByteSource> standardInput(TKSError* error) = 0;
  virtual std::shared_ptr<ByteSink> standardOutput(TKSError* error) = 0;
  /// Tells that the conversation that read from `input`, a standardInput(), is over. When a launcher is joined to the
  /// standard handles by it, what stood on 0 and 1 before comes back: at once `inGoodOrder`, after a farewell, and else
  /// once the launcher has ended. What the host has put there itself stays.
  virtual void endOfTalk(const ChannelIdentity& input, bool inGoodOrder) = 0;
  /// A file that another process appends to, from its beginning. Refuses links and files of other users. A file that is
  /// cut, replaced or removed while it is read gives an error within a second, unless one of its ends dropped its name.
  virtual std::unique_ptr<ByteSource> fileSource(std::string_view path, TKSError* error) = 0;
  /// A file to append to; its other content stays. Refuses links and files of other users.
  virtual std::shared_ptr<ByteSink> fileSink(std::string_view path, TKSError* error) = 0;
};

}  // namespace tks::platform
