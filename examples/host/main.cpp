// A host: keeps the launcher current from a backup archive, starts it, asks it to launch a meeting, and shows the
// conversation.
//
//   host [--backup ZIP --version VERSION] [--launcher PATH] [--site ADDRESS] [--hold] [--files] [--verbose]
//
//   --backup ZIP        archive with a launcher, which is installed when it is newer than the installed one
//   --version VERSION   version of the launcher in the archive
//   --launcher PATH     launcher bundle; otherwise the one at the standard path
//   --site ADDRESS      the site of the meeting
//   --hold              launches no meeting: starts the launcher and stays connected until it ends
//   --files             talk over files: the channel follows from the host's bundle identifier, so that the same
//                       program is run from the bundle Ember.app beside it
//   --verbose           show every log line

#include <tksinterface/tksinterface.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

struct Options {
  std::string backup;
  std::string version;
  std::string launcher;
  std::string site = "https://meet.tarvo.example";
  bool hold = false;
  bool files = false;
  bool verbose = false;
};

struct TextOption {
  std::string_view name;
  std::string Options::*value;
};
constexpr TextOption kTexts[] = {{"--backup", &Options::backup},
                                 {"--version", &Options::version},
                                 {"--launcher", &Options::launcher},
                                 {"--site", &Options::site}};

struct FlagOption {
  std::string_view name;
  bool Options::*flag;
};
constexpr FlagOption kFlags[] = {
    {"--hold", &Options::hold}, {"--files", &Options::files}, {"--verbose", &Options::verbose}};

/// The options; nothing, with the reason told, when one is unknown or has no value.
std::optional<Options> read(const std::vector<std::string>& words) {
  Options options;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const auto flag = std::ranges::find(kFlags, words[i], &FlagOption::name);
    if (flag != std::end(kFlags)) {
      options.*(flag->flag) = true;
      continue;
    }
    const auto text = std::ranges::find(kTexts, words[i], &TextOption::name);
    if (text == std::end(kTexts) || i + 1 == words.size()) {
      std::cerr << "host: " << words[i] << (text == std::end(kTexts) ? " is no option\n" : " needs a value\n");
      return std::nullopt;
    }
    options.*(text->value) = words[++i];
  }
  return options;
}

/// Beginnings of the lines that tell the story, beside the conversation and what went wrong.
constexpr std::string_view kTelling[] = {
    "Switch TKS app status", "Default TKS", "Backup version", "End process",
    "Install TKS done",      "App quited",  "Launch again",
};

bool isTelling(const std::string& line) {
  for (const std::string_view beginning : kTelling) {
    if (line.starts_with(beginning)) return true;
  }
  return false;
}

/// Lines may come from any thread. What is received is logged as it is; it is masked here before anybody sees it.
void show(std::int32_t level, const std::string& line, bool verbose) {
  constexpr std::string_view kSent = "Send message string: ";
  constexpr std::string_view kReceived = "Receive message string: ";
  const std::string masked = TKSILog::removeSensitiveInformation(line);
  std::string shown;
  if (masked.starts_with(kSent)) shown = "host     > " + masked.substr(kSent.size());
  if (masked.starts_with(kReceived)) shown = "launcher > " + masked.substr(kReceived.size());
  if (shown.empty() && level == TKSILogLevelError) shown = "error      " + masked;
  if (shown.empty() && (verbose || isTelling(masked))) shown = "           " + masked;
  if (!shown.empty()) std::cerr << shown + "\n";
}

/// Goes on with the host's work, a little at a time, as long as something holds.
void runWhile(const std::function<bool()>& holds) {
  while (holds()) {
    TKSMainLoop::drain();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

/// Launches a meeting, with all that has to happen before: the launcher is refreshed and started.
int launchMeeting(TKSInterface& tks, const Options& options) {
  int exitCode = 1;
  const TKSDictionary parameters = {{tks_param_key_gpcsitedomain, options.site},
                                    {tks_param_key_meetingkey, "123 456 789"},
                                    {"attendee", "ann.example@tarvo.example"}};
  tks.launchMeetingWithParam(
      parameters,
      [&] {
        std::cerr << "The meeting was launched.\n";
        exitCode = 0;
        TKSMainLoop::stop();
      },
      [](const TKSError& error) {
        std::cerr << "The meeting was not launched: " << error.description() << "\n";
        TKSMainLoop::stop();
      });
  TKSMainLoop::run();
  // The two ends say goodbye after the launch. A host that runs on has nothing to do for it; this one waits.
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  runWhile([&] { return tks.isTKSAppProcessing() && std::chrono::steady_clock::now() < end; });
  return exitCode;
}

/// Starts the launcher and stays connected until it ends.
int holdLauncher(TKSInterface& tks) {
  int exitCode = 1;
  tks.start(
      [&] {
        std::cerr << "The launcher is connected.\n";
        exitCode = 0;
        TKSMainLoop::stop();
      },
      [](const TKSError& error) {
        std::cerr << "The launcher was not started: " << error.description() << "\n";
        TKSMainLoop::stop();
      });
  TKSMainLoop::run();
  runWhile([&] { return tks.isTKSAppSuspending(); });
  return exitCode;
}

}  // namespace

int main(int count, char** arguments) {
  std::vector<std::string> words(arguments + 1, arguments + count);
  const std::optional<Options> given = read(words);
  if (!given) return 2;
  const Options& options = *given;
  if (options.files) {
    std::erase(words, "--files");
    const auto here = std::filesystem::canonical(arguments[0]).parent_path();
    std::string ember = here / "Ember.app/Contents/MacOS/Ember";
    std::vector<char*> list{ember.data()};
    for (std::string& word : words) list.push_back(word.data());
    list.push_back(nullptr);
    ::execv(ember.c_str(), list.data());
    std::cerr << "cannot run " << ember << "\n";
    return 1;
  }

  TKSInterface& tks = TKSInterface::sharedInstance();
  tks.setLogBlock(
      [verbose = options.verbose](std::int32_t level, const std::string& line) { show(level, line, verbose); });
  if (!options.launcher.empty()) tks.setTKSAppPath(std::filesystem::absolute(options.launcher).string());
  if (!options.backup.empty()) {
    tks.setBackupTKSZipPath(std::filesystem::absolute(options.backup).string(), options.version);
  }
  return options.hold ? holdLauncher(tks) : launchMeeting(tks, options);
}
