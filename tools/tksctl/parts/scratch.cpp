#include "tools/tksctl/parts/scratch.h"

#include <tksinterface/TKSConstants.h>

#include "foundation/values/ErrorReasons.h"
#include "foundation/values/FilePaths.h"
#include "platform/platform.h"

namespace tks::ctl {

Scratch::Scratch(TKSError* error) {
  const std::string temporary = platform::knownFolders().temporary();
  if (temporary.empty()) {
    *error =
        makeError(TKSErrorReason::noSafeFolder, TKSUtilErrorDomain, 0, "there is no temporary folder to be trusted");
    return;
  }
  path_ = platform::files().makePrivateDirectory(joinedPath(temporary, "tksctl-"), error).value_or("");
}

std::string Scratch::place(std::string_view name) const { return joinedPath(path_, name); }

void Scratch::remove() {
  if (!path_.empty()) platform::files().remove(path_, nullptr);
  path_.clear();
}

}  // namespace tks::ctl
