#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <tksinterface/tksinterface.h>

#include "platform/platform.h"
#include "tests/support/FakeBundles.h"
#include "tests/support/FakeChildProcesses.h"
#include "tests/support/FakeClock.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FakePreferences.h"
#include "tests/support/FakeTools.h"
#include "tests/support/Frames.h"
#include "tests/support/HostLoop.h"
#include "tests/support/MemoryChannels.h"
#include "tests/support/TemporaryFolder.h"

namespace tks::test {

/// A world for a facade in which the test itself is the launcher: what is sent to it is heard here, and what it says
/// arrives over the pipe. Nothing is started, and nobody sleeps.
class FakeWorld {
 public:
  FakeHome home;
  FakeClock clock;
  PlayedBundles bundles;
  /// First of all, this is a lab device.
  FakePreferences preferences{{{"IsLabDevice", true}}};
  PlayedProcesses processes;
  FakeTools tools;
  /// What the assessment says; its tool may not be to be had.
  std::string assessment = "rejected\n";
  bool withoutAssessment = false;
  std::function<void()> onAssessment;
  MemoryChannels channels;
  TemporaryFolder folder;

  FakeWorld() {
    tools.play(platform::Tool::spctl, [this](const platform::ToolRequest&) {
      if (onAssessment) onAssessment();
      return withoutAssessment ? platform::ToolResult{} : FakeTools::printed(assessment);
    });
    tools.playOthers([](const platform::ToolRequest&) { return FakeTools::printed("print\n"); });
    writeFile(executable(), "#!/bin/false\n");
    std::filesystem::permissions(executable(), std::filesystem::perms::owner_all);
  }

  /// Lets the bundle name the launcher's identifier.
  void makeALauncherOfIt() const {
    writeFile(bundle() + "/Contents/Info.plist", "<plist><dict><key>CFBundleIdentifier</key><string>" +
                                                     std::string(TKSAppBundleID) + "</string></dict></plist>");
  }

  std::string bundle() const { return folder / "Launcher.app"; }
  std::string executable() const { return bundle() + "/Contents/MacOS/Launcher"; }

  /// The types of the messages that reached the launcher since the last time.
  std::vector<std::string> heard() {
    std::vector<std::string> types;
    for (const std::string& text : payloads(channels.output->take())) {
      lastMessage = platform::json().parse(text, nullptr);
      types.push_back(std::string(lastMessage["message_type"].text()));
    }
    return types;
  }
  TKSValue lastMessage;

  /// The launcher says something; `body` is JSON.
  void says(std::string_view type, std::string_view body = "\"\"") {
    std::string text = R"({"message_type":")";
    text.append(type).append(R"(","message":)").append(body).append("}");
    channels.input->arrive(frame(text));
  }
};

}  // namespace tks::test
