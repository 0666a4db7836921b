#pragma once

#include <mutex>
#include <string>

#include <tksinterface/TKSILog.h>

#include "tools/tksctl/frame/output.h"

namespace tks::ctl {

/// Keeps the first line of level 8 that comes while it lives: operations that answer yes or no say there why. Every
/// line is passed on.
class FirstFailure {
 public:
  FirstFailure();
  ~FirstFailure() { TKSILog::sharedInstance().setLogBlock(before_); }
  FirstFailure(const FirstFailure&) = delete;
  FirstFailure& operator=(const FirstFailure&) = delete;

  /// Empty when there was none.
  std::string line() const;
  /// Fails with that line, and with the code that its reason has; with `otherwise` where there was none.
  Exit tell(Output& out, std::string_view otherwise) const;

 private:
  TKSLogBlock before_;
  mutable std::mutex mutex_;
  std::string line_;
};

}  // namespace tks::ctl
