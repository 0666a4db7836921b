#include "tools/tksctl/commands/table.h"

#include "tools/tksctl/commands/sign.h"
#include "tools/tksctl/commands/support_bundle.h"

namespace tks::ctl {

const Application& tksctl() {
  static const Application application{
      .name = "tksctl",
      .summary = "finds out why a meeting does not start, and does by hand what the library does",
      .description =
          "Answers in one command what those ask who support users, build launchers, run CI or debug a host. It works "
          "with the library's own parts: what it says of a signature, an archive or a launcher is what a host would "
          "meet.\n\n"
          "Data goes to standard output, everything else to standard error. With --json standard output gets one JSON "
          "document and nothing else, also when the command fails; docs/tksctl.schema.json describes it. Bars and "
          "colours are for terminals only; NO_COLOR, TERM=dumb and --color are heeded. No command ever changes what "
          "the system trusts.",
      // clang-format off
      .commands = {
          doctorCommand(),
          statusCommand(),
          launchCommand(),
          talkCommand(),
          installCommand(),
          verifyCommand(),
          signCommand(),
          assessCommand(),
          packCommand(),
          publishCommand(),
          deltaListCommand(),
          explainCommand(),
          plistCommand(),
          prefsCommand(),
          provenanceCommand(),
          maskCommand(),
          manifestCommand(),
          versionCommand(),
          recordCommand(),
          diagramCommand(),
          replayCommand(),
          supportBundleCommand(),
          fakeLauncherCommand(),
          fakeHostCommand(),
          completionCommand(),
          manualCommand(),
      }};
  // clang-format on
  return application;
}

}  // namespace tks::ctl
