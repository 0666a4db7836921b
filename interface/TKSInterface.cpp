#include <tksinterface/TKSInterface.h>

#include <utility>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/FilePaths.h"
#include "foundation/HeldLines.h"
#include "foundation/Logging.h"
#include "interface/TKSInterfaceState.h"
#include "platform/platform.h"

TKSInterface& TKSInterface::sharedInstance() {
  const tks::HeldLines lines;
  static auto& instance = *new TKSInterface;
  return instance;
}

TKSInterface::TKSInterface()
    : appManager(std::make_unique<TKSIAppManager>()),
      messageHandler(std::make_unique<TKSIMessageHandler>()),
      state_(std::make_shared<State>()) {
  state_->facade = this;
}

TKSInterface::~TKSInterface() {
  const std::scoped_lock lock(state_->mutex);
  state_->facade = nullptr;
}

// Threads.

bool TKSInterface::isElsewhere() const { return !tks::platform::mainLoop().isMainThread(); }

void TKSInterface::doOnMainThread(std::function<void()> operation) const {
  tks::platform::mainLoop().post([state = state_, operation = std::move(operation)] {
    if (state->facade != nullptr) operation();
  });
}

// What the host sets and asks.

void TKSInterface::setLogBlock(TKSLogBlock block) { TKSILog::sharedInstance().setLogBlock(std::move(block)); }

void TKSInterface::setBackupTKSAppPath(std::string_view path) {
  if (isElsewhere()) return doOnMainThread([this, path = std::string(path)] { setBackupTKSAppPath(path); });
  appManager->backupTKSAppPath = path;
}

void TKSInterface::setBackupTKSZipPath(std::optional<std::string> path, std::string_view TKSVersion) {
  if (isElsewhere()) {
    return doOnMainThread(
        [this, path = std::move(path), version = std::string(TKSVersion)] { setBackupTKSZipPath(path, version); });
  }
  appManager->backupTKSZipPath = std::move(path);
  appManager->backupTKSVersion = TKSVersion;
}

void TKSInterface::launchedTKSPidBlock(TKSPidBlock block) {
  if (isElsewhere()) return doOnMainThread([this, block = std::move(block)] { launchedTKSPidBlock(block); });
  pidBlock = std::move(block);
}

std::string TKSInterface::TKSAppPath() const { return appManager->TKSAppPath; }

void TKSInterface::setTKSAppPath(std::string_view path) {
  if (isElsewhere()) return doOnMainThread([this, path = std::string(path)] { setTKSAppPath(path); });
  appManager->TKSAppPath = path;
  // An empty path leaves the executable as it was: kept.
  if (path.empty()) return;
  const std::optional<tks::platform::Bundle> bundle = tks::platform::bundles().open(path);
  std::string executable = bundle ? bundle->executablePath : std::string();
  if (executable.empty()) {
    const std::string_view name = tks::withoutExtension(tks::lastPathComponent(path));
    executable = tks::joinedPath(tks::joinedPath(path, "Contents/MacOS"), name);
  }
  appManager->TKSExePath = std::move(executable);
}

bool TKSInterface::isTKSAppSuspending() const { return appManager->TKSAppStatus == TKSI_APP_STATUS_CONNECTED; }

bool TKSInterface::isTKSAppProcessing() const { return appManager->TKSAppStatus == TKSI_APP_STATUS_LAUNCHING; }

std::int32_t TKSInterface::connectedTKSAppPid() const { return appManager->connectedTKSPid; }

std::optional<TKSDictionary> TKSInterface::getRecordedSites() { return appManager->getRecordedSites(); }
