#include <optional>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSOptions.h>
#include <tksinterface/TKSUtilBase.h>

#include "c/Boundary.h"
#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"

// The options.

namespace {

using namespace tks::c;

bool setOptions(const char* json, TKSError& error) {
  if (json == nullptr) return TKSOptions::setOptions({}, &error);
  const TKSValue values = TKSUtilBase::JSONStringToObject(json, &error);
  if (!values.isDictionary()) {
    if (values.isNothing()) return false;
    error = tks::makeError(TKSErrorReason::invalidArgument, TKSUtilErrorDomain, 0, "Options are no JSON object.");
    return false;
  }
  const std::optional<TKSOptions> options = TKSOptions::optionsFromDictionary(values.dictionary(), &error);
  return options && TKSOptions::setOptions(*options, &error);
}

}  // namespace

bool tks_set_options(const char* json, tks_error_fn failed, void* context) {
  const auto work = [&] {
    TKSError error;
    if (setOptions(json, error)) return true;
    tks::callHost("failed", &tell, failed, context, error);
    return false;
  };
  return guarded(__func__, work, false);
}
