#include "tests/support/FakeLauncher.h"

#include <signal.h>

#include <filesystem>

#include "tests/support/BuildPaths.h"
#include "tests/support/ProcessState.h"

namespace tks::test {
namespace {

constexpr const char* kName = "Tarvo Kovra Start";

}  // namespace

FakeLauncher::FakeLauncher(const std::vector<std::string>& switches)
    : bundle_(folder_ / (std::string(kName) + ".app")), executable_(bundle_ + "/Contents/MacOS/" + kName) {
  std::filesystem::copy(fakeLauncherBundle(), bundle_, std::filesystem::copy_options::recursive);
  setSwitches(switches);
}

FakeLauncher::~FakeLauncher() { endAll(); }

void FakeLauncher::setSwitches(const std::vector<std::string>& switches) {
  std::string lines;
  for (const std::string& word : switches) lines += word + "\n";
  writeFile(file("switches"), lines);
}

std::string FakeLauncher::file(std::string_view name) const { return bundle_ + "/Contents/MacOS/" + std::string(name); }

std::string FakeLauncher::report(std::string_view name) const {
  const std::string path = file(name);
  waitUntil([&] { return std::filesystem::exists(path); });
  return contentOf(path);
}

std::vector<int> FakeLauncher::processes() const {
  std::vector<int> found;
  for (const int process : allProcesses()) {
    if (executableOf(process).starts_with(executable_)) found.push_back(process);
  }
  return found;
}

void FakeLauncher::endAll() const {
  waitUntil([&] {
    const std::vector<int> left = processes();
    for (const int process : left) ::kill(process, SIGKILL);
    return left.empty();
  });
}

}  // namespace tks::test
