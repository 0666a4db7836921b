#include "platform/apple/spawn.h"

#include <crt_externs.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/platform.h"

namespace tks::platform::apple {
namespace {

constexpr int kFirstForeign = 3;

/// A NUL byte would silently cut the rest off.
bool canBePassed(const std::string& text) { return text.find('\0') == std::string::npos; }

bool isOpen(int descriptor) { return fcntl(descriptor, F_GETFD) >= 0; }

/// What the child does with its descriptors before its program runs.
class Descriptors {
 public:
  Descriptors() : reason_(posix_spawn_file_actions_init(&actions_)), isMade_(reason_ == 0) {}
  ~Descriptors() {
    if (isMade_) posix_spawn_file_actions_destroy(&actions_);
  }
  Descriptors(const Descriptors&) = delete;
  Descriptors& operator=(const Descriptors&) = delete;

  /// Every descriptor is closed in the child, unless it is named here.
  void connect(int target, int source) {
    if (reason_ != 0) return;
    if (source >= kFirstForeign) {
      reason_ = posix_spawn_file_actions_adddup2(&actions_, source, target);
    } else if (source == target && isOpen(target)) {
      reason_ = posix_spawn_file_actions_addinherit_np(&actions_, target);
    } else {
      reason_ = posix_spawn_file_actions_addopen(&actions_, target, "/dev/null", O_RDWR, 0);
    }
  }

  /// Why this cannot be used; 0 when it can.
  int reason() const { return reason_; }
  const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
  int reason_;
  bool isMade_;
};

/// What the child is apart from its descriptors.
class Attributes {
 public:
  explicit Attributes(SpawnRequest::Group group) : reason_(posix_spawnattr_init(&attributes_)), isMade_(reason_ == 0) {
    // Worker threads of the dispatch queues block signals, and a host may ignore some.
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    int flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_CLOEXEC_DEFAULT;
    if (group == SpawnRequest::Group::ownSession) flags |= POSIX_SPAWN_SETSID;
    if (reason_ == 0) reason_ = posix_spawnattr_setsigmask(&attributes_, &none);
    if (reason_ == 0) reason_ = posix_spawnattr_setsigdefault(&attributes_, &all);
    if (reason_ == 0) reason_ = posix_spawnattr_setflags(&attributes_, static_cast<short>(flags));
  }
  ~Attributes() {
    if (isMade_) posix_spawnattr_destroy(&attributes_);
  }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;

  /// Why this cannot be used; 0 when it can.
  int reason() const { return reason_; }
  const posix_spawnattr_t* get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_{};
  int reason_;
  bool isMade_;
};

/// The C form of texts that outlive it. The system's call takes pointers to characters that it does not change.
std::vector<char*> pointers(const std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 2);
  for (const std::string& text : texts) result.push_back(const_cast<char*>(text.c_str()));
  return result;
}

std::vector<std::string> cleanEnvironment() {
  return {"PATH=/usr/bin:/bin:/usr/sbin:/sbin", "LC_ALL=en_US.UTF-8", "HOME=" + knownFolders().realHome()};
}

}  // namespace

pid_t spawn(const SpawnRequest& request) {
  if (!canBePassed(request.executable) || !std::ranges::all_of(request.arguments, canBePassed)) {
    errno = EINVAL;
    return 0;
  }
  std::vector<char*> arguments = pointers(request.arguments);
  arguments.insert(arguments.begin(), const_cast<char*>(request.executable.c_str()));
  arguments.push_back(nullptr);
  const bool isOwn = request.cleanEnvironment || request.environment;
  const std::vector<std::string> clean = request.environment ? *request.environment
                                         : isOwn             ? cleanEnvironment()
                                                             : std::vector<std::string>();
  std::vector<char*> environment = pointers(clean);
  environment.push_back(nullptr);

  Descriptors descriptors;
  descriptors.connect(STDIN_FILENO, request.standardInput);
  descriptors.connect(STDOUT_FILENO, request.standardOutput);
  descriptors.connect(STDERR_FILENO, request.standardError);
  const Attributes attributes(request.group);
  int reason = descriptors.reason() != 0 ? descriptors.reason() : attributes.reason();
  pid_t process = 0;
  if (reason == 0) {
    reason = posix_spawn(&process, request.executable.c_str(), descriptors.get(), attributes.get(), arguments.data(),
                         isOwn ? environment.data() : *_NSGetEnviron());
  }
  if (reason == 0) return process;
  errno = reason;
  return 0;
}

}  // namespace tks::platform::apple
