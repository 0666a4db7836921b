#pragma once

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

namespace tks::test {

/// From now on the kernel refuses these calls with this number, for this process and all that it starts. There is no
/// way back: for fresh processes only. False where processes may not be filtered.
///   TKS_IN_FRESH_PROCESS();
///   if (!refuseSystemCalls({SYS_pidfd_open}, ENOSYS)) GTEST_SKIP() << "no filters here";
inline bool refuseSystemCalls(std::initializer_list<long> calls, int number) {
  const auto step = [](unsigned code, unsigned value, unsigned whenTrue = 0) {
    return sock_filter{static_cast<std::uint16_t>(code), static_cast<std::uint8_t>(whenTrue), 0, value};
  };
  std::vector<sock_filter> filter = {step(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  std::size_t left = calls.size();
  for (const long call : calls) {
    // Jumps over the calls after this one and over the permission.
    filter.push_back(step(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), static_cast<unsigned>(left--)));
  }
  filter.push_back(step(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  filter.push_back(step(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(number)));
  const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
  // For the threads that are there already as well.
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_TSYNC, &program) == 0;
}

}  // namespace tks::test
