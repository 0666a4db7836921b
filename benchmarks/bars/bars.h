#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "tests/support/TemporaryFolder.h"

// Bars of load: what has to be held, with a verdict of its own. Each works with real processes, which are this very
// program in another role, and in a folder of its own.

namespace tks::bars {

/// How one bar went: what was measured in words, and whether it holds.
struct Verdict {
  bool holds = false;
  std::string words;
};

/// `scale`: how much of the bar is done; 1 is all of it.
Verdict holdMessages(double scale);
Verdict startHostsAtOnce(double scale);
Verdict startAndStop(double scale);
Verdict killInstallations(double scale);

/// What this program does as somebody else's child; the exit code.
int echoMessages(const std::vector<std::string>& arguments);
int launchOneMeeting(const std::vector<std::string>& arguments);
int installOnce(const std::vector<std::string>& arguments);

/// This program in one of its roles; its process.
pid_t startRole(const std::string& role, const std::vector<std::string>& arguments, int input = -1, int output = -1);
/// The exit code, or 128 and the signal's number.
int waitFor(pid_t process);

/// A home of the bar's own, in which the check of the launcher's signature is left out: it is no matter of load.
class Home final : public platform::KnownFolders {
 public:
  explicit Home(std::string folder);
  std::string realHome() override { return folder_; }
  std::string temporary() override { return folder_ + "/tmp"; }
  std::string documents() override { return folder_; }

 private:
  std::string folder_;
  platform::Replaced<platform::KnownFolders> replaced_{*this};
};

/// The prescribed pauses are shortened: what is done in between is the load.
class HastyClock final : public platform::Clock {
 public:
  std::string localTimestamp() override { return replaced_.before().localTimestamp(); }
  double secondsSince1970() override { return replaced_.before().secondsSince1970(); }
  void sleep(std::chrono::microseconds) override { replaced_.before().sleep(std::chrono::milliseconds(1)); }

 private:
  platform::Replaced<platform::Clock> replaced_{*this};
};

}  // namespace tks::bars
