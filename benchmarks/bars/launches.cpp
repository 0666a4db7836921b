#include <dirent.h>
#include <fcntl.h>
#include <tksinterface/tksinterface.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <limits>
#include <string_view>

#include "benchmarks/bars/bars.h"

// Hosts that start the same launcher, and one host that starts and stops launchers for a long time.

namespace tks::bars {
namespace {

constexpr int kHosts = 200;
constexpr int kStarts = 10'000;
/// What is held at most in the first so many is compared with what is held at least in the last so many: what is under
/// way for a moment comes and goes, and what is never given back stays.
constexpr int kWarmUp = 500;
/// What the allocator may take more, over all of them.
constexpr long kMostKilobytes = 2048;
/// Threads of background work come when all others are busy, which a busy machine brings about at any time.
constexpr long kMostThreads = 2;

/// What a process holds, or the most or least that it held at times.
struct Holding {
  long kilobytes = 0;
  long descriptors = 0;
  long threads = 0;

  void raise(const Holding& to) {
    kilobytes = std::max(kilobytes, to.kilobytes);
    descriptors = std::max(descriptors, to.descriptors);
    threads = std::max(threads, to.threads);
  }

  void lower(const Holding& to) {
    kilobytes = std::min(kilobytes, to.kilobytes);
    descriptors = std::min(descriptors, to.descriptors);
    threads = std::min(threads, to.threads);
  }
};

long numberAfter(std::string_view field) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(field)) return std::atol(line.c_str() + field.size());
  }
  return 0;
}

Holding holding() {
  Holding now{numberAfter("VmRSS:"), 0, numberAfter("Threads:")};
  DIR* const folder = ::opendir("/proc/self/fd");
  while (folder != nullptr && ::readdir(folder) != nullptr) ++now.descriptors;
  if (folder != nullptr) ::closedir(folder);
  return now;
}

std::string shown(const Holding& what) {
  return std::to_string(what.kilobytes) + " KiB, " + std::to_string(what.descriptors) + " descriptors, " +
         std::to_string(what.threads) + " threads";
}

/// A facade whose launcher is not checked, as on the maker's own machines.
TKSInterface& facadeIn(const std::string& launcher) {
  TKSUtilBase::setPreference({std::string(TKSUserDefaultsKeyIsLabDevice)}, true);
  TKSInterface& facade = TKSInterface::sharedInstance();
  facade.setTKSAppPath(launcher);
  return facade;
}

/// Starts the launcher and stops it; false when either fails.
bool startsAndStops(TKSInterface& facade) {
  bool stopped = false;
  const TKSErrorBlock failed = [](const TKSError& error) {
    std::fprintf(stderr, "%s\n", error.localizedDescription.c_str());
    TKSMainLoop::stop();
  };
  const TKSFinishBlock stop = [&] {
    facade.stop(
        [&] {
          stopped = true;
          TKSMainLoop::stop();
        },
        failed);
  };
  facade.start(stop, failed);
  TKSMainLoop::run();
  return stopped;
}

}  // namespace

/// Arguments: folder of its own, launcher. Waits for the end of its standard input first, so that all begin at once.
int launchOneMeeting(const std::vector<std::string>& arguments) {
  const Home home(arguments.at(0));
  TKSInterface& facade = facadeIn(arguments.at(1));
  char byte;
  while (::read(0, &byte, 1) > 0) continue;
  bool launched = false;
  const auto patience = platform::mainLoop().after(std::chrono::seconds(50), [] { TKSMainLoop::stop(); });
  facade.launchMeetingWithParam(
      TKSDictionary{{tks_param_key_gpcurlroot, "https://meet.tarvo.example"}}, [&] { launched = true; },
      [](const TKSError& error) {
        std::fprintf(stderr, "%s\n", error.localizedDescription.c_str());
        TKSMainLoop::stop();
      });
  const std::function<void()> look = [&] {
    if (launched && facade.appManager->TKSAppStatus == TKSI_APP_STATUS_UNCONNECTED) return TKSMainLoop::stop();
    platform::mainLoop().post(look);
    platform::clock().sleep(std::chrono::milliseconds(2));
  };
  platform::mainLoop().post(look);
  TKSMainLoop::run();
  return launched && facade.appManager->TKSAppStatus == TKSI_APP_STATUS_UNCONNECTED ? 0 : 1;
}

Verdict startHostsAtOnce(double scale) {
  const test::TemporaryFolder folder;
  const int hosts = std::max(2, static_cast<int>(kHosts * std::min(scale, 1.0)));
  int gate[2];
  if (::pipe2(gate, O_CLOEXEC) != 0) return {};
  std::vector<pid_t> processes;
  for (int i = 0; i < hosts; ++i) {
    processes.push_back(startRole("host", {folder / std::to_string(i), TKS_LAUNCHER_BUNDLE}, gate[0]));
  }
  ::close(gate[0]);
  ::close(gate[1]);
  int failed = 0;
  for (const pid_t process : processes) failed += process > 0 && waitFor(process) == 0 ? 0 : 1;
  return {failed == 0, std::to_string(hosts - failed) + " of " + std::to_string(hosts) + " launched their meeting"};
}

Verdict startAndStop(double scale) {
  const test::TemporaryFolder folder;
  const Home home(folder.path());
  HastyClock clock;
  TKSInterface& facade = facadeIn(TKS_LAUNCHER_BUNDLE);
  const int starts = std::max(2 * kWarmUp, static_cast<int>(kStarts * scale));
  Holding before;
  constexpr long kEndless = std::numeric_limits<long>::max();
  Holding after{kEndless, kEndless, kEndless};
  for (int i = 0; i < starts; ++i) {
    if (!startsAndStops(facade)) return {false, "number " + std::to_string(i) + " failed"};
    if (i < kWarmUp) before.raise(holding());
    if (i >= starts - kWarmUp) after.lower(holding());
  }
  const bool flat = after.kilobytes - before.kilobytes <= kMostKilobytes && after.descriptors <= before.descriptors &&
                    after.threads <= before.threads + kMostThreads;
  return {flat, std::to_string(starts) + " of them, at first at most " + shown(before) + ", at last at least " +
                    shown(after)};
}

}  // namespace tks::bars
