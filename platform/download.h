#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSURL.h>

namespace tks::platform {

struct DownloadRequest {
  TKSURL url;
  /// Longest time without a byte.
  std::chrono::milliseconds idleTimeout{5000};
  /// Longest time for everything; 0: any.
  std::chrono::milliseconds totalTimeout{0};
  /// No other address is asked than with https, nor one that an answer leads to.
  bool httpsOnly = false;
  /// Longest body.
  std::size_t limit = 64u * 1024 * 1024;
};

struct DownloadResult {
  /// Path of the downloaded file, in a private folder of its own; empty on failure. The receiver removes the folder.
  std::string location;
  /// Status code of the response, when it has one.
  std::optional<int> statusCode;
  std::optional<TKSError> error;
};

/// Downloads. macOS: download tasks of the shared NSURLSession. Linux: libcurl, each on a thread of its own: background
/// work may wait for one. http, https and file URLs only, redirects too; caches are not asked.
class Download {
 public:
  virtual ~Download() = default;
  /// Fetches a file and calls `done` exactly once, on a thread of the downloader's own; on the caller's, with an error
  /// and before this returns, when there is no thread to be had. Any thread.
  virtual void start(const DownloadRequest& request, std::function<void(DownloadResult)> done) = 0;
};

}  // namespace tks::platform
