// A launcher that misbehaves on request. It speaks the launcher's side of the conversation with plain system calls and
// without the library, so that it can also break the rules.
//
//   frame := length (uint32, little-endian, bytes of the text) text (JSON)
//
// The channel comes from its command line, as for the real launcher: "-Communicate Pipe" (standard input and output) or
// "-Communicate File -TempIPCFilePath FOLDER". What to do wrong comes from the file "switches" beside the executable,
// one word a line, and from the environment variable TKS_FAKE_LAUNCHER, words apart by blanks. Without a switch it
// answers "hello", "launch_meeting" and "disconnect" as it should, and quits after the last, or when its host is gone.
//
// Times are numbers with "ms" or "s", sizes numbers with "K" or "M". Relative paths start at the executable's folder.

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>

#include "tests/support/ProcessTable.h"
#include "tests/support/fake_launcher/application.h"
#include "tests/support/fake_launcher/channel.h"
#include "tests/support/fake_launcher/switches.h"

namespace {

using namespace fake_launcher;

std::string header(std::uint64_t size) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<char>(size >> shift & 0xFF));
  return bytes;
}

std::string frame(const std::string& text) { return header(text.size()) + text; }

std::string quoted(const std::string& text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + '"';
}

std::string message(const std::string& type, const std::string& body) {
  return R"({"message_type":)" + quoted(type) + R"(,"message":)" + body + "}";
}

/// The text under a key at the top level of a JSON object, as it stands there.
std::string topLevelText(const std::string& json, const std::string& key) {
  int depth = 0;
  std::string last;
  bool isKey = false;
  for (std::size_t i = 0; i < json.size(); ++i) {
    if (json[i] == '{' || json[i] == '[') ++depth;
    if (json[i] == '}' || json[i] == ']') --depth;
    if (json[i] == ':' && depth == 1) isKey = last == key;
    if (json[i] == ',' && depth == 1) isKey = false;
    if (json[i] != '"') continue;
    std::string text;
    for (++i; i < json.size() && json[i] != '"'; ++i) {
      if (json[i] == '\\') text += json[i++];
      if (i < json.size()) text += json[i];
    }
    if (depth == 1 && isKey) return text;
    last = text;
  }
  return {};
}

/// One conversation.
class Launcher {
 public:
  explicit Launcher(Channel& channel) : channel_(channel) {}

  [[noreturn]] void converse() {
    sleepFor(switches.time("--no-read"));
    while (true) {
      const std::string text = receive();
      const std::string type = topLevelText(text, "message_type");
      if (!muted_) answer(type, text);
      muted_ = muted_ || switches.text("--mute-after") == type;
    }
  }

  [[noreturn]] void follow(const std::string& script) {
    std::istringstream lines(script);
    for (std::string line; std::getline(lines, line);) followLine(line);
    leave();
  }

 private:
  void answer(const std::string& type, const std::string& text) {
    if (type == "hello") answerHello();
    if (type == "launch_meeting") answerLaunch(text);
    if (type == "disconnect") answerDisconnect();
  }

  void answerHello() {
    if (switches.has("--noise")) channel_.write(switches.text("--noise"));
    if (switches.has("--header")) return channel_.write(header(switches.size("--header")) + filling());
    if (switches.has("--payload")) return channel_.write(frame(contentOf(switches.text("--payload"))));
    std::string more;
    for (std::uint64_t i = 1; i <= switches.size("--burst"); ++i) more += status(i);
    send("hello_ack", quoted("hello_ack"), more);
    for (std::uint64_t i = 1; i <= switches.size("--flood"); ++i) channel_.write(status(i));
    if (switches.has("--always-updated")) send("host_notify", quoted("host_notify"));
  }

