#include "tools/tksctl/frame/pages.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace tks::ctl {
namespace {

/// "-o,--output FILE", "PATH..."
std::string namesOf(const CLI::Option& option) {
  std::string type = option.get_type_name();
  type = type.substr(0, type.find(':'));
  if (option.get_positional()) return type + (option.get_expected_max() > 1 ? "..." : "");
  std::string names;
  for (const std::string& name : option.get_snames()) names.append(names.empty() ? "-" : ", -").append(name);
  for (const std::string& name : option.get_lnames()) names.append(names.empty() ? "--" : ", --").append(name);
  return option.get_items_expected_max() > 0 ? names + " " + type : names;
}

std::string meaningOf(const CLI::Option& option) {
  const std::string given = option.get_default_str();
  return option.get_description() + (given.empty() ? "" : " [" + given + "]");
}

void appendOptions(std::vector<const CLI::Option*>& list, const CLI::App& app) {
  for (const CLI::Option* option : app.get_options()) {
    if (!option->get_group().empty()) list.push_back(option);
  }
  for (const CLI::App* group : app.get_subcommands({})) {
    if (group->get_name().empty()) appendOptions(list, *group);
  }
}

/// "tksctl plist get", from the names of the apps.
std::string titleOf(const Application& application, const CLI::App& app) {
  std::string title;
  for (const CLI::App* at = &app; at != nullptr && at->get_parent() != nullptr; at = at->get_parent()) {
    title.insert(0, " " + at->get_name());
  }
  return application.name + title;
}

std::string callOf(const std::string& title, const CLI::App& app) {
  std::string call = title + " [OPTIONS]";
  for (const CLI::Option* option : optionsOf(app)) {
    if (!option->get_positional()) continue;
    const std::string name = namesOf(*option);
    call.append(option->get_required() ? " " + name : " [" + name + "]");
  }
  return subcommandsOf(app).empty() ? call : call + " COMMAND";
}

bool isCommon(const CLI::App& app, const CLI::Option& option) {
  const CLI::App* root = &app;
  while (root->get_parent() != nullptr) root = root->get_parent();
  if (option.check_name("--help")) return true;
  for (const CLI::App* group : root->get_subcommands({})) {
    if (group->get_name().empty() && group->get_group() == "Common options") {
      const std::vector<const CLI::Option*> common = group->get_options();
      if (std::ranges::find(common, &option) != common.end()) return true;
    }
  }
  return false;
}

Section optionSection(const CLI::App& app, const std::string& title, bool positional, bool common) {
  Section section{title, {}};
  const CLI::App* source = &app;
  while (common && source->get_parent() != nullptr) source = source->get_parent();
  for (const CLI::Option* option : optionsOf(*source)) {
    if (isCommon(app, *option) != common || option->get_positional() != positional) continue;
    section.entries.push_back({namesOf(*option), meaningOf(*option)});
  }
  return section;
}

Section exitSection() {
  Section section{"Exit codes", {}};
  for (const ExitRow& row : exitRows()) {
    section.entries.push_back({std::to_string(static_cast<int>(row.code)), std::string(row.meaning)});
  }
  return section;
}

}  // namespace

std::vector<const CLI::Option*> optionsOf(const CLI::App& app) {
  std::vector<const CLI::Option*> list;
  appendOptions(list, app);
  return list;
}

std::vector<const CLI::App*> subcommandsOf(const CLI::App& app) {
  std::vector<const CLI::App*> list;
  for (const CLI::App* below : app.get_subcommands({})) {
    if (!below->get_name().empty() && !below->get_group().empty()) list.push_back(below);
  }
  return list;
}

Page pageOf(const Application& application, const CLI::App& app, const Command* command) {
  Page page;
  page.title = titleOf(application, app);
  page.summary = app.get_description();
  page.calls = {callOf(page.title, app)};
  page.description = command == nullptr ? application.description : command->description;
  Section below{"Commands", {}};
  for (const CLI::App* sub : subcommandsOf(app)) below.entries.push_back({sub->get_name(), sub->get_description()});
  page.sections = {below, optionSection(app, "Arguments", true, false), optionSection(app, "Options", false, false),
                   optionSection(app, "Common options", false, true), exitSection()};
  std::erase_if(page.sections, [](const Section& section) { return section.entries.empty(); });
  if (command != nullptr) page.examples = command->examples;
  return page;
}

std::string helpText(const Application& application, const CLI::App& app, const Command* command) {
  constexpr std::size_t kWidest = 100;
  constexpr std::size_t kNames = 26;
  const Page page = pageOf(application, app, command);
  const std::size_t width = std::min(kWidest, Terminal(STDOUT_FILENO, ColourWish::never).width());
  std::string text = wrapped(page.title + ": " + page.summary, "", width) + "\n";
  for (const std::string& call : page.calls) text.append("  ").append(call).append("\n");
  if (!page.description.empty()) text.append("\n").append(wrapped(page.description, "", width));
  for (const Section& section : page.sections) {
    text.append("\n").append(section.title).append(":\n");
    for (const Entry& entry : section.entries) {
      const bool fits = entry.names.size() + 2 < kNames;
      text.append("  ").append(entry.names);
      text.append(fits ? std::string(kNames - 2 - entry.names.size(), ' ') : "\n" + std::string(kNames, ' '));
      text.append(wrapped(entry.meaning, std::string(kNames, ' '), width)
                      .substr(std::min<std::size_t>(kNames, entry.meaning.empty() ? 0 : kNames)));
      if (entry.meaning.empty()) text.append("\n");
    }
  }
  if (!page.examples.empty()) text.append("\nExamples:\n");
  for (const Example& example : page.examples) {
    text.append("  ").append(example.call).append("\n").append(wrapped(example.meaning, "      ", width));
  }
  return text;
}

}  // namespace tks::ctl
