#include <optional>
#include <string>
#include <utility>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSIAppManager.h>
#include <tksinterface/TKSInterface.h>
#include <tksinterface/TKSUtilBase.h>

#include "c/Boundary.h"
#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"
#include "foundation/values/OutOfMemory.h"
#include "platform/platform.h"

// The facade.

namespace {

using namespace tks::c;

TKSInterface& facade() { return TKSInterface::sharedInstance(); }

using Launch = void (TKSInterface::*)(const TKSValue& param, TKSFinishBlock finish, TKSErrorBlock error);

/// Hands the callbacks of a call, ready for the facade, to what it does. Without the memory for them the error callback
/// hears of it, with the context that is not released yet.
template <class Work>
void withCallbacks(const char* function, tks_finish_fn finished, tks_error_fn failed, void* context,
                   tks_release_fn release, Work work) noexcept {
  std::optional<Callbacks> callbacks;
  SharedContext kept;
  try {
    kept = std::make_shared<const Context>(context, release, Context::ReleasedOn::mainThread);
    callbacks.emplace(finished, failed, kept);
  } catch (const std::bad_alloc&) {
    TKSError error;
    tks::setOutOfMemory(&error);
    guarded(function, [&] { tell(failed, context, error); });
    if (kept == nullptr) releaseNow(context, release);
    return;
  }
  kept.reset();
  guarded(function, [&] { work(std::move(callbacks->finish), std::move(callbacks->error)); });
}

/// The launch parameters in a text; nothing, and the error, when it holds none.
std::optional<TKSValue> parametersIn(const char* json, TKSError& error) {
  if (json == nullptr) return TKSValue();
  TKSValue value = TKSUtilBase::JSONStringToObject(json, &error);
  if (value.isDictionary()) return value;
  if (!value.isNothing()) {
    error =
        tks::makeError(TKSErrorReason::invalidArgument, TKSUtilErrorDomain, 0, "Launch parameters are no JSON object.");
  }
  return std::nullopt;
}

/// Tells an error on the main thread, as the facade does: at once there, and later from elsewhere.
void refuse(TKSErrorBlock block, TKSError error) {
  auto call = [block = std::move(block), error = std::move(error)] { tks::callHost("errorBlock", block, error); };
  if (tks::platform::mainLoop().isMainThread()) return call();
  tks::platform::mainLoop().post(std::move(call));
}

void launch(const char* function, Launch operation, const char* json, tks_finish_fn finished, tks_error_fn failed,
            void* context, tks_release_fn release) noexcept {
  withCallbacks(function, finished, failed, context, release, [&](TKSFinishBlock finish, TKSErrorBlock error) {
    TKSError reason;
    const std::optional<TKSValue> parameters = parametersIn(json, reason);
    if (!parameters) return refuse(std::move(error), std::move(reason));
    (facade().*operation)(*parameters, std::move(finish), std::move(error));
  });
}

}  // namespace

void tks_set_launcher(const char* path) {
  guarded(__func__, [&] { facade().setTKSAppPath(textOrEmpty(path)); });
}

char* tks_launcher() {
  const auto work = [] { return isOnMainThread("tks_launcher") ? copyForCaller(facade().TKSAppPath()) : nullptr; };
  return guarded(__func__, work, nullptr);
}

void tks_set_backup_archive(const char* path, const char* version) {
  guarded(__func__, [&] {
    std::optional<std::string> archive;
    if (path != nullptr) archive = path;
    facade().setBackupTKSZipPath(std::move(archive), textOrEmpty(version));
  });
}

void tks_set_backup_launcher(const char* path) {
  guarded(__func__, [&] { facade().setBackupTKSAppPath(textOrEmpty(path)); });
}

void tks_set_pid_callback(tks_pid_fn started, void* context, tks_release_fn release) {
  guarded(__func__, [&] {
    const SharedContext kept = keep(context, release, Context::ReleasedOn::mainThread);
    if (started == nullptr || kept == nullptr) return facade().launchedTKSPidBlock(nullptr);
    facade().launchedTKSPidBlock([started, kept](std::int32_t pid) { started(kept->pointer(), pid); });
  });
}

void tks_start(tks_finish_fn finished, tks_error_fn failed, void* context, tks_release_fn release) {
  withCallbacks(__func__, finished, failed, context, release, [](TKSFinishBlock finish, TKSErrorBlock error) {
    facade().start(std::move(finish), std::move(error));
  });
}

void tks_stop(tks_finish_fn finished, tks_error_fn failed, void* context, tks_release_fn release) {
  withCallbacks(__func__, finished, failed, context, release,
                [](TKSFinishBlock finish, TKSErrorBlock error) { facade().stop(std::move(finish), std::move(error)); });
}

void tks_launch(const char* parameters, tks_finish_fn finished, tks_error_fn failed, void* context,
                tks_release_fn release) {
  launch(__func__, &TKSInterface::launchMeetingWithParam, parameters, finished, failed, context, release);
}

void tks_launch_directly(const char* parameters, tks_finish_fn finished, tks_error_fn failed, void* context,
                         tks_release_fn release) {
  launch(__func__, &TKSInterface::internalLaunchMeetingWithParam, parameters, finished, failed, context, release);
}

void tks_launch_after_update(const char* parameters, tks_finish_fn finished, tks_error_fn failed, void* context,
                             tks_release_fn release) {
  launch(__func__, &TKSInterface::relaunchTKSWhenUpdateDone, parameters, finished, failed, context, release);
}

void tks_clean_up_file_channel() {
  guarded(__func__, [] { facade().cleanupConnectStatus4FileIPC(); });
}

std::int32_t tks_status() {
  return guarded(
      __func__, [] { return facade().appManager->TKSAppStatus.load(); }, TKS_STATUS_UNCONNECTED);
}

std::int32_t tks_connected_pid() {
  return guarded(
      __func__, [] { return facade().connectedTKSAppPid(); }, 0);
}

char* tks_recorded_sites() {
  const auto work = []() -> char* {
    if (!isOnMainThread("tks_recorded_sites")) return nullptr;
    const std::optional<TKSDictionary> sites = facade().getRecordedSites();
    return sites ? jsonForCaller(*sites) : nullptr;
  };
  return guarded(__func__, work, nullptr);
}
