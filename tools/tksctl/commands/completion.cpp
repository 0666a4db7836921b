#include <CLI/CLI.hpp>
#include <memory>

#include "tools/tksctl/commands/table.h"
#include "tools/tksctl/frame/pages.h"

// Completions are made of the same table as --help: commands, subcommands, options. What is no option completes as a
// file.

namespace tks::ctl {
namespace {

/// A command, or a subcommand of one, by the words that lead to it.
struct Place {
  std::string path;
  const CLI::App* app;
};

void appendPlaces(std::vector<Place>& places, const CLI::App& app, const std::string& path) {
  for (const CLI::App* below : subcommandsOf(app)) {
    const std::string name = path.empty() ? below->get_name() : path + " " + below->get_name();
    places.push_back({name, below});
    appendPlaces(places, *below, name);
  }
}

/// All options that may stand at a place: its own and those of all commands.
std::vector<const CLI::Option*> optionsAt(const CLI::App& root, const CLI::App& app) {
  std::vector<const CLI::Option*> options;
  for (const CLI::App* from : {&app, &root}) {
    for (const CLI::Option* option : optionsOf(*from)) {
      if (!option->get_positional() && option->get_name() != "--version") options.push_back(option);
    }
    if (&app == &root) break;
  }
  return options;
}

/// In single quotes, for any of the three shells.
std::string inQuotes(std::string_view text) {
  std::string made = "'";
  for (const char byte : text) made.append(byte == '\'' ? "'\\''" : std::string(1, byte));
  return made + "'";
}

std::string wordsAt(const CLI::App& root, const CLI::App& app) {
  std::string words;
  for (const CLI::App* below : subcommandsOf(app)) words.append(below->get_name()).append(" ");
  for (const CLI::Option* option : optionsAt(root, app)) {
    for (const std::string& name : option->get_lnames()) words.append("--").append(name).append(" ");
  }
  if (!words.empty()) words.pop_back();
  return words;
}

/// Finds the words that lead to the place, the same way in bash and zsh.
std::string placeCases(const CLI::App& root, std::string_view indent, std::string_view variable) {
  std::vector<Place> places;
  appendPlaces(places, root, "");
  std::string text;
  for (const Place& place : places) {
    text.append(indent).append(inQuotes(place.path)).append(") ").append(variable).append("=");
    text.append(inQuotes(wordsAt(root, *place.app)));
    text.append(" ;;\n");
  }
  text.append(indent).append("*) ").append(variable).append("=").append(inQuotes(wordsAt(root, root)));
  return text.append(" ;;\n");
}

std::string commandPattern(const CLI::App& root) {
  std::vector<Place> places;
  appendPlaces(places, root, "");
  std::string pattern;
  for (const Place& place : places) pattern.append(pattern.empty() ? "" : "|").append(inQuotes(place.path));
  return pattern;
}

std::string bashScript(const CLI::App& root) {
  return "# Completion of tksctl for bash.\n"
         "_tksctl() {\n"
         "  local current=${COMP_WORDS[COMP_CWORD]} place= word words\n"
         "  for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
         "    case \"${place:+$place }$word\" in\n"
         "      " +
         commandPattern(root) +
         ") place=\"${place:+$place }$word\" ;;\n"
         "    esac\n"
         "  done\n"
         "  case \"$place\" in\n" +
         placeCases(root, "    ", "words") +
         "  esac\n"
         "  COMPREPLY=($(compgen -W \"$words\" -- \"$current\"))\n"
         "}\n"
         "complete -o bashdefault -o default -F _tksctl tksctl\n";
}

std::string zshScript(const CLI::App& root) {
  return "#compdef tksctl\n"
         "# Completion of tksctl for zsh.\n"
         "_tksctl() {\n"
         "  local place= word here\n"
         "  for word in \"${(@)words[2,CURRENT-1]}\"; do\n"
         "    case \"${place:+$place }$word\" in\n"
         "      (" +
         commandPattern(root) +
         ") place=\"${place:+$place }$word\" ;;\n"
         "    esac\n"
         "  done\n"
         "  case \"$place\" in\n" +
         placeCases(root, "    (", "here") +
         "  esac\n"
         "  compadd -- ${=here}\n"
         "  _files\n"
         "}\n"
         "if [ \"$funcstack[1]\" = _tksctl ]; then _tksctl \"$@\"; else compdef _tksctl tksctl; fi\n";
}

void appendFish(std::string& text, const CLI::App& app, const std::string& condition) {
  for (const CLI::App* below : subcommandsOf(app)) {
    text.append("complete -c tksctl -n ").append(inQuotes(condition)).append(" -a ").append(below->get_name());
    text.append(" -d ").append(inQuotes(below->get_description())).append("\n");
  }
  for (const CLI::Option* option : optionsOf(app)) {
    if (option->get_positional()) continue;
    text.append("complete -c tksctl");
    if (!condition.starts_with("__fish_use")) text.append(" -n ").append(inQuotes(condition));
    for (const std::string& name : option->get_snames()) text.append(" -s ").append(name);
    for (const std::string& name : option->get_lnames()) text.append(" -l ").append(name);
    if (option->get_items_expected_max() > 0) text.append(" -r");
    text.append(" -d ").append(inQuotes(option->get_description())).append("\n");
  }
}

std::string fishScript(const CLI::App& root) {
  std::string text = "# Completion of tksctl for fish.\n";
  appendFish(text, root, "__fish_use_subcommand");
  std::vector<Place> places;
  appendPlaces(places, root, "");
  for (const Place& place : places) {
    std::string condition;
    for (std::string_view rest = place.path; !rest.empty();) {
      const std::string_view word = rest.substr(0, rest.find(' '));
      rest.remove_prefix(std::min(word.size() + 1, rest.size()));
      condition.append(condition.empty() ? "" : "; and ").append("__fish_seen_subcommand_from ").append(word);
    }
    appendFish(text, *place.app, condition);
  }
  return text;
}

struct Shell {
  std::string_view name;
  std::string (*script)(const CLI::App&);
};
constexpr Shell kShells[] = {{"bash", bashScript}, {"zsh", zshScript}, {"fish", fishScript}};

Exit writeScript(Context& context, const std::string& name) {
  const Description description(tksctl());
  for (const Shell& shell : kShells) {
    if (shell.name != name) continue;
    const std::string script = shell.script(description.app());
    context.out.print(script);
    context.out.text("text", script);
  }
  return Exit::ok;
}

}  // namespace

Command completionCommand() {
  return {
      .name = "completion",
      .summary = "writes the completion script of a shell",
      .description =
          "For bash, zsh and fish. The installation puts the scripts where the shells of the system look "
          "for them.",
      .examples = {{"source <(tksctl completion bash)", "Completion in this bash."},
                   {"tksctl completion fish > ~/.config/fish/completions/tksctl.fish", "For fish, for good."}},
      .setUp = [](const CommandLine& line) -> Action {
        auto shell = std::make_shared<std::string>();
        line.option("shell", *shell, "bash, zsh or fish").required().typeName("SHELL").oneOf({"bash", "zsh", "fish"});
        return [shell](Context& context) { return writeScript(context, *shell); };
      }};
}

}  // namespace tks::ctl
