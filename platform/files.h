#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSValue.h>

namespace tks::platform {

struct FileAttributes {
  /// Permission bits, 07777, of the item itself. A link's own say nothing of what it leads to: see `permissions`.
  std::uint32_t permissions = 0;
  /// Extended attributes of the item itself: name (without the system's own prefix) to data. On Linux a well-formed
  /// AppleDouble side-car ("._name") beside the item is read as well; the item's own attributes win.
  TKSDictionary extendedAttributes;
};

/// How far is looked for what others can write to.
enum class Reach {
  way,      ///< folders and links on the way to an item, and whose it is
  content,  ///< the item itself and everything in it as well
};

/// The room on a volume.
struct VolumeSpace {
  std::uint64_t freeBytes = 0;  ///< for this user
  std::uint64_t totalBytes = 0;
};

/// One item of a tree, as it stands on the volume.
struct TreeItem {
  enum class Kind {
    file,    ///< a regular file
    folder,  ///< a folder; its items follow
    link,    ///< a symbolic link, not followed
    other,   ///< a device, a FIFO and the like
  };

  /// Path below the folder that is gone through.
  std::string name;
  Kind kind = Kind::file;
  /// Bytes of a file.
  std::uint64_t size = 0;
  /// Permission bits, 07777.
  std::uint32_t permissions = 0;
  /// Names that the item has on its volume: a file with more than one is there a second time, perhaps elsewhere.
  std::uint64_t names = 1;
  /// Where a link leads, as it stands there.
  std::string target;
};

/// A lock that this process holds until the object is destroyed or the process ends.
class FileLock {
 public:
  virtual ~FileLock() = default;
  /// Whether others are kept out: not on a volume that has no locks.
  virtual bool isEffective() const { return true; }
};

/// Files, folders and their attributes. macOS: NSFileManager, renamex_np, removexattr. Linux: POSIX calls
/// and extended attributes under "user.". Any thread. Errors name the step, the path and the reason. Links are not
/// followed unless said. Removing, copying and moving work on whole trees. A relative path means the working folder;
/// one with a NUL byte is refused (EINVAL), because the system would take it for a shorter one.
///
/// The root, the home, the place of a volume and every folder above one of these are never removed, moved or exchanged
/// (EBUSY), however they are spelled; nor is what a path means that ends in "." or ".." (EINVAL).
class Files {
 public:
  virtual ~Files() = default;

  /// Something exists at the path (links followed).
  virtual bool exists(std::string_view path) = 0;
  virtual bool isDirectory(std::string_view path) = 0;
  /// A link, wherever it leads, also when that is nowhere.
  virtual bool isLink(std::string_view path) = 0;
  /// Both paths lead to the same file or folder (links followed), however they are spelled.
  virtual bool isSameItem(std::string_view one, std::string_view other) = 0;
  /// `folder` is the folder `outer` or lies in it however deep (links followed), however they are spelled.
  virtual bool liesWithin(std::string_view folder, std::string_view outer) = 0;
  /// A plain file that this process may execute (links followed).
  virtual bool isExecutableFile(std::string_view path) = 0;
  /// This process may write to it (links followed).
  virtual bool isWritable(std::string_view path) = 0;
  /// Length of a file in bytes (links followed).
  virtual std::optional<std::uint64_t> size(std::string_view path, TKSError* error) = 0;
  /// Names in a folder, without "." and "..", in the order the system gives.
  virtual std::optional<std::vector<std::string>> list(std::string_view path, TKSError* error) = 0;

