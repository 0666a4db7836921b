#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>
#include <string>
#include <string_view>

#include "platform/posix/file_descriptor.h"
#include "platform/posix/posix_error.h"

namespace tks::posix {

/// Calls visit(name, facts, folder) for each item of a folder, in any order: of a link the facts are its own; `folder`
/// is the descriptor of the open folder. Ends when `visit` returns false. False, and errno, when the folder, which may
/// be no link, or an item cannot be read.
///
/// This is the C library's own listing, because the C++ library's ends the process when memory runs out.
template <class Visit>
bool visitItems(const std::string& folder, Visit visit) {
  FileDescriptor descriptor(
      retried([&] { return ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); }));
  const std::unique_ptr<DIR, int (*)(DIR*)> listing(descriptor ? ::fdopendir(descriptor.get()) : nullptr, ::closedir);
  if (!listing) return false;
  const int number = descriptor.get();
  descriptor.release();  // the listing closes it
  while (true) {
    errno = 0;
    const dirent* const entry = ::readdir(listing.get());
    if (entry == nullptr) return errno == 0;
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    // By the folder's descriptor: the way to each item again would take longer than the look at it.
    struct stat facts {};
    if (::fstatat(number, entry->d_name, &facts, AT_SYMLINK_NOFOLLOW) != 0) return false;
    if (!visit(name, facts, number)) return true;
  }
}

}  // namespace tks::posix
