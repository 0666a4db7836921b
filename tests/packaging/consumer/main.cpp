// Uses what only an intact installation has: headers, the library, its main loop, and the assessment, which says here
// that a folder is no application. Before that it compares the headers that it was compiled with and the library that
// it runs with.

#include <tksinterface/tksinterface.h>

#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>

int main(int, char** arguments) {
  if (!TKSVersion::isCompatible()) {
    std::printf("compiled for %d, which library %s does not serve\n", TKS_VERSION, TKSVersion::text().data());
    return 3;
  }
  bool assessed = false;
  TKSInterface::sharedInstance().setLogBlock([&](std::int32_t level, const std::string& line) {
    assessed |= level == TKSILogLevelError && line.starts_with("Broken details: ") &&
                line.find("bundle format unrecognized") != line.npos;
  });
  const auto folder = std::filesystem::absolute(arguments[0]).parent_path() / "Nothing.app";
  std::filesystem::create_directories(folder / "Contents/MacOS");
  const bool broken = TKSUtilBase::isBrokenApp(folder.string());

  std::string reason;
  TKSUtilBase::launchAppWithExePath("/nonexistent/Launcher", {},
                                    [&](const auto&, const std::optional<TKSError>& error) {
                                      reason = error ? error->localizedDescription : "none";
                                      TKSMainLoop::stop();
                                    });
  TKSMainLoop::run();
  std::printf("%d %d %d %s\n", broken, assessed, TKSUtilBase::isNewerVersion("5.1", "5.0"), reason.c_str());
}
