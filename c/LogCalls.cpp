#include <string>

#include <tksinterface/TKSILog.h>

#include "c/Boundary.h"

// The log, and masking.

using namespace tks::c;

void tks_set_log(tks_log_fn log, void* context, tks_release_fn release) {
  guarded(__func__, [&] {
    const SharedContext kept = keep(context, release, Context::ReleasedOn::anyThread);
    if (log == nullptr || kept == nullptr) return TKSILog::sharedInstance().setLogBlock(nullptr);
    TKSILog::sharedInstance().setLogBlock(
        [log, kept](std::int32_t level, const std::string& line) { log(kept->pointer(), level, line.c_str()); });
  });
}

void tks_log(std::int32_t level, const char* line) {
  guarded(__func__, [&] { TKSILog::logWithLevel(level, "%@", textOrEmpty(line)); });
}

char* tks_mask(const char* text) {
  if (text == nullptr) return nullptr;
  const auto work = [text] { return copyForCaller(TKSILog::removeSensitiveInformation(std::string_view(text))); };
  return guarded(__func__, work, nullptr);
}

char* tks_add_mask(const char* text) {
  if (text == nullptr) return nullptr;
  const auto work = [text] { return copyForCaller(TKSILog::addMask(std::string_view(text))); };
  return guarded(__func__, work, nullptr);
}
