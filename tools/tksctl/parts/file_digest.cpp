#include "tools/tksctl/parts/file_digest.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <span>

#include "codesign/container/digest.h"
#include "foundation/values/Hexadecimal.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/posix_error.h"

namespace tks::ctl {

std::optional<FileDigest> digestOf(const std::string& path, TKSError* error) {
  const auto failed = [&] {
    posix::fail(error, "read", path);
    return std::nullopt;
  };
  const posix::FileDescriptor file(
      posix::retried([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
  struct stat facts {};
  if (!file || ::fstat(file.get(), &facts) != 0) return failed();
  if (!S_ISREG(facts.st_mode)) {
    errno = S_ISDIR(facts.st_mode) ? EISDIR : EINVAL;
    return failed();
  }
  codesign::Hasher hasher(codesign::HashType::sha256);
  hasher.start();
  FileDigest digest;
  std::array<std::uint8_t, 65536> piece;
  while (true) {
    const ssize_t count = posix::retried([&] { return ::read(file.get(), piece.data(), piece.size()); });
    if (count < 0) return failed();
    if (count == 0) break;
    hasher.update(std::span(piece).first(static_cast<std::size_t>(count)));
    digest.size += static_cast<std::uint64_t>(count);
  }
  const codesign::Digest hash = hasher.finish();
  digest.sha256 = hexadecimal(hash.bytes());
  return digest;
}

}  // namespace tks::ctl
