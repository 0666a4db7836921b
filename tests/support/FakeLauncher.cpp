#include "tests/support/FakeLauncher.h"

#include <signal.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <filesystem>

#include "tests/support/ProcessState.h"

namespace tks::test {
namespace {

constexpr const char* kName = "Tarvo Kovra Start";

std::string executableOf(const std::string& process) {
  std::array<char, PATH_MAX> target;
  const ssize_t size = ::readlink(("/proc/" + process + "/exe").c_str(), target.data(), target.size());
  return size > 0 ? std::string(target.data(), static_cast<std::size_t>(size)) : std::string();
}

}  // namespace

FakeLauncher::FakeLauncher(const std::vector<std::string>& switches)
    : bundle_(folder_ / (std::string(kName) + ".app")), executable_(bundle_ + "/Contents/MacOS/" + kName) {
  std::filesystem::copy(TKS_FAKE_LAUNCHER_BUNDLE, bundle_, std::filesystem::copy_options::recursive);
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
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const std::string name = entry.path().filename();
    if (executableOf(name).starts_with(executable_)) found.push_back(std::atoi(name.c_str()));
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
