#include "platform/apple/seal_coverage.h"

#include <fts.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <string_view>

#include "foundation/values/FilePaths.h"
#include "platform/apple/signature_folders.h"
#include "platform/platform.h"
#include "platform/posix/bundle_links.h"
#include "platform/posix/never_sealed.h"
#include "platform/posix/paths.h"

namespace tks::platform::apple {
namespace {

constexpr std::string_view kContents = "Contents";

bool isStoreFile(std::string_view path) { return lastPathComponent(path) == posix::kStoreFile; }

/// What the seal of a bundle names, by paths below its folder "Contents".
class Names {
 public:
  explicit Names(const std::string& contents) {
    const std::optional<TKSDictionary> seal =
        propertyLists().readDictionary(contents + "/_CodeSignature/CodeResources", nullptr);
    if (!seal) return;
    older_ = (*seal)["files"].dictionary();
    newer_ = (*seal)["files2"].dictionary();
    const std::optional<TKSDictionary> information = propertyLists().readDictionary(contents + "/Info.plist", nullptr);
    if (information && (*information)["CFBundleExecutable"].isText()) {
      executable_ = std::string("MacOS/").append((*information)["CFBundleExecutable"].text());
    }
  }

  bool has(std::string_view path) const { return older_.contains(path) || newer_.contains(path); }
  /// The first form names no links.
  bool hasLink(std::string_view path) const { return newer_.empty() || newer_.contains(path); }

  /// What no seal of any form names.
  bool needNotHave(std::string_view path) const {
    return posix::isNeverSealed(path) || path == executable_ || path == "Info.plist" || path == "CodeResources" ||
           path.starts_with("_CodeSignature/") || path == "_MASReceipt/receipt";
  }

 private:
  TKSDictionary older_;
  TKSDictionary newer_;
  std::string executable_;
};

/// Whether an item that is no folder is as it may be. Where links lead is seen elsewhere.
bool isCovered(const FTSENT& item, std::string_view path, const Names& names) {
  if (item.fts_info == FTS_F) return names.has(path) || names.needNotHave(path);
  const bool isLink = item.fts_info == FTS_SL || item.fts_info == FTS_SLNONE;
  return isLink && !isStoreFile(path) && names.hasLink(path);
}

}  // namespace

bool sealNamesEverything(const std::string& bundle) {
  std::string root = withoutClosingSlashes(bundle);
  if (posix::findLinkOut(root) || !holdsOnlyPartsOfSignatures(root)) return false;
  const Names names(root + "/" + std::string(kContents));
  char* const roots[] = {root.data(), nullptr};
  const std::unique_ptr<FTS, int (*)(FTS*)> walk(::fts_open(roots, FTS_PHYSICAL | FTS_NOCHDIR, nullptr), ::fts_close);
  if (!walk) return false;
  bool hasContents = false;
  while (true) {
    errno = 0;
    FTSENT* const item = ::fts_read(walk.get());
    if (item == nullptr) return hasContents && errno == 0;
    if (item->fts_info == FTS_DP) continue;
    const std::string_view name(item->fts_name, item->fts_namelen);
    if (item->fts_level == 0) {
      if (item->fts_info != FTS_D) return false;
    } else if (item->fts_level == 1) {
      // Beside "Contents" nothing is sealed.
      const bool isContents = name == kContents && item->fts_info == FTS_D;
      hasContents = hasContents || isContents;
      if (!isContents && !(isStoreFile(name) && item->fts_info == FTS_F)) return false;
    } else {
      const std::string_view path = std::string_view(item->fts_path).substr(root.size() + kContents.size() + 2);
      if (item->fts_info != FTS_D) {
        if (!isCovered(*item, path, names)) return false;
      } else if (names.has(path)) {
        ::fts_set(walk.get(), item, FTS_SKIP);
      }
    }
  }
}

}  // namespace tks::platform::apple
