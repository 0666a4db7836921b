#pragma once

#include <cerrno>
#include <type_traits>
#include <utility>

#include "platform/linux/loop/system_calls.h"

namespace tks::test {

/// Puts another function into the table of system calls for a scope, for example one that refuses:
///   const InjectedSystemCall refused(&SystemCalls::eventfd, refusing<ENOSYS>);
template <class Call>
class InjectedSystemCall {
 public:
  InjectedSystemCall(Call gnulinux::SystemCalls::*which, std::type_identity_t<Call> replacement)
      : which_(which), before_(std::exchange(gnulinux::systemCalls().*which, replacement)) {}
  ~InjectedSystemCall() { gnulinux::systemCalls().*which_ = before_; }
  InjectedSystemCall(const InjectedSystemCall&) = delete;
  InjectedSystemCall& operator=(const InjectedSystemCall&) = delete;

 private:
  Call gnulinux::SystemCalls::*which_;
  Call before_;
};

/// A system call that fails with a fixed number, whatever its arguments are.
template <int number>
struct Refusing {
  template <class... Arguments>
  static int call(Arguments...) {
    errno = number;
    return -1;
  }
  template <class... Arguments>
  using Function = int (*)(Arguments...);
  template <class... Arguments>
  operator Function<Arguments...>() const {
    return &call<Arguments...>;
  }
};
template <int number>
inline constexpr Refusing<number> refusing{};

}  // namespace tks::test
