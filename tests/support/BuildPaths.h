#pragma once

#include <string>

namespace tks::test {

/// The folder into which all of this was built, without a closing slash.
std::string buildFolder();

/// The committed file or folder `name` of tests/data.
std::string testData(const std::string& name);

/// The bundle of the launcher that misbehaves on request.
std::string fakeLauncherBundle();

}  // namespace tks::test
