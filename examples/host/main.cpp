// A host: starts a launcher, asks it to launch a meeting, and shows the conversation.
//
//   host [--launcher PATH] [--site ADDRESS] [--files] [--verbose]
//
//   --launcher PATH   launcher bundle; otherwise the one that is installed
//   --site ADDRESS    the site of the meeting
//   --files           talk over files: the channel follows from the host's bundle identifier, so that the same
//                     program is run from the bundle Ember.app beside it
//   --verbose         show every log line

#include <tksinterface/tksinterface.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Options {
  std::string launcher;
  std::string site = "https://meet.tarvo.example";
  bool files = false;
  bool verbose = false;
};

Options read(const std::vector<std::string>& words) {
  Options options;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const auto value = [&] { return i + 1 < words.size() ? words[++i] : std::string(); };
    if (words[i] == "--launcher") options.launcher = value();
    if (words[i] == "--site") options.site = value();
    options.files |= words[i] == "--files";
    options.verbose |= words[i] == "--verbose";
  }
  return options;
}

/// Lines may come from any thread. What is received is logged as it is; it is masked here before anybody sees it.
void show(const std::string& line, bool verbose) {
  constexpr std::string_view kSent = "Send message string: ";
  constexpr std::string_view kReceived = "Receive message string: ";
  const std::string masked = TKSILog::removeSensitiveInformation(line);
  std::string shown;
  if (masked.starts_with(kSent)) shown = "host     > " + masked.substr(kSent.size());
  if (masked.starts_with(kReceived)) shown = "launcher > " + masked.substr(kReceived.size());
  if (shown.empty() && (verbose || masked.starts_with("Switch TKS app status"))) shown = "           " + masked;
  if (!shown.empty()) std::cerr << shown + "\n";
}

}  // namespace

int main(int count, char** arguments) {
  std::vector<std::string> words(arguments + 1, arguments + count);
  const Options options = read(words);
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
  tks.setLogBlock([verbose = options.verbose](std::int32_t, const std::string& line) { show(line, verbose); });
  if (!options.launcher.empty()) tks.setTKSAppPath(std::filesystem::absolute(options.launcher).string());

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
  // The two ends say goodbye behind the launch. A host that runs on has nothing to do for it; this one waits.
  for (int i = 0; i < 2000 && tks.isTKSAppProcessing(); ++i) {
    TKSMainLoop::drain();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return exitCode;
}
