#include "platform/archives.h"

#include <fcntl.h>

#include <string>

#include "foundation/values/ErrorReasons.h"
#include "platform/apple/tar_headers.h"
#include "platform/backend.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/paths.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/zip_directory.h"

namespace tks::platform {
namespace {

class AppleArchives final : public Archives {
 public:
  bool inspect(std::string_view path, ArchiveFormat format, const std::function<bool(const ArchiveEntry&)>& visit,
               TKSError* error) override {
    const std::string name(path);
    if (!posix::isPath(path)) return posix::fail(error, "read archive", path);
    const posix::FileDescriptor file(
        posix::retried([&] { return ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); }));
    if (!file) return posix::fail(error, "read archive", path);
    const char* reason = nullptr;
    const bool read = format == ArchiveFormat::zip ? posix::readZipDirectory(file, visit, reason)
                                                   : apple::readTarHeaders(file, visit, reason);
    if (!read && error != nullptr) {
      *error = makeError(TKSErrorReason::badMessage, "NSPOSIXErrorDomain", EFTYPE,
                         "read archive \"" + name + "\": " + reason);
    }
    return read;
  }
};

}  // namespace

template <>
Archives& backend<Archives>() {
  static auto& archives = *new AppleArchives;
  return archives;
}

}  // namespace tks::platform
