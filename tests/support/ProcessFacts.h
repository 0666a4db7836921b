#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

#include <clocale>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>

#include "tests/support/TemporaryFolder.h"

namespace tks::test {

/// What belongs to the host and never changes through the library: a line for each signal's handling, the mask, umask,
/// working folder, locale, environment, limits, timers and the like. Of the calling thread, where a thread has its own.
inline std::string processFacts() {
  std::ostringstream facts;
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    struct sigaction action {};
    if (::sigaction(signal, nullptr, &action) != 0) continue;
    facts << "signal " << signal << ": " << reinterpret_cast<const void*>(action.sa_handler) << " flags "
          << action.sa_flags << "\n";
  }
  sigset_t mask;
  ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    if (sigismember(&mask, signal) == 1) facts << "blocked: " << signal << "\n";
  }
  sigset_t pending;
  ::sigpending(&pending);
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    if (sigismember(&pending, signal) == 1) facts << "pending: " << signal << "\n";
  }
  std::istringstream status(contentOf("/proc/self/status"));
  for (std::string line; std::getline(status, line);) {
    for (const char* field : {"Umask:", "Uid:", "Gid:", "Groups:", "NoNewPrivs:", "Seccomp:", "CapEff:"}) {
      if (line.starts_with(field)) facts << line << "\n";
    }
  }
  facts << "folder: " << std::filesystem::current_path().string() << "\n"
        << contentOf("/proc/self/limits") << "locale: " << std::setlocale(LC_ALL, nullptr) << "\n";
  for (char** variable = environ; *variable != nullptr; ++variable) facts << *variable << "\n";
  for (const auto which : {ITIMER_REAL, ITIMER_VIRTUAL, ITIMER_PROF}) {
    itimerval timer{};
    ::getitimer(which, &timer);
    facts << "timer: " << timer.it_interval.tv_sec << "." << timer.it_interval.tv_usec << "\n";
  }
#ifdef __linux__
  int reaper = 0;
  ::prctl(PR_GET_CHILD_SUBREAPER, &reaper);
  char name[17] = {};
  ::prctl(PR_GET_NAME, name);
  facts << "reaper: " << reaper << "\nname: " << name << "\n";
#endif
  facts << "process group: " << ::getpgrp() << "\nsession: " << ::getsid(0) << "\n";
  return facts.str();
}

/// What stands on descriptors 0, 1 and 2, and how it was opened.
inline std::string standardHandleFacts() {
  std::ostringstream facts;
  for (int descriptor = 0; descriptor <= 2; ++descriptor) {
    struct stat what {};
    if (::fstat(descriptor, &what) != 0) what = {};
    facts << descriptor << ": " << what.st_dev << "/" << what.st_ino << " flags " << ::fcntl(descriptor, F_GETFL)
          << " on exec " << ::fcntl(descriptor, F_GETFD) << "\n";
  }
  return facts.str();
}

}  // namespace tks::test
