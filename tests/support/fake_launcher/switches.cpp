#include "tests/support/fake_launcher/switches.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>

#include "tests/support/ProcessTable.h"

namespace fake_launcher {
namespace {

struct SwitchInfo {
  const char* name;
  bool hasValue;
  const char* meaning;
};

// In the order of a conversation.
constexpr SwitchInfo kSwitches[] = {
    {"--lifetime", true, "end after this time whatever happens (default 120s)"},
    {"--dump-arguments", true, "write the arguments, each closed by a NUL byte, to a file"},
    {"--dump-descriptors", true, "write the open descriptors, lines of NUMBER TARGET, to a file"},
    {"--dump-environment", true, "write the environment, each entry closed by a NUL byte, to a file"},
    {"--dump-signals", true, "write the standard signals that are blocked or ignored, lines of NUMBER WHAT, to a file"},
    {"--received", true, "append each text that is received, a line each, to a file"},
    {"--fork-holder", false, "leave a child of its own that keeps all descriptors open"},
    {"--exit", true, "exit at once with this code"},
    {"--abort", false, "abort at once"},
    {"--signal", true, "end at once by this signal"},
    {"--stderr", true, "write so many bytes to standard error before anything else"},
    {"--close-stderr", false, "close standard error"},
    {"--wont-die", false, "ignore the end of input and all signals that can be ignored"},
    {"--no-read", true, "wait so long before the first read"},
    {"--noise", true, "print this text into the channel before the first answer"},
    {"--mute", false, "never answer"},
    {"--mute-after", true, "do not answer any more after this type was received or sent"},
    {"--late", true, "wait so long before each answer"},
    {"--twice", false, "send each answer twice"},
    {"--split", true, "write in pieces of so many bytes"},
    {"--pause", true, "wait so long after each piece"},
    {"--die-after-bytes", true, "exit once so many bytes were written"},
    {"--exit-before", true, "exit instead of sending this type"},
    {"--exit-after", true, "exit after sending this type"},
    {"--burst", true, "send so many further frames (client_status) in one write with the hello_ack"},
    {"--flood", true, "send so many further frames (client_status) after the hello_ack"},
    {"--header", true, "answer hello by a header that announces so many bytes"},
    {"--fill", true, "follow that header with so many bytes"},
    {"--stall-after", true, "send the header and so many bytes of the first answer, then nothing more"},
    {"--payload", true, "answer hello by a frame with the content of this file"},
    {"--error-code", true, "answer launch_meeting by an error with this code"},
    {"--error-text", true, "answer launch_meeting by an error with this text"},
    {"--update", false, "answer launch_meeting by host_notify"},
    {"--update-once", false, "the same, but only the first process started from this folder does it"},
    {"--always-updated", false, "send host_notify right after each hello_ack"},
    {"--linger", true, "live on for so long after disconnect_ack"},
    {"--stay", false, "live on after disconnect_ack until the host is gone"},
    {"--script", true,
     "follow a script instead of all rules: expect TYPE, send JSON, raw HEX, tell FILE, sleep TIME, exit CODE"},
};

std::string ownFolder() {
  const std::string path = tks::test::executableOf(::getpid());
  return path.substr(0, path.rfind('/') + 1);
}

}  // namespace

Switches switches;

void quit(int code) { ::_exit(code); }

void misuse(const std::string& problem) {
  std::fprintf(stderr, "fake launcher: %s\n", problem.c_str());
  for (const SwitchInfo& info : kSwitches) std::fprintf(stderr, "  %-20s %s\n", info.name, info.meaning);
  quit(64);
}

void sleepFor(double seconds) {
  timespec left{static_cast<time_t>(seconds), 0};
  left.tv_nsec = static_cast<long>((seconds - static_cast<double>(left.tv_sec)) * 1e9);
  while (::nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

double seconds(const std::string& text) {
  char* unit = nullptr;
  const double number = std::strtod(text.c_str(), &unit);
  return std::string_view(unit) == "ms" ? number / 1000 : number;
}

std::uint64_t bytes(const std::string& text) {
  char* unit = nullptr;
  const double number = std::strtod(text.c_str(), &unit);
  const double factor = *unit == 'K' ? 1024.0 : *unit == 'M' ? 1024.0 * 1024.0 : 1.0;
  return static_cast<std::uint64_t>(number * factor);
}

void Switches::add(const std::vector<std::string>& words) {
  for (std::size_t i = 0; i < words.size(); ++i) {
    const auto* info = std::find_if(std::begin(kSwitches), std::end(kSwitches),
                                    [&](const SwitchInfo& one) { return words[i] == one.name; });
    if (info == std::end(kSwitches)) misuse("unknown switch " + words[i]);
    if (info->hasValue && i + 1 == words.size()) misuse("no value for " + words[i]);
    values_[info->name] = info->hasValue ? words[++i] : "1";
  }
}

std::string resolved(const std::string& path) { return path.starts_with('/') ? path : ownFolder() + path; }

std::string contentOf(const std::string& path) {
  std::ifstream file(resolved(path), std::ios::binary);
  if (!file) misuse("cannot read " + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(const std::string& path, const std::string& content) {
  const std::string temporary = resolved(path) + ".part";
  {
    std::ofstream file(temporary, std::ios::binary);
    file << content;
  }
  if (::rename(temporary.c_str(), resolved(path).c_str()) != 0) misuse("cannot write " + path);
}

void readSwitches() {
  std::vector<std::string> words;
  std::ifstream file(ownFolder() + "switches");
  for (std::string line; std::getline(file, line);) {
    if (!line.empty()) words.push_back(line);
  }
  const char* variable = std::getenv("TKS_FAKE_LAUNCHER");
  std::istringstream more(variable != nullptr ? variable : "");
  for (std::string word; more >> word;) words.push_back(word);
  switches.add(words);
}

}  // namespace fake_launcher
