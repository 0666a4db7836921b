#include "tests/support/BuildPaths.h"

namespace tks::test {

std::string buildFolder() { return TKS_BUILD_FOLDER; }

std::string testData(const std::string& name) { return std::string(TKS_TEST_DATA "/") + name; }

std::string fakeLauncherBundle() { return TKS_FAKE_LAUNCHER_BUNDLE; }

}  // namespace tks::test
