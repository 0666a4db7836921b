#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <tksinterface/tksinterface.h>

#include "platform/platform.h"
#include "tests/codesign/Fixtures.h"
#include "tests/support/BuildPaths.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeApplications.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FakeHostProcess.h"
#include "tests/support/ScriptedTools.h"
#include "tests/support/TemporaryFolder.h"

namespace tks::test {

/// What a launcher in an archive is to be like.
struct LauncherPlan {
  std::string version = "5.0.1";
  std::string signer = "maker";
  /// Further files: path in the bundle to content.
  std::map<std::string, std::string> files{};
  TKSData program = elfProgram();
};

inline std::string launcherInformation(std::string_view name, std::string_view identifier, std::string_view version) {
  std::string text = "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key><string>";
  text.append(name).append("</string><key>CFBundleIdentifier</key><string>").append(identifier);
  text.append("</string><key>CFBundlePackageType</key><string>APPL</string>");
  if (!version.empty()) text.append("<key>CFBundleVersion</key><string>").append(version).append("</string>");
  return text.append("<key>BuildArchitectures</key><string>x86_64 ARM64</string></dict></plist>\n");
}

/// A launcher with an app extension in it, notarized, signed unless the signer is empty.
inline std::string makeLauncher(const std::string& bundle, const LauncherPlan& plan = {}) {
  const std::string extension = bundle + "/Contents/PlugIns/Meeting.appex";
  writeFile(bundle + "/Contents/Info.plist", launcherInformation("Tarvo Kovra Start", TKSAppBundleID, plan.version));
  writeBytes(bundle + "/Contents/MacOS/Tarvo Kovra Start", plan.program);
  writeFile(extension + "/Contents/Info.plist", launcherInformation("Meeting", "com.tarvo.kovra.meeting", "1"));
  writeBytes(extension + "/Contents/MacOS/Meeting", elfProgram());
  writeFile(bundle + "/Contents/Resources/Grüße.lproj/Texts.strings", "texts of " + plan.version);
  std::filesystem::create_symlink("Grüße.lproj", bundle + "/Contents/Resources/link");
  for (const auto& [name, content] : plan.files) writeFile(bundle + "/" + name, content);
  if (!plan.signer.empty()) {
    signAs(extension, plan.signer);
    signAs(bundle, plan.signer);
  }
  writeFile(bundle + "/Contents/CodeResources", "s8ch of " + plan.version);
  return bundle;
}

/// Packs something of a folder with the system's zip.
inline std::string zipped(const std::string& folder, const std::string& name, const std::string& archive) {
  auto zip =
      ChildProcess::run("/bin/sh", {"-c", "cd \"$1\" && exec zip -qry \"$2\" \"$3\"", "zip", folder, archive, name});
  if (zip.wait() != 0) throw std::runtime_error("zip failed");
  return archive;
}

/// The real tools, but for those that a test replaces by scripts; notes what was run.
class InstallTools final : public ScriptedTools {
 public:
  explicit InstallTools(const std::string& folder) : ScriptedTools(folder, Others::ofTheSystem) {
    put(platform::Tool::spctl, buildFolder() + "/spctl");
    // The listing of open files is of no matter here, and takes its time.
    script(platform::Tool::lsof, "echo nothing");
    script(platform::Tool::shasum, "cat > /dev/null; echo 0123");
    limitTime(std::chrono::seconds(300));
  }
};

/// All that an installation meets, below one folder.
class InstallWorld {
 public:
  explicit InstallWorld(const std::string& base) : folders(base), tools(base), applications({base}) {
    host.bundleIdentifier = "com.tarvo.host";
  }

  FoldersBelow folders;
  FakeHostProcess host;
  InstallTools tools;
  OwnApplications applications;

  /// Where the unpacker put the launcher last.
  std::string unpackedByTool() const {
    std::string folder;
    for (const platform::ToolRequest& request : tools.requests) {
      if (request.tool == platform::Tool::unzip) folder = request.arguments.at(2);
    }
    return folder + "/" + std::string(TKSAppName);
  }
  std::string unpackFolder() { return folders.temporary() + "/com.tarvo.host"; }
  std::string unpacked() { return unpackFolder() + "/" + std::string(TKSAppName); }
};

/// What stands at a path: "none", "damaged", or the version of a launcher whose signature is whole.
inline std::string launcherAt(const std::string& bundle) {
  if (!std::filesystem::exists(std::filesystem::symlink_status(bundle))) return "none";
  if (installStatusOf(bundle) != 0) return "damaged";
  return TKSUtilBase::getBundleVersion(bundle).description();
}

inline std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
    names.push_back(entry.path().filename());
  }
  return names;
}

}  // namespace tks::test