  void answerLaunch(const std::string& text) {
    if (switches.has("--error-code") || switches.has("--error-text")) return send("error", errorBody());
    if (switches.has("--update") || isFirstUpdate()) return send("host_notify", quoted("host_notify"));
    const std::string token = topLevelText(text, "token");
    const std::string extra = token.empty() ? "" : R"("tkstoken":")" + token + R"(",)";
    send("launch_meeting_ack", "{" + extra + R"("result":"0","reason":"Launch meeting done"})");
  }

  void answerDisconnect() {
    send("disconnect_ack", quoted("disconnect_ack"));
    if (switches.has("--stay")) return;
    sleepFor(switches.time("--linger"));
    leave();
  }

  static std::string errorBody() {
    const std::string text = quoted(switches.text("--error-text"));
    if (!switches.has("--error-code")) return text;
    return R"({"error_code":)" + quoted(switches.text("--error-code")) + R"(,"error_message":)" + text + "}";
  }

  static std::string filling() { return std::string(switches.size("--fill"), 'x'); }
  static std::string status(std::uint64_t i) { return frame(message("client_status", quoted(std::to_string(i)))); }

  static bool isFirstUpdate() {
    if (!switches.has("--update-once")) return false;
    return ::open(resolved("updated").c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600) >= 0;
  }

  void send(const std::string& type, const std::string& body, const std::string& more = {}) {
    if (muted_ || switches.has("--mute")) return;
    if (switches.text("--exit-before") == type) quit(0);
    sleepFor(switches.time("--late"));
    std::string whole = frame(message(type, body));
    if (switches.has("--stall-after")) {
      channel_.write(whole.substr(0, 4 + switches.size("--stall-after")));
      muted_ = true;
      return;
    }
    if (switches.has("--twice")) whole += whole;
    channel_.write(whole + more);
    if (switches.text("--exit-after") == type) quit(0);
    muted_ = switches.text("--mute-after") == type;
  }

  void followLine(const std::string& line) {
    const std::size_t blank = std::min(line.find(' '), line.size());
    const std::string verb = line.substr(0, blank);
    const std::string rest = blank < line.size() ? line.substr(blank + 1) : "";
    if (verb.empty() || verb.starts_with('#')) return;
    if (verb == "expect") {
      if (topLevelText(receive(), "message_type") != rest) quit(65);
    } else if (verb == "send") {
      channel_.write(frame(rest));
    } else if (verb == "raw") {
      std::istringstream numbers(rest);
      std::string raw;
      for (std::string number; numbers >> number;) {
        raw.push_back(static_cast<char>(std::strtol(number.c_str(), nullptr, 16)));
      }
      channel_.write(raw);
    } else if (verb == "tell") {
      writeFile(rest, "");
    } else if (verb == "sleep") {
      sleepFor(seconds(rest));
    } else if (verb == "exit") {
      quit(std::atoi(rest.c_str()));
    } else {
      misuse("unknown line in the script: " + line);
    }
  }

  std::string receive() {
    std::string size = exactly(4);
    std::uint32_t length = 0;
    for (int i = 3; i >= 0; --i) length = length << 8 | static_cast<unsigned char>(size[static_cast<std::size_t>(i)]);
    std::string text = exactly(length);
    if (switches.has("--received")) {
      std::ofstream(resolved(switches.text("--received")), std::ios::app | std::ios::binary) << text << '\n';
    }
    return text;
  }

  std::string exactly(std::size_t size) {
    std::string data(size, '\0');
    for (std::size_t have = 0; have < size;) {
      const std::size_t count = channel_.read(data.data() + have, size - have);
      if (count == 0) leave();
      have += count;
    }
    return data;
  }

  [[noreturn]] static void leave() {
    while (switches.has("--wont-die")) sleepFor(1);
    quit(0);
  }

  Channel& channel_;
  bool muted_ = false;
};

void dumpDescriptors(const std::string& path) {
  std::string lines;
  DIR* folder = ::opendir("/dev/fd");
  if (folder == nullptr) misuse("cannot list descriptors");
  while (const dirent* entry = ::readdir(folder)) {
    const int descriptor = std::atoi(entry->d_name);
    if (entry->d_name[0] == '.' || descriptor == ::dirfd(folder)) continue;
    lines += std::string(entry->d_name) + " " + tks::test::targetOf(descriptor) + "\n";
  }
  ::closedir(folder);
  writeFile(path, lines);
}

