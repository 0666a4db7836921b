#include "platform/apple/signature_folders.h"

#include <fcntl.h>
#include <fts.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>
#include <string_view>

#include "foundation/values/FilePaths.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/paths.h"

namespace tks::platform::apple {
namespace {

constexpr std::string_view kSignatureFolder = "_CodeSignature";
constexpr std::string_view kReceiptFolder = "_MASReceipt";
constexpr std::string_view kTicket = "CodeResources";

/// A part of a signature by the name of its file, and what it begins with.
struct Part {
  std::string_view name;
  std::string_view start;
};
/// Blobs of the signature, with their length after this.
constexpr std::string_view kBlob = "\xfa\xde";
constexpr Part kParts[] = {
    {"CodeResources", ""},
    {"CodeSignature", "\x30"},
    {"CodeDirectory", kBlob},
    {"CodeRequirements", kBlob},
    {"CodeRequirements-1", kBlob},
    {"CodeRequirements-2", kBlob},
    {"CodeRequirements-3", kBlob},
    {"CodeRequirements-4", kBlob},
    {"CodeRequirements-5", kBlob},
    {"CodeTopDirectory", std::string_view("\0\0", 2)},
    {"CodeEntitlements", kBlob},
    {"CodeEntitlementDER", kBlob},
    {"CodeRepSpecific", std::string_view("\0\0", 2)},
    {"LaunchConstraintSelf", kBlob},
    {"LaunchConstraintParent", kBlob},
    {"LaunchConstraintResponsible", kBlob},
    {"LibraryConstraint", kBlob},
};

/// An empty file begins with anything: nobody can run it.
bool beginsWith(const char* path, std::string_view start) {
  const posix::FileDescriptor file(posix::retried([&] { return ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK); }));
  std::string found(start.size(), '\0');
  const ssize_t count = file ? posix::retried([&] { return ::read(file.get(), found.data(), found.size()); }) : -1;
  return count == 0 || (count == static_cast<ssize_t>(start.size()) && found == start);
}

bool isPart(const FTSENT& item) {
  const std::string_view name(item.fts_name, item.fts_namelen);
  const auto* const part = std::ranges::find(kParts, name, &Part::name);
  return item.fts_info == FTS_F && part != std::end(kParts) && beginsWith(item.fts_accpath, part->start);
}

bool isReceipt(const FTSENT& item) {
  return item.fts_info == FTS_F && std::string_view(item.fts_name, item.fts_namelen) == "receipt";
}

bool isInOrder(const FTSENT& item) {
  if (item.fts_info == FTS_DNR || item.fts_info == FTS_ERR || item.fts_info == FTS_NS) return false;
  if (item.fts_level == 0) return true;
  const std::string_view folder(item.fts_parent->fts_name, item.fts_parent->fts_namelen);
  if (item.fts_level > 1 && folder == kSignatureFolder) return isPart(item);
  if (item.fts_level > 1 && folder == kReceiptFolder) return isReceipt(item);
  // Beside the contents of a bundle; a resource of this name is a matter of the seal.
  const std::string_view name(item.fts_name, item.fts_namelen);
  if (folder == "Contents" && name == kTicket) return item.fts_info != FTS_D;
  if (folder == "Contents" && (name == kSignatureFolder || name == kReceiptFolder)) return item.fts_info == FTS_D;
  return true;
}

}  // namespace

bool holdsOnlyPartsOfSignatures(const std::string& bundle) {
  std::string root = withoutClosingSlashes(bundle);
  char* const roots[] = {root.data(), nullptr};
  const std::unique_ptr<FTS, int (*)(FTS*)> walk(::fts_open(roots, FTS_PHYSICAL | FTS_NOCHDIR, nullptr), ::fts_close);
  if (!walk) return false;
  while (true) {
    errno = 0;
    const FTSENT* const item = ::fts_read(walk.get());
    if (item == nullptr) return errno == 0;
    if (item->fts_info != FTS_DP && !isInOrder(*item)) return false;
  }
}

}  // namespace tks::platform::apple
