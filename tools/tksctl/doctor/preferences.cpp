#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include <filesystem>

#include "BuildValues.h"
#include "platform/platform.h"
#include "tools/tksctl/doctor/report.h"

namespace tks::ctl::doctor {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kLabDevice = "IsLabDevice";

/// A file of preferences that cannot be read loses nothing, but none of its values counts.
bool checkFile(Report& report, const std::string& path) {
  TKSError error;
  if (!platform::files().exists(path) || platform::files().size(path, nullptr) == 0u) return true;
  if (platform::propertyLists().readDictionary(path, &error)) return true;
  report.fail("preferences.files", "preferences", path + " cannot be read: " + error.localizedDescription,
              "Move the file away and set the preferences again; tksctl plist print shows what is wrong with it.");
  return false;
}

void checkLabDevice(Report& report, const std::string& path) {
  const std::string id = "preferences.labDevice";
  const auto values = platform::propertyLists().readDictionary(path, nullptr);
  const TKSValue value = values ? (*values)[kLabDevice] : TKSValue();
  if (value.isNothing()) return;
  const std::string domain = fs::path(path).stem().string();
  const std::string where = domain == ".GlobalPreferences" ? "" : " --domain " + domain;
  const std::string remedy = "Remove it where it is not wanted: tksctl prefs set IsLabDevice --remove" + where;
  if (!value.isNumber()) {
    return report.warn(id, "lab device", path + ": IsLabDevice is no number but " + std::string(value.className()),
                       remedy);
  }
  if (!value.boolean()) return;
  const std::string means =
      TKS_ALLOW_TEST_MODE ? "launchers are started whoever signed them" : "the library takes no notice of it";
  report.warn(id, "lab device", path + ": IsLabDevice is set, " + means, remedy);
}

}  // namespace

void checkPreferences(Report& report) {
  const std::string folder = TKSUtilBase::getUserPreferenceDirectory();
  std::error_code ignored;
  bool areReadable = true;
  std::size_t warnings = report.count(State::warn);
  for (const auto& entry : fs::directory_iterator(folder, ignored)) {
    const std::string path = entry.path().string();
    if (path.ends_with(".plist.damaged")) {
      report.warn("preferences.damaged", "damaged preferences", path, "Look at what the file held, then remove it.");
      continue;
    }
    if (!path.ends_with(".plist")) continue;
    areReadable &= checkFile(report, path);
    checkLabDevice(report, path);
  }
  if (!areReadable || report.count(State::warn) != warnings) return;
  report.pass("preferences.files", "preferences", "readable, this is no lab device");
}

}  // namespace tks::ctl::doctor
