#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "platform/linux/processes/tool_runner.h"
#include "tests/support/FakeTools.h"
#include "tests/support/TemporaryFolder.h"

namespace tks::test {

/// Tools that are real processes: scripts of the test's, and the system's own where `others` says so.
class ScriptedTools : public FakeTools {
 public:
  enum class Others { missing, ofTheSystem };

  explicit ScriptedTools(std::string folder, Others others) : folder_(std::move(folder)), others_(others) {
    useOthers(*runner_);
  }

  /// Puts a script in a tool's place; the lines are the shell's.
  void script(platform::Tool tool, const std::string& lines) {
    const std::string path = folder_ + "/tool" + std::to_string(static_cast<int>(tool));
    writeFile(path, "#!/bin/sh\n" + lines + "\n");
    std::filesystem::permissions(path, std::filesystem::perms(0755));
    paths_[tool] = path;
  }
  /// Puts another program in its place.
  void put(platform::Tool tool, std::string path) { paths_[tool] = std::move(path); }
  void remove(platform::Tool tool) { paths_[tool] = ""; }
  std::string pathOf(platform::Tool tool) const {
    if (const auto found = paths_.find(tool); found != paths_.end()) return found->second;
    return others_ == Others::ofTheSystem ? gnulinux::standardToolPath(tool) : std::string();
  }

 private:
  std::string folder_;
  Others others_;
  std::map<platform::Tool, std::string> paths_;
  std::unique_ptr<platform::SystemTools> runner_ =
      gnulinux::makeSystemTools([this](platform::Tool tool) { return pathOf(tool); });
};

}  // namespace tks::test
