// A native-messaging host: the browser starts it, talks to it over standard input and output in frames of a length
// (four bytes, the machine's order) and JSON, and ends it by closing them.
//
//   {"launch": {...}}   launches a meeting: answered by {"state": "starting"}, then "launched" or "failed" with the
//   error
//   {"echo": ...}       answered by the same
//
// Beside the program may lie "launcher.zip" and "launcher-version": a launcher to install where none or an older one
// is. TKS_EXAMPLE_LOG names a file for the log; every line in it is masked.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <tksinterface/tksinterface.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace {

// The browser takes no more than this, and ends a host that sends more; what it may send is bounded here.
constexpr std::size_t kMostToBrowser = 1024 * 1024;
constexpr std::size_t kMostFromBrowser = 4 * 1024 * 1024;

// Who may talk to this host. The manifest says the same to the browser; this is for whoever starts the program itself.
constexpr std::string_view kCallers[] = {"chrome-extension://glmjbkbbkboknnbhnimmmcflienpkgfm/",
                                         "kovra-start-example@tarvo.example"};

bool isExpectedCaller(int count, char** arguments) {
  for (int i = 1; i < count; ++i) {
    for (const std::string_view caller : kCallers) {
      if (arguments[i] == caller) return true;
    }
  }
  return false;
}

/// The browser's ends of the standard handles, and the frames on them.
class Browser {
 public:
  // The originals are kept aside; 0 and 1 are the launcher's as soon as one is connected. Until then nothing that is
  // printed by mistake gets into a frame.
  Browser() : input_(TKSUtilBase::originalStandardInput()), output_(TKSUtilBase::originalStandardOutput()) {
    const int null = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ::dup2(null, STDIN_FILENO);
    ::close(null);
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
  }

  int input() const { return input_; }
  bool isOpen() const { return open_; }

  /// Sends a message; one that the browser would not take is replaced by an error.
  void send(const TKSValue& message) {
    std::string text = TKSUtilBase::objectToJSONString(message).value_or("{}");
    if (text.size() > kMostToBrowser) {
      return send(
          TKSDictionary{{"state", "failed"}, {"domain", "host"}, {"code", 1}, {"text", "The answer is too large."}});
    }
    const auto length = static_cast<std::uint32_t>(text.size());
    std::string frame(sizeof length, '\0');
    std::memcpy(frame.data(), &length, sizeof length);
    frame += text;
    for (std::string_view rest = frame; !rest.empty() && open_;) {
      const ssize_t written = ::write(output_, rest.data(), rest.size());
      if (written > 0) rest.remove_prefix(static_cast<std::size_t>(written));
      if (written < 0 && errno != EINTR) open_ = false;
    }
  }

  /// Reads what is there. The end of the browser's end, or a frame that is none, ends the conversation.
  void read() {
    std::array<char, 65536> buffer;
    const ssize_t count = ::read(input_, buffer.data(), buffer.size());
    if (count > 0) pending_.append(buffer.data(), static_cast<std::size_t>(count));
    if (count == 0 || (count < 0 && errno != EINTR)) open_ = false;
  }

  /// The next whole message, if there is one.
  std::optional<TKSValue> next() {
    std::uint32_t length = 0;
    if (pending_.size() < sizeof length) return std::nullopt;
    std::memcpy(&length, pending_.data(), sizeof length);
    if (length > kMostFromBrowser) open_ = false;
    if (!open_ || pending_.size() < sizeof length + length) return std::nullopt;
    const TKSValue message = TKSUtilBase::JSONStringToObject(std::string_view(pending_).substr(sizeof length, length));
    pending_.erase(0, sizeof length + length);
    return message;
  }

 private:
  const int input_;
  const int output_;
  bool open_ = true;
  std::string pending_;
};

/// Every line goes to the file masked, those too that the library leaves as they are. Lines come on any thread: each is
/// one write at the file's end.
void logToFile(const char* path) {
  const int file = ::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
  if (file < 0) return;
  TKSILog::sharedInstance().setLogBlock([file](std::int32_t level, const std::string& line) {
    const std::string whole = std::to_string(level) + " " + TKSILog::removeSensitiveInformation(line) + "\n";
    if (::write(file, whole.data(), whole.size()) < 0) return;
  });
}

void offerArchive(TKSInterface& tks) {
  const std::filesystem::path folder = std::filesystem::canonical("/proc/self/exe").parent_path();
  std::string version;
  if (std::getline(std::ifstream(folder / "launcher-version"), version)) {
    tks.setBackupTKSZipPath(folder / "launcher.zip", version);
  }
}

void launch(TKSInterface& tks, Browser& browser, const TKSValue& parameters) {
  browser.send(TKSDictionary{{"state", "starting"}});
  // The page hears of one outcome: an error may still come after the launch, from the goodbye.
  const auto told = std::make_shared<bool>(false);
  const auto launched = [&browser, told] {
    if (!std::exchange(*told, true)) browser.send(TKSDictionary{{"state", "launched"}});
  };
  const auto failed = [&browser, told](const TKSError& error) {
    if (std::exchange(*told, true)) return;
    browser.send(TKSDictionary{{"state", "failed"},
                               {"domain", error.domain},
                               {"code", error.code},
                               {"text", error.localizedDescription},
                               {"reason", TKSErrorReasonName(error.reason)}});
  };
  tks.launchMeetingWithParam(parameters, launched, failed);
}

void answer(TKSInterface& tks, Browser& browser, const TKSValue& message) {
  if (message["launch"].isDictionary()) launch(tks, browser, message["launch"]);
  if (!message["echo"].isNothing()) browser.send(TKSDictionary{{"echo", message["echo"]}});
}

}  // namespace

int main(int count, char** arguments) {
  ::signal(SIGPIPE, SIG_IGN);
  Browser browser;
  if (!isExpectedCaller(count, arguments)) return 2;
  if (const char* path = ::getenv("TKS_EXAMPLE_LOG")) logToFile(path);
  TKSInterface& tks = TKSInterface::sharedInstance();
  offerArchive(tks);

  while (browser.isOpen()) {
    pollfd watched[] = {{browser.input(), POLLIN, 0}, {TKSMainLoop::descriptor(), POLLIN, 0}};
    if (::poll(watched, 2, -1) < 0) continue;
    if (watched[0].revents != 0) browser.read();
    while (const std::optional<TKSValue> message = browser.next()) answer(tks, browser, *message);
    if (watched[1].revents != 0) TKSMainLoop::drain();
  }
  // The browser is gone. The launcher sees its own channel end with this process, and ends too.
  return 0;
}
