#include "c/Boundary.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"
#include "platform/platform.h"

namespace tks::c {

void logCaught(std::string_view function) noexcept {
  try {
    throw;
  } catch (const std::exception& exception) {
    TKSILog::logWithLevel(TKSILogLevelError, "%@ of the C interface failed: %@", function,
                          masked(std::string_view(exception.what())));
  } catch (...) {
    TKSILog::logWithLevel(TKSILogLevelError, "%@ of the C interface failed: %@", function, "unknown");
  }
}

Context::~Context() {
  if (release_ == nullptr) return;
  try {
    if (where_ == ReleasedOn::mainThread && !platform::mainLoop().isMainThread()) {
      platform::mainLoop().post([release = release_, pointer = pointer_] { releaseNow(pointer, release); });
      return;
    }
  } catch (const std::bad_alloc&) {
    // Elsewhere is better than never.
  }
  releaseNow(pointer_, release_);
}

void releaseNow(void* pointer, tks_release_fn release) noexcept { callHost("release", release, pointer); }

SharedContext keep(void* pointer, tks_release_fn release, Context::ReleasedOn where) noexcept {
  try {
    return std::make_shared<const Context>(pointer, release, where);
  } catch (const std::bad_alloc&) {
    releaseNow(pointer, release);
    return nullptr;
  }
}

Callbacks::Callbacks(tks_finish_fn finished, tks_error_fn failed, SharedContext context) {
  const auto slot = std::make_shared<SharedContext>(std::move(context));
  finish = [finished, slot] {
    const SharedContext taken = std::exchange(*slot, nullptr);
    if (taken != nullptr && finished != nullptr) finished(taken->pointer());
  };
  if (failed == nullptr) return;
  error = [failed, slot](const TKSError& reason) {
    const SharedContext taken = std::exchange(*slot, nullptr);
    if (taken != nullptr) tell(failed, taken->pointer(), reason);
  };
}

void tell(tks_error_fn failed, void* context, const TKSError& error) {
  if (failed == nullptr) return;
  const tks_error shown{.domain = error.domain.c_str(),
                        .code = error.code,
                        .text = error.localizedDescription.c_str(),
                        .reason = static_cast<std::int32_t>(error.reason),
                        .reason_name = TKSErrorReasonName(error.reason).data(),
                        .suggestion = error.recoverySuggestion.c_str()};
  failed(context, &shown);
}

TKSError missingArgument(std::string_view name) {
  return makeError(TKSErrorReason::invalidArgument, TKSUtilErrorDomain, 0, formatted("Argument is missing: %@", name));
}

char* copyForCaller(std::string_view text) noexcept {
  auto* const copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (copy == nullptr) return nullptr;
  if (!text.empty()) std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  return copy;
}

char* jsonForCaller(const TKSValue& value) {
  TKSError error;
  const std::optional<std::string> text = TKSUtilBase::objectToJSONString(value, &error);
  if (text) return copyForCaller(*text);
  TKSILog::logWithLevel(TKSILogLevelError, "No JSON for the caller: %@", masked(error));
  return nullptr;
}

bool isOnMainThread(std::string_view function) {
  if (platform::mainLoop().isMainThread()) return true;
  TKSILog::logWithLevel(TKSILogLevelError, "%@ is for the main thread only.", function);
  return false;
}

}  // namespace tks::c
