#include "tools/tksctl/frame/application.h"

#include <tksinterface/TKSILog.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <exception>
#include <memory>
#include <numeric>
#include <optional>
#include <utility>

#include "BuildValues.h"
#include "tools/tksctl/frame/json_values.h"
#include "tools/tksctl/frame/options.h"
#include "tools/tksctl/frame/pages.h"

namespace tks::ctl {
namespace {

/// What the options that all commands have were set to.
struct Common {
  OutputWishes wishes;
  std::string colour = "auto";
  bool noInput = false;
  OptionWishes options;
};

void addCommonOptions(CLI::App& app, Common& common, bool isSingle) {
  auto* group = app.add_option_group("Common options");
  group->set_help_flag();
  group->add_flag("--json", common.wishes.json, "Print one JSON document, also on failure");
  group->add_option("--color", common.colour, "Colours: auto, always or never")
      ->type_name("WHEN")
      ->check(CLI::IsMember({"auto", "always", "never"}));
  group->add_flag("-q,--quiet", common.wishes.quiet, "Print no notes and draw no bars");
  group->add_flag("-v,--verbose", common.wishes.verbosity, "Show the library's log lines; twice: all of them");
  group->add_flag("--no-input", common.noInput, "Never ask and never read what a person would type");
  if (!isSingle) addLibraryOptions(CommandLine(*group), common.options);
}

/// The command line with the program's options, and what each command does.
struct Parser {
  std::unique_ptr<CLI::App> app;
  std::vector<Action> actions;
  Common common;
};

void setUpHelp(CLI::App& app, const Application& application, const Command* command) {
  app.set_help_flag("-h,--help", "Show this help");
  app.formatter_fn([&application, command](const CLI::App* shown, std::string, CLI::AppFormatMode) {
    return helpText(application, *shown, command);
  });
  for (CLI::App* below : app.get_subcommands({})) {
    if (!below->get_name().empty()) setUpHelp(*below, application, command);
  }
}

void setUp(Parser& parser, const Application& application) {
  parser.app = std::make_unique<CLI::App>(application.summary, application.name);
  CLI::App& app = *parser.app;
  addCommonOptions(app, parser.common, application.isSingle);
  if (application.isSingle) {
    const CommandLine line(app);
    parser.actions.push_back(application.commands.front().setUp(line));
    setUpHelp(app, application, &application.commands.front());
    return;
  }
  app.set_version_flag("--version", std::string(TKS_PROJECT_VERSION), "Show the version");
  app.require_subcommand(0, 1);  // an unknown word is named, not the missing command
  setUpHelp(app, application, nullptr);
  for (const Command& command : application.commands) {
    CLI::App* sub = app.add_subcommand(command.name, command.summary);
    sub->fallthrough();
    const CommandLine line(*sub);
    parser.actions.push_back(command.setUp(line));
    setUpHelp(*sub, application, &command);
    for (CLI::App* below : sub->get_subcommands({})) below->fallthrough();
  }
}

/// The number of the command that was called.
std::size_t chosen(const Parser& parser, const Application& application) {
  if (application.isSingle) return 0;
  const std::string name = parser.app->get_subcommands().front()->get_name();
  const auto found = std::ranges::find(application.commands, name, &Command::name);
  return static_cast<std::size_t>(found - application.commands.begin());
}

/// The name of the command in words that could not be read.
std::string guessedCommand(const Application& application, const std::vector<std::string>& words) {
  if (application.isSingle) return application.commands.front().name;
  const auto isName = [&](const std::string& word) {
    return std::ranges::find(application.commands, word, &Command::name) != application.commands.end();
  };
  const auto found = std::ranges::find_if(words, isName);
  return found == words.end() ? std::string() : *found;
}

/// A line that begins with "-[TKSInterface" is no option: it goes to the end, after "--".
void moveDataToTheEnd(std::vector<std::string>& words) {
  const auto isData = [](const std::string& word) { return word.starts_with("-["); };
  const auto data = std::ranges::find_if(words, isData);
  if (data == words.end() || std::ranges::find(words, "--") != words.end()) return;
  std::string moved = std::move(*data);
  words.erase(data);
  words.insert(words.end(), {"--", std::move(moved)});
}

/// The words, with "help X" turned into "X --help", and data that looks like an option marked.
std::vector<std::string> wordsOf(const Application& application, int count, char** words) {
  std::vector<std::string> list(words + std::min(count, 1), words + count);
  if (application.isSingle || list.empty()) return list;
  if (list.front() == "help") {
    list.erase(list.begin());
    list.emplace_back("--help");
  }
  moveDataToTheEnd(list);
  return list;
}

/// How many characters have to be added, left out or replaced to make one word of another.
std::size_t distance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < from.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < to.size(); ++j) {
      const std::size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = std::exchange(row[j + 1], std::min({replaced, row[j] + 1, row[j + 1] + 1}));
    }
  }
  return row.back();
}

