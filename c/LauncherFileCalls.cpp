#include <optional>
#include <string>

#include <tksinterface/TKSInstallProgress.h>
#include <tksinterface/TKSUtilBase.h>

#include "c/Boundary.h"
#include "foundation/logging/Logging.h"

// Launchers on disk: whose they are, installing them, and what a server has for them.

namespace {

using namespace tks::c;

using Check = bool (*)(std::string_view path, TKSError* error);

/// Calls the host here and now: what it throws is logged like that of any callback.
void tellNow(tks_error_fn failed, void* context, const TKSError& error) {
  tks::callHost("failed", &tell, failed, context, error);
}

bool check(const char* function, Check operation, const char* path, tks_error_fn failed, void* context) noexcept {
  const auto work = [&] {
    TKSError error;
    if (path == nullptr) {
      error = missingArgument("path");
    } else if (operation(path, &error)) {
      return true;
    }
    tellNow(failed, context, error);
    return false;
  };
  return guarded(function, work, false);
}

}  // namespace

bool tks_check_trust(const char* path, tks_error_fn failed, void* context) {
  return check(__func__, &TKSUtilBase::checkTrust, path, failed, context);
}

bool tks_check_trust_for_launch(const char* path, tks_error_fn failed, void* context) {
  return check(__func__, &TKSUtilBase::checkTrustForLaunch, path, failed, context);
}

bool tks_install(const char* version, const char* archive, const char* target) {
  const auto work = [&] {
    const std::string path = target == nullptr ? TKSUtilBase::getStandardTKSPath() : target;
    return TKSUtilBase::installTKSVersion(textOrEmpty(version), textOrEmpty(archive), path);
  };
  return guarded(__func__, work, false);
}

void tks_set_install_progress(tks_install_progress_fn progress, void* context, tks_release_fn release) {
  guarded(__func__, [&] {
    const SharedContext kept = keep(context, release, Context::ReleasedOn::anyThread);
    if (progress == nullptr || kept == nullptr) return TKSInstallation::setProgressBlock(nullptr);
    TKSInstallation::setProgressBlock([progress, kept](const TKSInstallProgress& news) {
      progress(kept->pointer(), static_cast<std::int32_t>(news.step), news.numberOfSteps, news.bytesDone,
               news.bytesTotal);
    });
  });
}

char* tks_delta_updates(const char* base_url, tks_error_fn failed, void* context) {
  const auto work = [&]() -> char* {
    if (base_url == nullptr) {
      tellNow(failed, context, missingArgument("base_url"));
      return nullptr;
    }
    TKSError error;
    const std::optional<TKSDictionary> packages = TKSUtilBase::avaliableDeltaUpdates(base_url, &error);
    if (packages) return jsonForCaller(*packages);
    if (error != TKSError()) tellNow(failed, context, error);
    return nullptr;
  };
  return guarded(__func__, work, nullptr);
}
