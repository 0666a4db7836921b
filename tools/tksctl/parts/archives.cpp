#include "tools/tksctl/parts/archives.h"

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/values/ErrorReasons.h"
#include "foundation/values/FilePaths.h"
#include "install/ArchiveCheck.h"
#include "install/PrivateUnpacking.h"
#include "platform/platform.h"

namespace tks::ctl {
namespace {

using platform::files;

/// A folder below the temporary one that is gone with this object.
class Scratch {
 public:
  explicit Scratch(TKSError* error) {
    const std::string temporary = platform::knownFolders().temporary();
    if (temporary.empty()) {
      *error =
          makeError(TKSErrorReason::noSafeFolder, TKSUtilErrorDomain, 0, "there is no temporary folder to be trusted");
      return;
    }
    path_ = files().makePrivateDirectory(joinedPath(temporary, "tksctl-"), error).value_or("");
  }
  ~Scratch() {
    if (!path_.empty()) files().remove(path_, nullptr);
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

TKSError noLauncher() {
  return makeError(TKSErrorReason::broken, TKSUtilErrorDomain, 0,
                   "there is no \"" + std::string(TKSAppName) + "\" at the top of the archive");
}

}  // namespace

ArchiveReport examineArchive(const std::string& path, const std::string& version) {
  ArchiveReport report;
  if (!files().size(path, &report.error)) return report;
  const Scratch scratch(&report.error);
  if (scratch.path().empty()) return report;
  const install::ArchiveContent content = install::lookInto(path, platform::ArchiveFormat::zip, scratch.path());
  report.entries = content.entries;
  report.size = content.size;
  if (content.objection || !content.isComplete) {
    report.error = makeError(TKSErrorReason::badMessage, TKSUtilErrorDomain, 0,
                             content.objection.value_or("the archive cannot be read to its end"));
    return report;
  }
  report.isReadable = true;
  install::PrivateUnpacking unpacking(scratch.path());
  const std::string launcher = joinedPath(scratch.path(), TKSAppName);
  if (!unpacking.run(path, platform::ArchiveFormat::zip, {}, &report.error)) return report;
  if (!unpacking.take(TKSAppName, launcher, &report.error)) {
    report.error = noLauncher();
    return report;
  }
  report.version = TKSUtilBase::getBundleVersion(launcher).text();
  const std::string told = version.empty() ? report.version : version;
  report.isSafe = TKSUtilBase::isSafeToInstall(launcher, told, &report.error);
  return report;
}

}  // namespace tks::ctl
