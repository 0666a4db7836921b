#pragma once

// What the tests take from Linux's C library and from a newer C++ library, in the words of macOS. Read before every
// source of a test there.

#include <crt_externs.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstring>
#include <thread>
#include <utility>

// Macros here, and so without a namespace.
#undef sigaddset
#undef sigdelset
#undef sigemptyset
#undef sigfillset
#undef sigismember

#define environ (*_NSGetEnviron())
#define st_atim st_atimespec
#define st_mtim st_mtimespec
#define st_ctim st_ctimespec
#define SIGRTMAX (NSIG - 1)
#define SOCK_CLOEXEC 0
#define RENAME_EXCHANGE RENAME_SWAP

inline int pipe2(int ends[2], int flags) {
  if (::pipe(ends) != 0) return -1;
  for (int i = 0; i < 2; ++i) {
    if ((flags & O_CLOEXEC) != 0) ::fcntl(ends[i], F_SETFD, FD_CLOEXEC);
    if ((flags & O_NONBLOCK) != 0) ::fcntl(ends[i], F_SETFL, O_NONBLOCK);
  }
  return 0;
}

inline int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) {
  return ::renameatx_np(fromFolder, from, toFolder, to, flags);
}

/// Attributes of users carry a prefix on Linux, and none here.
inline const char* attributeName(const char* name) { return std::strncmp(name, "user.", 5) == 0 ? name + 5 : name; }

inline int setxattr(const char* path, const char* name, const void* value, size_t size, int flags) {
  return ::setxattr(path, attributeName(name), value, size, 0, flags);
}
inline int lsetxattr(const char* path, const char* name, const void* value, size_t size, int flags) {
  return ::setxattr(path, attributeName(name), value, size, 0, flags | XATTR_NOFOLLOW);
}
inline ssize_t getxattr(const char* path, const char* name, void* value, size_t size) {
  return ::getxattr(path, attributeName(name), value, size, 0, 0);
}
inline ssize_t lgetxattr(const char* path, const char* name, void* value, size_t size) {
  return ::getxattr(path, attributeName(name), value, size, 0, XATTR_NOFOLLOW);
}
inline int removexattr(const char* path, const char* name) { return ::removexattr(path, attributeName(name), 0); }

#if !defined(__cpp_lib_jthread)
namespace std {

/// As far as the tests use it: joined when it is destroyed.
class jthread {
 public:
  jthread() noexcept = default;
  template <class Work, class... Arguments>
  requires(!is_same_v<remove_cvref_t<Work>, jthread>) explicit jthread(Work&& work, Arguments&&... arguments)
      : thread_(std::forward<Work>(work), std::forward<Arguments>(arguments)...) {}
  jthread(jthread&&) noexcept = default;
  jthread& operator=(jthread&& other) noexcept {
    join();
    thread_ = std::move(other.thread_);
    return *this;
  }
  ~jthread() { join(); }
  bool joinable() const noexcept { return thread_.joinable(); }
  void join() {
    if (thread_.joinable()) thread_.join();
  }
  thread::id get_id() const noexcept { return thread_.get_id(); }

 private:
  thread thread_;
};

}  // namespace std
#endif
