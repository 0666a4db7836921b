#include "platform/apple/spawn.h"

#include <crt_externs.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

namespace tks::platform::apple {
namespace {

using posix::SpawnRequest;

constexpr int kFirstForeign = 3;

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

}  // namespace

pid_t spawn(const SpawnRequest& request) {
  if (!posix::canBePassed(request)) return 0;
  const bool isOwn = request.cleanEnvironment || request.environment;
  std::vector<std::string> variables;
  if (isOwn) variables = request.environment ? *request.environment : posix::cleanEnvironment("en_US.UTF-8");
  const std::vector<char*> arguments = posix::pointersTo(request.arguments, &request.executable);
  const std::vector<char*> environment = posix::pointersTo(variables);

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
