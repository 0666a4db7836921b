#pragma once

#include <chrono>
#include <memory>
#include <string_view>

#include <tksinterface/TKSError.h>

#include "platform/files.h"

namespace tks::install {

/// How long one operation waits for other processes, in all its waits together: on the main thread two seconds at most,
/// because a host stands still meanwhile; in the background as long as is said. Not at all in an operation that a log
/// callback began while another one of the same thread holds such locks: whoever has what it wants may be waiting for
/// those. When the first wait begins, one line of level 4 names what is waited for. One thread, locks included.
class Patience {
 public:
  explicit Patience(std::chrono::milliseconds inBackground);

  /// The lock that a file or folder stands for; null, and the reason, when it is not to be had in time.
  std::unique_ptr<platform::FileLock> lock(std::string_view path, TKSError* error);

 private:
  std::chrono::milliseconds left_;
  bool hasSaidSo_ = false;
};

}  // namespace tks::install
