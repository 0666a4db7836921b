#include "tools/tksctl/frame/pages.h"

#include "tools/tksctl/commands/table.h"

namespace tks::ctl {

Command manualCommand() {
  return {.name = "manual",
          .summary = "writes the man page",
          .description =
              "The man page is made of what --help shows, in the language of troff. The installation puts it "
              "where man finds it.",
          .examples = {{"tksctl manual | man -l -", "Shows the man page of a tool that is not installed."}},
          .setUp = [](const CommandLine&) -> Action {
            return [](Context& context) {
              const std::string page = manual(tksctl());
              context.out.print(page);
              context.out.text("text", page);
              return Exit::ok;
            };
          }};
}

}  // namespace tks::ctl
