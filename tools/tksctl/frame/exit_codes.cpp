#include "tools/tksctl/frame/exit_codes.h"

#include <utility>

namespace tks::ctl {
namespace {

constexpr ExitRow kRows[] = {
    {Exit::ok, "done, and all is well"},
    {Exit::failed, "failed"},
    {Exit::usage, "called in a wrong way: an unknown option, a missing or impossible value"},
    {Exit::nothingToDo, "there was nothing to do"},
    {Exit::notTrusted, "a signature is missing, not valid or not the maker's"},
    {Exit::noPermission, "this user may not do that there"},
    {Exit::timedOut, "nobody answered in time"},
    {Exit::brokenLauncher, "the launcher is missing, damaged, or ended before its work was done"},
    {Exit::interrupted, "interrupted by Ctrl-C or SIGTERM; nothing is left half done"},
};

struct ReasonRow {
  TKSErrorReason reason;
  Exit code;
};

/// Every other reason is `failed`.
constexpr ReasonRow kReasons[] = {
    {TKSErrorReason::notInstalled, Exit::brokenLauncher}, {TKSErrorReason::notTrusted, Exit::notTrusted},
    {TKSErrorReason::broken, Exit::brokenLauncher},       {TKSErrorReason::endedEarly, Exit::brokenLauncher},
    {TKSErrorReason::notAnswered, Exit::timedOut},        {TKSErrorReason::noPermission, Exit::noPermission},
};

}  // namespace

std::span<const ExitRow> exitRows() { return kRows; }

Exit exitFor(const TKSError& error) {
  for (const ReasonRow& row : kReasons) {
    if (row.reason == error.reason) return row.code;
  }
  return Exit::failed;
}

TKSError toolError(Exit code, std::string message, std::string_view suggestion) {
  TKSError error;
  error.domain = "tksctl";
  error.code = static_cast<int>(code);
  error.localizedDescription = std::move(message);
  error.recoverySuggestion = suggestion;
  return error;
}

}  // namespace tks::ctl
