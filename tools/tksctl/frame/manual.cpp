#include <CLI/CLI.hpp>
#include <algorithm>

#include "BuildValues.h"
#include "tools/tksctl/frame/application.h"
#include "tools/tksctl/frame/pages.h"

namespace tks::ctl {
namespace {

/// Text for troff: backslashes, dashes and a full stop or quote at the beginning of a line mean nothing special.
std::string escaped(std::string_view text) {
  std::string made;
  for (const char byte : text) {
    if ((made.empty() || made.back() == '\n') && (byte == '.' || byte == '\'')) made.append("\\&");
    if (byte == '\\') {
      made.append("\\e");
    } else {
      made.append(byte == '-' ? "\\-" : std::string(1, byte));
    }
  }
  return made;
}

/// Paragraphs parted by empty lines.
std::string paragraphs(std::string_view text) {
  std::string made = escaped(text);
  for (std::size_t at = made.find("\n\n"); at != std::string::npos; at = made.find("\n\n", at))
    made.replace(at, 2, "\n.PP\n");
  return made + "\n";
}

void appendSections(std::string& text, const Page& page, std::string_view heading) {
  for (const Section& section : page.sections) {
    if (section.title == "Common options" || section.title == "Exit codes") continue;
    text.append(heading).append(escaped(section.title)).append("\n");
    for (const Entry& entry : section.entries) {
      text.append(".TP\n.B ").append(escaped(entry.names)).append("\n").append(escaped(entry.meaning)).append("\n");
    }
  }
}

void appendEntries(std::string& text, const Page& page, std::string_view title) {
  const auto section = std::ranges::find(page.sections, title, &Section::title);
  if (section == page.sections.end()) return;
  std::string heading(title);
  std::ranges::transform(heading, heading.begin(), [](char letter) {
    return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 32) : letter;
  });
  text.append(".SH ").append(heading).append("\n");
  for (const Entry& entry : section->entries) {
    text.append(".TP\n.B ").append(escaped(entry.names)).append("\n").append(escaped(entry.meaning)).append("\n");
  }
}

/// A command, then its subcommands.
void appendCommand(std::string& text, const Application& application, const CLI::App& app, const Command& command,
                   bool isBelow) {
  const Page page = pageOf(application, app, &command);
  text.append(".SS ").append(escaped(page.title)).append("\n").append(escaped(page.summary)).append(".\n");
  for (const std::string& call : page.calls) text.append(".PP\n.B ").append(escaped(call)).append("\n");
  if (!isBelow) text.append(".PP\n").append(paragraphs(page.description));
  appendSections(text, page, ".PP\n");
  if (!isBelow) {
    for (const Example& example : page.examples) {
      text.append(".PP\n.RS\n.nf\n.B ").append(escaped(example.call)).append("\n.fi\n");
      text.append(escaped(example.meaning)).append("\n.RE\n");
    }
  }
  for (const CLI::App* below : subcommandsOf(app)) appendCommand(text, application, *below, command, true);
}

}  // namespace

std::string manual(const Application& application) {
  const Description description(application);
  const Page page = pageOf(application, description.app(), nullptr);
  std::string text = ".TH TKSCTL 1 \"\" \"tksinterface " TKS_PROJECT_VERSION "\" \"User Commands\"\n.SH NAME\n";
  text.append(escaped(application.name)).append(" \\- ").append(escaped(application.summary)).append("\n");
  text.append(".SH SYNOPSIS\n.B ").append(escaped(page.calls.front())).append("\n");
  text.append(".SH DESCRIPTION\n").append(paragraphs(application.description)).append(".SH COMMANDS\n");
  for (const CLI::App* app : subcommandsOf(description.app())) {
    const auto command = std::ranges::find(application.commands, app->get_name(), &Command::name);
    appendCommand(text, application, *app, *command, false);
  }
  appendEntries(text, page, "Common options");
  appendEntries(text, page, "Exit codes");
  return text;
}

}  // namespace tks::ctl
