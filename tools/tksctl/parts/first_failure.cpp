#include "tools/tksctl/parts/first_failure.h"

#include "tools/tksctl/catalogue/catalogue.h"

namespace tks::ctl {
namespace {

/// The code for a line: that of the reason which the innermost text has.
Exit codeOf(const std::string& line) {
  Exit code = Exit::failed;
  for (const Explanation& entry : explain(line)) {
    for (std::int32_t number = 1; !TKSErrorReasonSuggestion(static_cast<TKSErrorReason>(number)).empty(); ++number) {
      TKSError error;
      error.reason = static_cast<TKSErrorReason>(number);
      if (TKSErrorReasonName(error.reason) == entry.reason) code = exitFor(error);
    }
  }
  return code;
}

}  // namespace

FirstFailure::FirstFailure() : before_(TKSILog::sharedInstance().logBlock()) {
  TKSILog::sharedInstance().setLogBlock([this](std::int32_t level, const std::string& line) {
    if (before_) before_(level, line);
    const std::scoped_lock lock(mutex_);
    if (level == TKSILogLevelError && line_.empty()) line_ = line;
  });
}

std::string FirstFailure::line() const {
  const std::scoped_lock lock(mutex_);
  return line_;
}

Exit FirstFailure::tell(Output& out, std::string_view otherwise) const {
  const std::string first = line();
  return out.fail(codeOf(first), first.empty() ? otherwise : first, "Explain the text: tksctl explain.");
}

}  // namespace tks::ctl
