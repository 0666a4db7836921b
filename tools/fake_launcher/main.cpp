// A launcher for other people's tests. tksctl fake-launcher makes bundles around this program; what it does stands in
// the bundle (behaviour.h). It is one of the library's own launchers: the protocol is the library's.

#include <tksinterface/TKSMainLoop.h>
#include <tksinterface/TKSMessageHost.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include "foundation/values/FilePaths.h"
#include "platform/platform.h"
#include "tools/fake_launcher/behaviour.h"
#include "tools/fake_launcher/player.h"

namespace {

constexpr int kWrongScript = 64;

/// The bundle around this program: X.app of X.app/Contents/MacOS/X.
std::string ownBundle() {
  std::error_code ignored;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", ignored);
  return program.parent_path().parent_path().parent_path().string();
}

std::optional<tks::fake::Behaviour> ownBehaviour(const std::string& bundle, std::string& problem) {
  constexpr std::size_t kLargestScript = 16 * 1024 * 1024;
  TKSError error;
  const std::string path = tks::joinedPath(bundle, tks::fake::kScriptInBundle);
  const auto content = tks::platform::files().read(path, kLargestScript, &error);
  problem = error.localizedDescription;
  if (!content) return std::nullopt;
  const std::string text(content->begin(), content->end());
  return tks::fake::readBehaviour(TKSMessage::JSONStringToObject(text, &error), problem);
}

}  // namespace

int main() {
  const std::string bundle = ownBundle();
  std::string problem;
  const std::optional<tks::fake::Behaviour> behaviour = ownBehaviour(bundle, problem);
  if (!behaviour) {
    std::fprintf(stderr, "fake launcher: %s\nIt is made and started as a bundle: tksctl fake-launcher.\n",
                 problem.c_str());
    return kWrongScript;
  }
  TKSMessageHost& channel = TKSMessageHost::sharedMessengeHost();
  tks::fake::Player player(channel, *behaviour, bundle);
  player.begin();
  TKSMainLoop::run();
  channel.close();
  std::_Exit(player.exitCode());
}
