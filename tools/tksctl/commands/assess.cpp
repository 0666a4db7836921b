#include <tksinterface/TKSUtilBase.h>

#include <filesystem>
#include <memory>

#include "codesign/assessment.h"
#include "tools/tksctl/commands/table.h"
#include "tools/tksctl/frame/json_values.h"

namespace tks::ctl {
namespace {

struct VerdictRow {
  int exitCode;
  std::string_view word;
  Exit code;
};
constexpr VerdictRow kVerdicts[] = {
    {assessment::kAccepted, "accepted", Exit::ok},
    {assessment::kRejected, "rejected", Exit::notTrusted},
    {assessment::kNoVerdict, "no verdict", Exit::failed},
    {assessment::kFailure, "failed", Exit::failed},
};

const VerdictRow& rowOf(int exitCode) {
  for (const VerdictRow& row : kVerdicts) {
    if (row.exitCode == exitCode) return row;
  }
  return kVerdicts[3];
}

Exit assessOne(Context& context, const std::string& given, TKSArray& reports) {
  const std::string path = std::filesystem::absolute(given).lexically_normal().string();
  if (!std::filesystem::exists(path)) return context.out.fail(Exit::failed, "there is nothing at " + given);
  const assessment::Verdict verdict = assessment::assess(path, 3);
  const VerdictRow& row = rowOf(verdict.exitCode);
  context.out.print(verdict.text);
  reports.append(TKSDictionary{{"path", path}, {"verdict", row.word}, {"text", verdict.text}});
  if (row.code == Exit::ok) return Exit::ok;
  return context.out.fail(row.code, given + ": " + std::string(row.word),
                          "See what is wrong with the signature: tksctl verify --deep.");
}

}  // namespace

Command assessCommand() {
  return {.name = "assess",
          .summary = "assesses applications as the health check of the library does",
          .description =
              "Says in the words of the platform's assessment whether an application may be executed, and where "
              "it comes from. The library takes a launcher that is rejected for broken, unless it is notarized "
              "and the maker's.",
          .examples = {{"tksctl assess \"Tarvo Kovra Start.app\"", "The verdict with source and origin."}},
          .setUp = [](const CommandLine& line) -> Action {
            auto paths = std::make_shared<std::vector<std::string>>();
            line.option("path", *paths, "Applications").required().typeName("PATH");
            return [paths](Context& context) {
              Exit code = Exit::ok;
              TKSArray reports;
              for (const std::string& path : *paths) {
                const Exit one = assessOne(context, path, reports);
                if (code == Exit::ok) code = one;
              }
              context.out.set("reports", reports);
              return code;
            };
          }};
}

}  // namespace tks::ctl
