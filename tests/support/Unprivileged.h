#pragma once

#include <unistd.h>

namespace tks::test {

/// Takes the superuser's rights away for a scope, so that permissions count. Does nothing for other users.
class Unprivileged {
 public:
  Unprivileged() : wasSuperuser_(::geteuid() == 0) {
    if (wasSuperuser_ && (::setegid(kNobody) != 0 || ::seteuid(kNobody) != 0)) ::_exit(70);
  }
  ~Unprivileged() {
    if (wasSuperuser_ && (::seteuid(0) != 0 || ::setegid(0) != 0)) ::_exit(70);
  }
  Unprivileged(const Unprivileged&) = delete;
  Unprivileged& operator=(const Unprivileged&) = delete;

 private:
  static constexpr unsigned kNobody = 65534;
  bool wasSuperuser_;
};

}  // namespace tks::test