/// The known command that a word may have been meant for.
std::string suggestion(const Application& application, const std::vector<std::string>& words) {
  constexpr std::size_t kSlips = 2;
  if (application.isSingle || words.empty()) return {};
  for (const Command& command : application.commands) {
    if (distance(words.front(), command.name) <= kSlips) return "; did you mean " + command.name + "?";
  }
  return {};
}

Exit reportUsage(const Application& application, const std::vector<std::string>& words, const std::string& problem) {
  OutputWishes wishes;
  wishes.json = std::ranges::find(words, "--json") != words.end();
  const std::string command = guessedCommand(application, words);
  const std::string help =
      application.name + (application.isSingle || command.empty() ? "" : " " + command) + " --help";
  Output out(application.name, command, wishes);
  const std::string meant = command.empty() ? suggestion(application, words) : std::string();
  return out.finish(out.fail(Exit::usage, oneLine(problem) + meant + " (see " + help + ")"));
}

/// Reads the words; a code when that was all.
std::optional<Exit> parse(Parser& parser, const Application& application, const std::vector<std::string>& words) {
  try {
    parser.app->parse(std::vector<std::string>(words.rbegin(), words.rend()));
    if (application.isSingle || !parser.app->get_subcommands().empty()) return std::nullopt;
    return reportUsage(application, words, "no command was given");
  } catch (const CLI::Success& asked) {
    Output out(application.name, guessedCommand(application, words), {});
    const bool isVersion = dynamic_cast<const CLI::CallForVersion*>(&asked) != nullptr;
    if (isVersion) out.line(application.name + " " + asked.what());
    if (!isVersion) out.print(parser.app->help());
    return out.finish(Exit::ok);
  } catch (const CLI::ParseError& error) {
    return reportUsage(application, words, error.what());
  }
}

/// Log lines of the library, masked, from -v on; they may come from any thread.
void showLog(const Output& out) {
  if (out.verbosity() == 0) return;
  TKSILog::sharedInstance().setLogBlock([verbosity = out.verbosity()](std::int32_t level, const std::string& line) {
    if (level < TKSILogLevelInfo && verbosity < 2) return;
    const std::string shown = "  [" + std::to_string(level) + "] " + TKSILog::removeSensitiveInformation(line) + "\n";
    (void)!::write(STDERR_FILENO, shown.data(), shown.size());
  });
}

Exit act(const Action& action, Context& context) {
  try {
    return action(context);
  } catch (const CLI::ParseError& error) {
    return context.out.fail(Exit::usage, error.what());
  } catch (const std::bad_alloc&) {
    return context.out.fail(Exit::failed, "out of memory");
  } catch (const std::exception& exception) {
    return context.out.fail(Exit::failed, exception.what());
  }
}

Exit perform(Parser& parser, const Application& application) {
  constexpr std::pair<std::string_view, ColourWish> kColours[] = {
      {"auto", ColourWish::automatic}, {"always", ColourWish::always}, {"never", ColourWish::never}};
  parser.common.wishes.colour =
      std::ranges::find(kColours, parser.common.colour, &std::pair<std::string_view, ColourWish>::first)->second;
  const std::size_t number = chosen(parser, application);
  Output out(application.name, application.commands[number].name, parser.common.wishes);
  Interrupts interrupts(out.interruptedDocument(), out.dataDescriptor());
  showLog(out);
  if (const std::optional<Exit> refused = setLibraryOptions(parser.common.options, out)) return out.finish(*refused);
  Context context{out, interrupts, parser.common.noInput};
  return out.finish(act(parser.actions[number], context));
}

}  // namespace

int run(const Application& application, int count, char** words) {
  // Output that nobody reads any more is an error to report, and no reason to leave a launcher behind.
  ::signal(SIGPIPE, SIG_IGN);
  try {
    const std::vector<std::string> list = wordsOf(application, count, words);
    Parser parser;
    setUp(parser, application);
    const std::optional<Exit> early = parse(parser, application, list);
    return static_cast<int>(early ? *early : perform(parser, application));
  } catch (const std::exception& exception) {
    const std::string line = application.name + ": " + exception.what() + "\n";
    (void)!::write(STDERR_FILENO, line.data(), line.size());
    return static_cast<int>(Exit::failed);
  }
}

struct Description::Content {
  Parser parser;
};

Description::Description(const Application& application)
    : application_(application), content_(std::make_unique<Content>()) {
  setUp(content_->parser, application);
}

Description::~Description() = default;

const CLI::App& Description::app() const { return *content_->parser.app; }

}  // namespace tks::ctl
