#include "platform/apple/open_files.h"

#include <fcntl.h>
#include <libproc.h>
#include <sys/proc_info.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tks::platform::apple {
namespace {

/// Descriptors that may be opened between counting and listing.
constexpr std::size_t kMore = 32;

std::vector<proc_fdinfo> descriptorsOf(pid_t process) {
  const int bytes = proc_pidinfo(process, PROC_PIDLISTFDS, 0, nullptr, 0);
  if (bytes <= 0) return {};
  std::vector<proc_fdinfo> list(static_cast<std::size_t>(bytes) / sizeof(proc_fdinfo) + kMore);
  const int room = static_cast<int>(list.size() * sizeof(proc_fdinfo));
  const int filled = proc_pidinfo(process, PROC_PIDLISTFDS, 0, list.data(), room);
  list.resize(filled > 0 ? static_cast<std::size_t>(filled) / sizeof(proc_fdinfo) : 0);
  return list;
}

}  // namespace

bool hasOpenForWriting(pid_t process, const ChannelIdentity& file) {
  for (const proc_fdinfo& descriptor : descriptorsOf(process)) {
    if (descriptor.proc_fdtype != PROX_FDTYPE_VNODE) continue;
    vnode_fdinfo facts{};
    const int size = static_cast<int>(sizeof facts);
    if (proc_pidfdinfo(process, descriptor.proc_fd, PROC_PIDFDVNODEINFO, &facts, size) != size) continue;
    const vinfo_stat& found = facts.pvi.vi_stat;
    const ChannelIdentity identity{static_cast<std::uint64_t>(found.vst_dev),
                                   static_cast<std::uint64_t>(found.vst_ino)};
    // The kernel's own flags: FREAD is 1, FWRITE is 2.
    if (identity == file && (facts.pfi.fi_openflags & FWRITE) != 0) return true;
  }
  return false;
}

}  // namespace tks::platform::apple
