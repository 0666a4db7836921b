#include "tools/tksctl/diagram/diagram.h"

#include <memory>

#include "tools/tksctl/commands/table.h"

namespace tks::ctl {
namespace {

struct DiagramOptions {
  std::string file;
  std::string format = "text";
};

std::vector<std::string> formatNames() {
  std::vector<std::string> names;
  for (const DiagramFormat& format : diagramFormats()) names.emplace_back(format.name);
  return names;
}

Exit draw(Context& context, const DiagramOptions& options) {
  TKSError error;
  const std::optional<Recording> recording = readRecording(options.file, &error);
  if (!recording) return context.out.fail(Exit::failed, error);
  for (const DiagramFormat& format : diagramFormats()) {
    if (format.name != options.format) continue;
    const std::string text = format.draw(*recording);
    context.out.print(text);
    context.out.text("text", text);
  }
  context.out.set("format", options.format);
  context.out.set("events", static_cast<std::int64_t>(recording->events.size()));
  return Exit::ok;
}

}  // namespace

Command diagramCommand() {
  return {.name = "diagram",
          .summary = "draws a recorded conversation as a sequence diagram",
          .description =
              "Host and launcher side by side, time from top to bottom, each message with its size. The form "
              "html is one file that needs no network: it filters by type and unfolds messages.",
          .examples = {{"tksctl diagram talk.jsonl", "In the terminal."},
                       {"tksctl diagram talk.jsonl --format html > talk.html", "For a browser."},
                       {"tksctl diagram talk.jsonl --format mermaid", "For a page or an issue."}},
          .setUp = [](const CommandLine& line) -> Action {
            auto options = std::make_shared<DiagramOptions>();
            line.option("file", options->file, "a recording made by record or by launch --record")
                .required()
                .typeName("FILE");
            line.option("--format", options->format, "text, mermaid, svg or html; text unless told")
                .typeName("FORMAT")
                .oneOf(formatNames());
            return [options](Context& context) { return draw(context, *options); };
          }};
}

}  // namespace tks::ctl
