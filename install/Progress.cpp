#include "install/Progress.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

#include "foundation/logging/Logging.h"
#include "platform/platform.h"

namespace {

/// Read without the mutex: without a callback nothing is made or posted.
constinit std::atomic<bool> isListening = false;
constinit std::mutex blockMutex;

/// Never destroyed: installations in the background may outlive the program's own objects.
std::shared_ptr<const TKSInstallProgressBlock>& keptBlock() {
  static auto& block = *new std::shared_ptr<const TKSInstallProgressBlock>;
  return block;
}

std::shared_ptr<const TKSInstallProgressBlock> currentBlock() {
  const std::scoped_lock lock(blockMutex);
  return keptBlock();
}

/// The callback that is there when the news arrives is told.
void tellHost(const TKSInstallProgress& progress) {
  if (const auto block = currentBlock()) tks::callHost("installProgressBlock", *block, progress);
}

}  // namespace

std::string_view TKSInstallStepName(TKSInstallStep step) noexcept {
  constexpr std::string_view kNames[] = {"examining", "unpacking", "checking", "ending", "replacing", "assessing"};
  const auto number = static_cast<std::int32_t>(step);
  return number >= 1 && number <= 6 ? kNames[number - 1] : std::string_view();
}

void TKSInstallation::setProgressBlock(TKSInstallProgressBlock block) {
  auto kept = block ? std::make_shared<const TKSInstallProgressBlock>(std::move(block)) : nullptr;
  const std::scoped_lock lock(blockMutex);
  isListening = kept != nullptr;
  keptBlock().swap(kept);
}

TKSInstallProgressBlock TKSInstallation::progressBlock() {
  const auto block = currentBlock();
  return block ? *block : TKSInstallProgressBlock();
}

void tks::install::tellProgress(TKSInstallStep step, std::uint64_t bytesDone, std::uint64_t bytesTotal) {
  if (!isListening) return;
  const TKSInstallProgress progress{
      .step = step, .bytesDone = std::min(bytesDone, bytesTotal), .bytesTotal = bytesTotal};
  if (platform::mainLoop().isMainThread()) return tellHost(progress);
  platform::mainLoop().post([progress] { tellHost(progress); });
}
