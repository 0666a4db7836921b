#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include <cstdlib>
#include <memory>
#include <optional>

#include "tools/tksctl/commands/table.h"
#include "tools/tksctl/parts/delta_packages.h"
#include "tools/tksctl/parts/first_failure.h"
#include "tools/tksctl/parts/scratch.h"

namespace tks::ctl {
namespace {

constexpr std::string_view kURLErrors = "NSURLErrorDomain";
constexpr std::int64_t kRequestTimedOut = -1001;

struct Answer {
  std::optional<TKSDictionary> packages;
  TKSError error;
};

Exit judge(Output& out, const Answer& answer, const FirstFailure& failure) {
  if (answer.packages) {
    showPackages(out, *answer.packages);
    return Exit::ok;
  }
  const TKSError& error = answer.error;
  if (error == TKSError()) {
    out.set("packages", TKSArray());
    out.note("the list names no delta package");
    return Exit::nothingToDo;
  }
  if (error.domain == kURLErrors && error.code == kRequestTimedOut) return out.fail(Exit::timedOut, error);
  // What went wrong with a list that arrived stands in the log; the error only says that something did.
  if (error.domain != TKSUtilErrorDomain) return out.fail(error);
  TKSError told = error;
  if (const std::string line = failure.line(); !line.empty()) told.localizedDescription = line;
  return out.fail(told);
}

Exit list(Context& context, const std::string& url) {
  if (url.empty()) return context.out.fail(Exit::usage, "name an address");
  TKSError error;
  Scratch scratch(&error);
  if (scratch.path().empty()) return context.out.fail(error);
  // Nobody can call a download off. What it has written is below this folder, so that a signal can remove it.
  ::setenv("TMPDIR", scratch.path().c_str(), 1);
  const auto answer = std::make_shared<Answer>();
  const FirstFailure failure;
  const auto work = [answer, url] { answer->packages = TKSUtilBase::avaliableDeltaUpdates(url, &answer->error); };
  if (context.interrupts.runAside(work) != Interrupts::End::done) {
    scratch.remove();
    context.interrupts.endProgram();
  }
  return judge(context.out, *answer, failure);
}

}  // namespace

Command deltaListCommand() {
  return {.name = "delta-list",
          .summary = "shows the delta packages that a client sees at an address",
          .description =
              "Downloads deltalist.json.delta from below the address, unpacks it, checks who signed the list, and "
              "shows what a client gets: for each package the version that it stands for, its size, its hash, and "
              "where it is. Ends with 3 when the list names none.",
          .examples = {{"tksctl delta-list https://updates.example/mac", "What clients of this server see."},
                       {"tksctl delta-list file:///srv/updates", "The same of a folder, before it is uploaded."}},
          .setUp = [](const CommandLine& line) -> Action {
            auto url = std::make_shared<std::string>();
            line.option("url", *url, "The address of the folder: http, https or file").required().typeName("URL");
            return [url](Context& context) { return list(context, *url); };
          }};
}

}  // namespace tks::ctl
