#include "tools/tksctl/frame/output.h"

#include <tksinterface/TKSUtilBase.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "BuildValues.h"
#include "foundation/values/JsonWriter.h"
#include "tools/tksctl/frame/json_values.h"

namespace tks::ctl {
namespace {

bool writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

/// Standard error may be closed or full: nobody is left to hear of that.
void writeNote(std::string_view line) { (void)writeAll(STDERR_FILENO, std::string(line).append("\n")); }

}  // namespace

Output::Output(std::string tool, std::string command, const OutputWishes& wishes)
    : tool_(std::move(tool)),
      command_(std::move(command)),
      wishes_(wishes),
      descriptor_(TKSUtilBase::originalStandardOutput()),
      data_(descriptor_, wishes.colour),
      notes_(STDERR_FILENO, wishes.colour) {}

void Output::write(std::string_view text) {
  if (!isBroken_) isBroken_ = !writeAll(descriptor_, text);
}

void Output::print(std::string_view text) {
  if (!wishes_.json) write(text);
}

void Output::line(std::string_view text) { print(std::string(text).append("\n")); }

void Output::set(std::string_view key, TKSValue value) {
  if (wishes_.json) result_.set(key, std::move(value));
}

void Output::text(std::string_view key, std::string_view text) {
  if (wishes_.json) result_.set(key, std::string(result_[key].text()).append(text));
}

void Output::note(std::string_view text) {
  if (!wishes_.quiet) writeNote(text);
}

void Output::detail(int verbosity, std::string_view text) {
  if (wishes_.verbosity >= verbosity) writeNote(text);
}

void Output::warn(std::string_view text) { writeNote(tool_ + ": " + oneLine(text)); }

Exit Output::fail(Exit code, std::string_view message, std::string_view suggestion) {
  return fail(code, toolError(code, std::string(message), suggestion));
}

Exit Output::fail(const TKSError& error, std::string_view doing) { return fail(exitFor(error), error, doing); }

Exit Output::fail(Exit code, const TKSError& error, std::string_view doing) {
  TKSError told = error;
  if (!doing.empty()) told.localizedDescription = std::string(doing).append(": ").append(error.localizedDescription);
  if (error_.isNull()) error_ = errorDocument(told);
  warn(told.localizedDescription);
  if (!told.recoverySuggestion.empty()) detail(1, wrapped(told.recoverySuggestion, "  ", notes_.width()));
  return code;
}

std::string Output::documentFor(Exit code, const TKSValue& error, const TKSDictionary& result) const {
  const TKSDictionary document{{"tool", tool_},       {"version", TKS_PROJECT_VERSION},
                               {"command", command_}, {"exitCode", static_cast<int>(code)},
                               {"error", error},      {"result", result}};
  return json::write(jsonable(document)).value_or("{}") + "\n";
}

Exit Output::finish(Exit code) {
  if (wishes_.json) write(documentFor(code, error_, result_));
  if (isBroken_ && code == Exit::ok) {
    warn("cannot write to standard output");
    return Exit::failed;
  }
  return code;
}

std::string Output::interruptedDocument() const {
  if (!wishes_.json) return {};
  TKSError error = toolError(Exit::interrupted, "interrupted");
  error.reason = TKSErrorReason::cancelled;
  return documentFor(Exit::interrupted, errorDocument(error), {});
}

}  // namespace tks::ctl
