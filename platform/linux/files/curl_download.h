#pragma once

#include <functional>
#include <string>

#include "platform/download.h"

namespace tks::gnulinux {

/// Downloads with libcurl, each on a thread of its own, so that background work may wait for one.
class CurlDownload final : public platform::Download {
 public:
  /// `authorities`: a PEM file with the certificate authorities to trust; empty: the system's.
  explicit CurlDownload(std::string authorities = {}) : authorities_(std::move(authorities)) {}

  void start(const platform::DownloadRequest& request, std::function<void(platform::DownloadResult)> done) override;

 private:
  std::string authorities_;
};

}  // namespace tks::gnulinux
