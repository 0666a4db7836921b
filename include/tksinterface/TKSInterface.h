#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <tksinterface/TKSCallbacks.h>
#include <tksinterface/TKSExport.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSRunningApplication.h>
#include <tksinterface/TKSValue.h>

class TKSIAppManager;
class TKSIMessageHandler;

namespace tks::interface {
class Facade;
}  // namespace tks::interface

/// The one class that a host talks to: starts the launcher, asks it to launch meetings, stops it.
///
/// All operations are called on the main thread, and all callbacks arrive there; they may call any operation again.
/// Each is called once at most; a launch's error callback also by a failure after its end or missing parameters.
/// Status and process identifier may be read from any thread. Example: examples/host/main.cpp
class TKS_EXPORT TKSInterface {
 public:
  /// `sharedInstance` The process-wide facade.
  static TKSInterface& sharedInstance();

  /// `init` Makes the record of the launcher and the handler of the conversation.
  TKSInterface();
  ~TKSInterface();
  TKSInterface(const TKSInterface&) = delete;
  TKSInterface& operator=(const TKSInterface&) = delete;

  /// `setLogBlock:` Installs the log callback (see TKSILog).
  void setLogBlock(TKSLogBlock block);
  /// `setBackupTKSAppPath:` Stored only.
  void setBackupTKSAppPath(std::string_view path);
  /// `setBackupTKSZipPath:TKSVersion:` The backup archive and the version of the launcher in it, for refreshing the
  /// installed launcher at the next start.
  void setBackupTKSZipPath(std::optional<std::string> path, std::string_view TKSVersion);
  /// `launchedTKSPidBlock:` Called with the process identifier of each launcher that is started.
  void launchedTKSPidBlock(TKSPidBlock block);

  /// `TKSAppPath` Path of the launcher bundle.
  std::string TKSAppPath() const;
  /// `setTKSAppPath:` Sets it; the executable is the one that the bundle declares. An empty path leaves the executable
  /// as it was.
  void setTKSAppPath(std::string_view path);

  /// `isTKSAppSuspending` The launcher is connected and waits.
  bool isTKSAppSuspending() const;
  /// `isTKSAppProcessing` The launcher works on a launch request.
  bool isTKSAppProcessing() const;
  /// `connectedTKSAppPid` Process identifier of the connected launcher; 0 when none.
  std::int32_t connectedTKSAppPid() const;

  /// `start:errorBlock:` Starts and greets the launcher, or tests an existing connection.
  void start(TKSFinishBlock finishBlock, TKSErrorBlock errorBlock);
  /// `stop:errorBlock:` Disconnects from the launcher. A running launch is given up; its callbacks get an error first.
  void stop(TKSFinishBlock finishBlock, TKSErrorBlock errorBlock);

  /// `launchMeetingWithParam:finishBlock:errorBlock:` Launches a meeting, starting the launcher first if need be.
  /// `param` is the dictionary of launch parameters (TKSConstants.h); nothing stands for a missing one.
  void launchMeetingWithParam(const TKSValue& param, TKSFinishBlock finishBlock, TKSErrorBlock errorBlock);
  /// `internalLaunchMeetingWithParam:finishBlock:errorBlock:` The same without looking at the status first.
  void internalLaunchMeetingWithParam(const TKSValue& param, TKSFinishBlock finishBlock, TKSErrorBlock errorBlock);
  /// `relaunchTKSWhenUpdateDone:launchFinishBlock:launchErrorBlock:` Waits, off the main thread, until the old launcher
  /// has quit (51 looks, about 5.1 s), then launches again.
  void relaunchTKSWhenUpdateDone(const TKSValue& param, TKSFinishBlock launchFinishBlock,
                                 TKSErrorBlock launchErrorBlock);

  /// `getRecordedSites` Site domain to time of the last launch; nothing when none is recorded.
  std::optional<TKSDictionary> getRecordedSites();

  /// `cleanupConnectStatus4FileIPC` Ends a conversation over files at once, for the release host that uses files.
  void cleanupConnectStatus4FileIPC();

  /// The record of the launcher; owned.
  std::unique_ptr<TKSIAppManager> appManager;
  /// The conversation with the launcher; owned.
  std::unique_ptr<TKSIMessageHandler> messageHandler;
  /// Identifier of the host's main bundle, noted at each start; empty when it has none.
  std::string bundleID;
  /// Set by launchedTKSPidBlock.
  TKSPidBlock pidBlock;

 private:
  const std::shared_ptr<tks::interface::Facade> facade_;
};
