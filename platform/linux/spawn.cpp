#include "platform/linux/spawn.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <cerrno>

#include "platform/platform.h"

namespace tks::gnulinux {
namespace {

constexpr int kFirstForeign = 3;

/// Counts what the spawn functions answer: the first failure stays.
class Spawner {
 public:
  Spawner() {
    keep(::posix_spawn_file_actions_init(&actions_));
    keep(::posix_spawnattr_init(&attributes_));
  }
  ~Spawner() {
    ::posix_spawnattr_destroy(&attributes_);
    ::posix_spawn_file_actions_destroy(&actions_);
  }
  Spawner(const Spawner&) = delete;
  Spawner& operator=(const Spawner&) = delete;

  void connect(int target, int source) {
    if (source == SpawnRequest::kNull || ::fcntl(source, F_GETFD) < 0) {
      keep(::posix_spawn_file_actions_addopen(&actions_, target, "/dev/null", O_RDWR, 0));
    } else {
      // To itself as well: that takes away its close-on-exec mark.
      keep(::posix_spawn_file_actions_adddup2(&actions_, source, target));
    }
  }

  void closeTheRest() { keep(::posix_spawn_file_actions_addclosefrom_np(&actions_, kFirstForeign)); }

  void setUp(SpawnRequest::Group group) {
    sigset_t all;
    sigset_t none;
    ::sigfillset(&all);
    ::sigemptyset(&none);
    short flags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;
    if (group == SpawnRequest::Group::own) flags |= POSIX_SPAWN_SETPGROUP;
    if (group == SpawnRequest::Group::ownSession) flags |= POSIX_SPAWN_SETSID;
    keep(::posix_spawnattr_setsigdefault(&attributes_, &all));
    keep(::posix_spawnattr_setsigmask(&attributes_, &none));
    keep(::posix_spawnattr_setpgroup(&attributes_, 0));
    keep(::posix_spawnattr_setflags(&attributes_, flags));
  }

  pid_t start(const char* executable, char* const* arguments, char* const* environment) {
    pid_t process = -1;
    if (failure_ == 0) {
      failure_ = ::posix_spawn(&process, executable, &actions_, &attributes_, arguments, environment);
    }
    if (failure_ == 0) return process;
    errno = failure_;
    return -1;
  }

 private:
  void keep(int result) {
    if (failure_ == 0) failure_ = result;
  }

  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
  int failure_ = 0;
};

std::vector<std::string> cleanEnvironment() {
  return {"PATH=/usr/bin:/bin:/usr/sbin:/sbin", "LC_ALL=C.UTF-8", "HOME=" + platform::knownFolders().realHome()};
}

/// The C form of texts that outlive it. The system's call takes pointers to characters that it does not change.
std::vector<char*> pointers(const std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 2);
  for (const std::string& text : texts) result.push_back(const_cast<char*>(text.c_str()));
  return result;
}

/// A NUL byte would silently cut the rest off.
bool canBePassed(const std::string& text) { return text.find('\0') == std::string::npos; }

}  // namespace

pid_t spawn(const SpawnRequest& request) {
  bool whole = canBePassed(request.executable);
  for (const std::string& argument : request.arguments) whole = whole && canBePassed(argument);
  if (!whole) {
    errno = EINVAL;
    return -1;
  }

  Spawner spawner;
  spawner.connect(STDIN_FILENO, request.standardInput);
  spawner.connect(STDOUT_FILENO, request.standardOutput);
  spawner.connect(STDERR_FILENO, request.standardError);
  spawner.closeTheRest();
  spawner.setUp(request.group);

  std::vector<char*> arguments = pointers(request.arguments);
  arguments.insert(arguments.begin(), const_cast<char*>(request.executable.c_str()));
  arguments.push_back(nullptr);
  const std::vector<std::string> clean = request.cleanEnvironment ? cleanEnvironment() : std::vector<std::string>();
  std::vector<char*> environment = pointers(clean);
  environment.push_back(nullptr);
  return spawner.start(request.executable.c_str(), arguments.data(),
                       request.cleanEnvironment ? environment.data() : ::environ);
}

}  // namespace tks::gnulinux
