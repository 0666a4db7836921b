#include "tools/tksctl/parts/archives.h"

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/values/ErrorReasons.h"
#include "foundation/values/FilePaths.h"
#include "install/ArchiveCheck.h"
#include "install/PrivateUnpacking.h"
#include "platform/platform.h"
#include "tools/tksctl/parts/scratch.h"

namespace tks::ctl {
namespace {

using platform::files;

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
