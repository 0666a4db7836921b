#include "BuildValues.h"
#include "tools/tksctl/commands/table.h"

namespace tks::ctl {

Command versionCommand() {
  return {
      .name = "version",
      .summary = "shows the version and how the library was built",
      .description =
          "What counts for trust is decided when the library is built: the maker's team, whether a lab "
          "device may skip the checks, and whether the maker's chain must lead to a pinned root.",
      .examples = {{"tksctl version", "The version and the choices, one a line."},
                   {"tksctl version --json", "The same for programs."}},
      .setUp = [](const CommandLine&) -> Action {
        return [](Context& context) {
          Output& out = context.out;
          out.line("tksinterface " TKS_PROJECT_VERSION);
          out.line("team:                " TKS_TEAM_ID);
          out.line(std::string("test mode:           ") + (TKS_ALLOW_TEST_MODE ? "allowed on lab devices" : "never"));
          out.line(std::string("strict maker check:  ") + (TKS_STRICT_MAKER_CHECK ? "on" : "off"));
          out.line(std::string("pinned root:         ") + (*TKS_PINNED_ROOT_SHA256 ? TKS_PINNED_ROOT_SHA256 : "none"));
          out.set("library", TKS_PROJECT_VERSION);
          out.set("team", TKS_TEAM_ID);
          out.set("testModeAllowed", TKS_ALLOW_TEST_MODE != 0);
          out.set("strictMakerCheck", TKS_STRICT_MAKER_CHECK != 0);
          out.set("pinnedRoot", *TKS_PINNED_ROOT_SHA256 ? TKSValue(TKS_PINNED_ROOT_SHA256) : TKSValue(TKSNull()));
          return Exit::ok;
        };
      }};
}

}  // namespace tks::ctl
