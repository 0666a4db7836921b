#pragma once

#include "tools/tksctl/frame/application.h"

namespace tks::ctl {

/// The program with all its commands. A new command is a file of this folder, a line here and a line in table.cpp.
const Application& tksctl();

Command assessCommand();
Command completionCommand();
Command deltaListCommand();
Command diagramCommand();
Command doctorCommand();
Command explainCommand();
Command fakeHostCommand();
Command fakeLauncherCommand();
Command manifestCommand();
Command installCommand();
Command launchCommand();
Command manualCommand();
Command maskCommand();
Command packCommand();
Command plistCommand();
Command prefsCommand();
Command provenanceCommand();
Command publishCommand();
Command recordCommand();
Command replayCommand();
Command statusCommand();
Command talkCommand();
Command verifyCommand();
Command versionCommand();

}  // namespace tks::ctl
