#include <signal.h>
#include <tksinterface/tksinterface.h>

#include <random>
#include <thread>

#include "benchmarks/bars/bars.h"
#include "tests/install/InstallWorld.h"

// Installations that are killed at random moments: what stands in the launcher's place is the old launcher, the new one
// or nothing, and the next refresh makes it the new one.

namespace tks::bars {
namespace {

namespace fs = std::filesystem;
using test::InstallWorld;
using test::launcherAt;
using test::LauncherPlan;
using test::makeLauncher;

constexpr int kKills = 100;
constexpr unsigned kSeed = 20260131;

/// The old launcher, and an archive with the new one.
struct Place {
  explicit Place(const std::string& folder)
      : base(folder),
        target(folder + "/Add-ons/" + std::string(TKSAppName)),
        old(folder + "/old/" + std::string(TKSAppName)) {
    makeLauncher(old, {.version = "4.9"});
    const std::map<std::string, std::string> files = {{"Contents/Resources/large", std::string(3'000'000, 'x')}};
    makeLauncher(base + "/made/" + std::string(TKSAppName), LauncherPlan{.version = "5.0.1", .files = files});
    archive = test::zipped(base + "/made", std::string(TKSAppName), base + "/backup.zip");
  }
  void putOld() const {
    fs::remove_all(fs::path(target).parent_path());
    fs::create_directories(fs::path(target).parent_path());
    fs::copy(old, target, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  }

  std::string base;
  std::string target;
  std::string old;
  std::string archive;
};

/// Microseconds that a whole installation takes here and now.
long wholeTime(const Place& place) {
  place.putOld();
  const auto begin = std::chrono::steady_clock::now();
  if (waitFor(startRole("install", {place.base, place.archive, place.target})) != 0) return 0;
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - begin).count();
}

}  // namespace

/// Arguments: folder of the world, archive, target.
int installOnce(const std::vector<std::string>& arguments) {
  InstallWorld world(arguments.at(0));
  bool installed = false;
  // In the background, where there is time to wait.
  std::thread([&] { installed = TKSUtilBase::installTKSVersion("5.0.1", arguments.at(1), arguments.at(2)); }).join();
  return installed ? 0 : 1;
}

Verdict killInstallations(double scale) {
  const test::TemporaryFolder folder;
  const Place place(folder.path());
  const long whole = wholeTime(place);
  if (whole == 0 || launcherAt(place.target) != "5.0.1") return {false, "an installation that nobody kills fails"};
  std::mt19937 random(kSeed);
  std::map<std::string, int> found;
  const int kills = std::max(2, static_cast<int>(kKills * scale));
  int done = 0;
  for (int tries = 0; done < kills && tries < 3 * kills; ++tries) {
    place.putOld();
    const pid_t process = startRole("install", {place.base, place.archive, place.target});
    std::this_thread::sleep_for(std::chrono::microseconds(std::uniform_int_distribution<long>(0, whole)(random)));
    ::kill(process, SIGKILL);
    if (waitFor(process) != 128 + SIGKILL) continue;  // it was done before
    ++done;
    const std::string left = launcherAt(place.target);
    ++found[left];
    if (left != "4.9" && left != "5.0.1" && left != "none") return {false, "left " + left};
    if (left == "5.0.1") continue;
    if (waitFor(startRole("install", {place.base, place.archive, place.target})) != 0 ||
        launcherAt(place.target) != "5.0.1") {
      return {false, "the next installation after a kill fails"};
    }
  }
  std::string words = std::to_string(done) + " killed, which left";
  for (const auto& [what, times] : found) words += " " + what + " " + std::to_string(times) + " times";
  return {done == kills && found.count("4.9") > 0, words};
}

}  // namespace tks::bars