void dumpSignals(const std::string& path) {
  sigset_t mask;
  ::sigprocmask(SIG_SETMASK, nullptr, &mask);
  std::string lines;
  for (int number = 1; number < 32; ++number) {
    struct sigaction action {};
    if (::sigismember(&mask, number) == 1) lines += std::to_string(number) + " blocked\n";
    if (::sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) {
      lines += std::to_string(number) + " ignored\n";
    }
  }
  writeFile(path, lines);
}

std::string joined(char* const* texts) {
  std::string all;
  for (; *texts != nullptr; ++texts) all.append(*texts).push_back('\0');
  return all;
}

void dump(char** arguments) {
  if (switches.has("--dump-environment")) writeFile(switches.text("--dump-environment"), joined(environ));
  if (switches.has("--dump-signals")) dumpSignals(switches.text("--dump-signals"));
  if (switches.has("--dump-descriptors")) dumpDescriptors(switches.text("--dump-descriptors"));
  if (switches.has("--dump-arguments")) writeFile(switches.text("--dump-arguments"), joined(arguments));
}

void limitLifetime() {
  // Whatever a test does wrong, nothing of it stays behind.
  struct sigaction action {};
  action.sa_handler = [](int) { quit(99); };
  ::sigaction(SIGALRM, &action, nullptr);
  ::alarm(static_cast<unsigned>(switches.time("--lifetime", 120)));
}

void leaveHolder() {
  if (::fork() != 0) return;
  limitLifetime();
  while (true) sleepFor(1);
}

void fillStandardError(std::uint64_t size) {
  const std::string line = std::string(99, 'e') + "\n";
  for (; size > 0; size -= std::min<std::uint64_t>(size, line.size())) {
    writeOut(STDERR_FILENO, line.data(), std::min<std::uint64_t>(size, line.size()));
  }
}

void misbehaveAtStart() {
  if (switches.has("--fork-holder")) leaveHolder();
  if (switches.has("--exit")) quit(std::atoi(switches.text("--exit").c_str()));
  if (switches.has("--abort")) std::abort();
  if (switches.has("--signal")) ::raise(std::atoi(switches.text("--signal").c_str()));
  if (switches.has("--wont-die")) {
    for (const int number : {SIGTERM, SIGHUP, SIGINT, SIGPIPE, SIGQUIT}) ::signal(number, SIG_IGN);
  }
  fillStandardError(switches.size("--stderr"));
  if (switches.has("--close-stderr")) ::close(STDERR_FILENO);
}

std::string valueOf(char** arguments, const char* name) {
  for (; *arguments != nullptr; ++arguments) {
    if (std::string_view(*arguments) == name && arguments[1] != nullptr) return arguments[1];
  }
  return {};
}

[[noreturn]] void talk(char** arguments) {
  std::unique_ptr<Channel> channel = std::make_unique<PipeChannel>();
  if (valueOf(arguments, "-Communicate") == "File") {
    auto files = std::make_unique<FileChannel>(valueOf(arguments, "-TempIPCFilePath"));
    // The host makes the files when it opens the conversation, which is after the start.
    while (!files->isOpen()) {
      sleepFor(0.005);
      files = std::make_unique<FileChannel>(valueOf(arguments, "-TempIPCFilePath"));
    }
    channel = std::move(files);
  }
  Launcher launcher(*channel);
  if (switches.has("--script")) launcher.follow(contentOf(switches.text("--script")));
  launcher.converse();
}

}  // namespace

int main(int, char** arguments) {
  readSwitches();
  limitLifetime();
  dump(arguments);
  misbehaveAtStart();
  tks::test::runAsApplication(switches.has("--wont-die"), [arguments] { talk(arguments); });
}
