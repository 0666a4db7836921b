#include <tksinterface/TKSInterface.h>

#include <utility>

#include "foundation/logging/HeldLines.h"
#include "foundation/logging/LineDelivery.h"
#include "foundation/values/FilePaths.h"
#include "interface/Facade.h"
#include "interface/FacadeHandler.h"
#include "platform/platform.h"

using tks::interface::Facade;

TKSInterface& TKSInterface::sharedInstance() {
  const tks::HeldLines lines;
  static auto& instance = *new TKSInterface;
  return instance;
}

TKSInterface::TKSInterface()
    : appManager(std::make_unique<TKSIAppManager>()), facade_(std::make_shared<Facade>(*this)) {
  messageHandler = std::make_unique<tks::interface::FacadeHandler>(facade_);
}

TKSInterface::~TKSInterface() {
  facade_->close();
  // The step that the line is about goes on with what is left of it.
  if (tks::isDeliveringLine()) facade_->keepForThisTurn(std::move(appManager), std::move(messageHandler));
}

// What the host sets and asks.

void TKSInterface::setLogBlock(TKSLogBlock block) { TKSILog::sharedInstance().setLogBlock(std::move(block)); }

void TKSInterface::setBackupTKSAppPath(std::string_view path) {
  facade_->door([path = std::string(path)](Facade& facade) { facade.manager().backupTKSAppPath = path; });
}

void TKSInterface::setBackupTKSZipPath(std::optional<std::string> path, std::string_view TKSVersion) {
  facade_->door([path = std::move(path), version = std::string(TKSVersion)](Facade& facade) {
    facade.manager().backupTKSZipPath = path;
    facade.manager().backupTKSVersion = version;
  });
}

void TKSInterface::launchedTKSPidBlock(TKSPidBlock block) {
  facade_->door([block = std::move(block)](Facade& facade) { facade.owner().pidBlock = block; });
}

std::string TKSInterface::TKSAppPath() const { return appManager->TKSAppPath; }

void TKSInterface::setTKSAppPath(std::string_view path) {
  facade_->door([path = std::string(path)](Facade& facade) {
    facade.manager().TKSAppPath = path;
    // An empty path leaves the executable as it was. Required behaviour: do not fix.
    if (path.empty()) return;
    const std::optional<tks::platform::Bundle> bundle = tks::platform::bundles().open(path);
    std::string executable = bundle ? bundle->executablePath : std::string();
    if (executable.empty()) {
      const std::string_view name = tks::withoutExtension(tks::lastPathComponent(path));
      executable = tks::joinedPath(tks::joinedPath(path, "Contents/MacOS"), name);
    }
    facade.manager().TKSExePath = std::move(executable);
  });
}

bool TKSInterface::isTKSAppSuspending() const { return appManager->TKSAppStatus == TKSI_APP_STATUS_CONNECTED; }

bool TKSInterface::isTKSAppProcessing() const { return appManager->TKSAppStatus == TKSI_APP_STATUS_LAUNCHING; }

std::int32_t TKSInterface::connectedTKSAppPid() const { return appManager->connectedTKSPid; }

std::optional<TKSDictionary> TKSInterface::getRecordedSites() { return appManager->getRecordedSites(); }

// What the host asks for.

void TKSInterface::start(TKSFinishBlock finishBlock, TKSErrorBlock errorBlock) {
  facade_->door([finish = std::move(finishBlock), error = std::move(errorBlock)](Facade& facade) mutable {
    facade.start(std::move(finish), std::move(error));
  });
}

void TKSInterface::stop(TKSFinishBlock finishBlock, TKSErrorBlock errorBlock) {
  facade_->door([finish = std::move(finishBlock), error = std::move(errorBlock)](Facade& facade) mutable {
    facade.stop(std::move(finish), std::move(error));
  });
}

void TKSInterface::launchMeetingWithParam(const TKSValue& param, TKSFinishBlock finishBlock, TKSErrorBlock errorBlock) {
  facade_->door([param, finish = std::move(finishBlock), error = std::move(errorBlock)](Facade& facade) mutable {
    facade.launch(param, std::move(finish), std::move(error));
  });
}

void TKSInterface::internalLaunchMeetingWithParam(const TKSValue& param, TKSFinishBlock finishBlock,
                                                  TKSErrorBlock errorBlock) {
  facade_->door([param, finish = std::move(finishBlock), error = std::move(errorBlock)](Facade& facade) mutable {
    facade.launchInternally(param, std::move(finish), std::move(error));
  });
}

void TKSInterface::relaunchTKSWhenUpdateDone(const TKSValue& param, TKSFinishBlock launchFinishBlock,
                                             TKSErrorBlock launchErrorBlock) {
  facade_->door([param, finish = std::move(launchFinishBlock), error = std::move(launchErrorBlock)](
                    Facade& facade) mutable { facade.relaunch(param, std::move(finish), std::move(error)); });
}

void TKSInterface::cleanupConnectStatus4FileIPC() {
  facade_->door([](Facade& facade) { facade.cleanUpFileChannel(); });
}