  /// Makes a folder with all folders above it; succeeds when it is there already. `permissions` is for what is made,
  /// before the umask.
  virtual bool createDirectory(std::string_view path, std::uint32_t permissions, TKSError* error) = 0;
  /// Makes a folder that did not exist, in one that does; whatever stands at the path is an error. `permissions` is
  /// before the umask.
  virtual bool createNewDirectory(std::string_view path, std::uint32_t permissions, TKSError* error) = 0;
  /// Makes a folder, with all folders above it, that is this user's alone; takes one that is there when it is this
  /// user's own, and closes it to others. It is an error when it is another user's, a link, or no folder.
  virtual bool usePrivateDirectory(std::string_view path, TKSError* error) = 0;
  /// Makes a folder that did not exist, of a name that begins so and that nobody can guess, and that this user alone
  /// can enter: its path.
  virtual std::optional<std::string> makePrivateDirectory(std::string_view beginning, TKSError* error) = 0;
  /// Makes an empty file that did not exist; an existing file or link is an error.
  virtual bool createFile(std::string_view path, std::uint32_t permissions, TKSError* error) = 0;
  virtual bool remove(std::string_view path, TKSError* error) = 0;
  /// Removes a folder that has nothing in it (ENOTEMPTY when it has).
  virtual bool removeEmptyDirectory(std::string_view path, TKSError* error) = 0;
  /// Copies with permissions and attributes; the destination must not exist.
  virtual bool copy(std::string_view from, std::string_view to, TKSError* error) = 0;
  /// Copies the content alone of a regular file (links followed) to a new file, which this user alone can read; the two
  /// share their blocks where the volume can do that.
  virtual bool copyContent(std::string_view from, std::string_view to, TKSError* error) = 0;
  /// Calls `visit` for everything in a folder until it returns false, each folder before what is in it: its rights may
  /// be set then. No link is followed. False, and `error`, when something cannot be looked at.
  virtual bool visitTree(std::string_view folder, const std::function<bool(const TreeItem&)>& visit,
                         TKSError* error) = 0;
  /// Renames; across volumes copies to a hidden name beside the destination, syncs, renames and removes the source. The
  /// destination must not exist.
  virtual bool move(std::string_view from, std::string_view to, TKSError* error) = 0;

  /// Lets two files or folders of one volume change places in one step, so that either name always has one of the two.
  /// Both must exist. On a volume that cannot do this in one step the first is out of its place for a moment.
  virtual bool exchange(std::string_view first, std::string_view second, TKSError* error) = 0;
  /// Waits until no other process, and no other part of this one, holds the lock that the file or folder at `path`
  /// stands for. A file is made when nothing is there, and stays. Null, and `error`, when it cannot be made or
  /// `patience` is over. A thread that holds the lock itself is refused at once. On a volume that has no locks nobody
  /// is kept out.
  virtual std::unique_ptr<FileLock> lock(std::string_view path, std::chrono::milliseconds patience,
                                         TKSError* error) = 0;

  /// The whole content of a regular file (links followed) of at most `limit` bytes.
  virtual std::optional<TKSData> read(std::string_view path, std::size_t limit, TKSError* error) = 0;
  /// Replaces a file as a whole: afterwards it has the old content or the new one, also after a crash. Keeps the
  /// permissions of an existing file.
  virtual bool writeAtomically(std::string_view path, std::span<const std::uint8_t> content, TKSError* error) = 0;

  /// A mark of an item and everything in it. It changes with every change to any of them: content, names,
  /// kinds, permissions or attributes, and that needs no content to be read. A folder itself may be moved within its
  /// volume. Waits some milliseconds when something was changed just now, so that no later change can have the same
  /// time.
  virtual std::optional<TKSData> changeMark(std::string_view path, TKSError* error) = 0;

  virtual std::optional<FileAttributes> attributes(std::string_view path, TKSError* error) = 0;
  /// Permission bits, 07777, of what `setPermissions` sets them of (links followed).
  virtual std::optional<std::uint32_t> permissions(std::string_view path, TKSError* error) = 0;
  /// The first that somebody else than this user and the superuser can change, on the way to an item or as far as
  /// `reach` says. Of an item that is not there, the way as far as it goes. A folder on the way that has the sticky bit
  /// (as the one for temporary files has) lets everybody change his own only. Empty when there is none; nothing, and
  /// `error`, when something cannot be looked at.
  virtual std::optional<std::string> writableByOthers(std::string_view path, Reach reach, TKSError* error) = 0;
  /// Sets the permission bits (links followed).
  virtual bool setPermissions(std::string_view path, std::uint32_t permissions, TKSError* error) = 0;
  /// Removes an extended attribute from the item itself (removexattr with XATTR_NOFOLLOW). The call's result: 0 or -1.
  virtual int removeExtendedAttribute(std::string_view path, std::string_view name) = 0;

  /// Space on the volume that holds the path, or will hold it when only its last component is missing; free means free
  /// for this user.
  virtual std::optional<VolumeSpace> volumeSpace(std::string_view path, TKSError* error) = 0;
};

}  // namespace tks::platform
