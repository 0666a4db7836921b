#pragma once

#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "platform/platform.h"

namespace tks::test {

/// The double of downloads, for a scope: answers what a test says, or downloads as before with less patience.
class FakeDownload final : public platform::Download {
 public:
  std::function<platform::DownloadResult()> answer;
  /// Without an answer: the time without a byte is divided by this.
  int haste = 1;
  /// What was asked for, in order.
  std::vector<platform::DownloadRequest> requests;

  void start(const platform::DownloadRequest& request, std::function<void(platform::DownloadResult)> done) override {
    requests.push_back(request);
    if (!answer) {
      platform::DownloadRequest hasty = request;
      hasty.idleTimeout /= haste;
      return replaced_.before().start(hasty, std::move(done));
    }
    std::thread([this, done = std::move(done)] { done(answer()); }).detach();
  }

 private:
  platform::Replaced<platform::Download> replaced_{*this};
};

}  // namespace tks::test
