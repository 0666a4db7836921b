#pragma once

#include_next <spawn.h>

// Closing every descriptor that is not named is an action here, and a flag there.
enum { POSIX_SPAWN_CLOEXEC_DEFAULT = 0 };

inline int posix_spawn_file_actions_addinherit_np(posix_spawn_file_actions_t* actions, int descriptor) {
  return posix_spawn_file_actions_adddup2(actions, descriptor, descriptor);
}

inline int spawnWithNamedDescriptors(pid_t* process, const char* path, const posix_spawn_file_actions_t* actions,
                                     const posix_spawnattr_t* attributes, char* const* arguments,
                                     char* const* environment) {
  auto* const all = const_cast<posix_spawn_file_actions_t*>(actions);
  const int reason = posix_spawn_file_actions_addclosefrom_np(all, 3);
  return reason != 0 ? reason : posix_spawn(process, path, all, attributes, arguments, environment);
}
#define posix_spawn spawnWithNamedDescriptors
