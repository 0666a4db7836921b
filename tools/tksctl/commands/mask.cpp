#include <tksinterface/MaskSensitiveInformation.h>

#include <cstdio>

#include "tools/tksctl/commands/table.h"

namespace tks::ctl {
namespace {

/// Masks what comes on standard input, line by line, so that it can stand at the end of a running log.
Exit maskInput(Context& context) {
  char* line = nullptr;
  std::size_t room = 0;
  for (ssize_t length = 0; (length = ::getline(&line, &room, stdin)) >= 0;) {
    std::string_view text(line, static_cast<std::size_t>(length));
    const bool ends = text.ends_with('\n');
    if (ends) text.remove_suffix(1);
    const std::string masked = MaskSensitiveInformation::removeSensitiveInformation(text) + (ends ? "\n" : "");
    context.out.print(masked);
    context.out.text("text", masked);
  }
  std::free(line);
  if (std::ferror(stdin) == 0) return Exit::ok;
  return context.out.fail(Exit::failed, "cannot read standard input");
}

}  // namespace

Command maskCommand() {
  return {.name = "mask",
          .summary = "masks personal data in a text (a filter)",
          .description =
              "Reads standard input and writes it with user names, e-mail addresses, meeting rooms and secrets "
              "in addresses masked, by the rules of the library's log. Works line by line.",
          .examples = {{"tksctl mask < host.log > for-support.log", "A log that may be passed on."}},
          .setUp = [](const CommandLine&) -> Action { return maskInput; }};
}

}  // namespace tks::ctl
