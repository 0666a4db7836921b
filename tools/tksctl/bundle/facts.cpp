#include <sys/utsname.h>
#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSIAppManager.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include <array>
#include <deque>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "BuildValues.h"
#include "platform/platform.h"
#include "tools/tksctl/bundle/content.h"
#include "tools/tksctl/doctor/report.h"
#include "tools/tksctl/frame/json_values.h"
#include "tools/tksctl/parts/signatures.h"

// What this computer says of itself: versions, preferences, the launcher's signature, the doctor's report.

namespace tks::ctl {
namespace {

namespace fs = std::filesystem;

/// "Debian GNU/Linux 12 (bookworm)"
std::string systemName() {
  std::ifstream file("/etc/os-release");
  constexpr std::string_view kKey = "PRETTY_NAME=";
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with(kKey)) continue;
    std::string name = line.substr(kKey.size());
    std::erase(name, '"');
    return name;
  }
  return {};
}

/// Preferences that decide what the library and the launcher do. No others are shown.
TKSDictionary relevantOf(const TKSDictionary& list) {
  const std::array keys{TKSUserDefaultsKeyIsLabDevice,
                        TKSUserDefaultsKeyLabDeviceMeetingPath,
                        TKSUserDefaultsKeyInstallTime,
                        TKSUserDefaultsKeyDaemonPID,
                        TKSUserDefaultsKeyPrefetchPID,
                        TKSUserDefaultsKeySelfUpdatingPID,
                        TKSUserDefaultsKeyUniversalLinks,
                        TKSUserDefaultsKeyUniversalLinksLocalToggle,
                        TKSUserDefaultsKeySiteLanguageID,
                        TKSToggleKeyOptimizeForAppleSilicon,
                        TKSToggleKeyEnableDeltaUpdate,
                        TKSToggleKeyEnableJoinFirstUpdateLater,
                        TKSToggleKeyEnableRealTimeAlarmQualityIssue,
                        TKSToggleKeyClientSPCompatibleVersionNo,
                        TKSToggleKeyEnableFollowSite,
                        TKSToggleKeyEnableNewMTA,
                        TKSToggleKeyEnableMacClientWarmUp,
                        TKSToggleKeyMacWarmUpPolicy,
                        std::string_view("AppleLocale")};
  TKSDictionary relevant;
  for (const std::string_view key : keys) {
    if (list.contains(key)) relevant.set(key, list[key]);
  }
  return relevant;
}

/// The last lines of the library's log, kept as long as it lives. Lines come from any thread; others get them as well.
class LogRing {
 public:
  LogRing() : before_(TKSILog::sharedInstance().logBlock()) {
    TKSILog::sharedInstance().setLogBlock([this](std::int32_t level, const std::string& line) {
      if (before_) before_(level, line);
      const std::scoped_lock lock(mutex_);
      const double now = platform::clock().secondsSince1970();
      lines_.push_back(momentText(now) + " [" + std::to_string(level) + "] " + oneLine(line));
      if (lines_.size() > kMostLines) lines_.pop_front();
    });
  }
  ~LogRing() { TKSILog::sharedInstance().setLogBlock(before_); }
  LogRing(const LogRing&) = delete;
  LogRing& operator=(const LogRing&) = delete;

  std::string text() const {
    const std::scoped_lock lock(mutex_);
    std::string all;
    for (const std::string& line : lines_) all.append(line).append("\n");
    return all;
  }

 private:
  static constexpr std::size_t kMostLines = 5000;
  TKSLogBlock before_;
  mutable std::mutex mutex_;
  std::deque<std::string> lines_;
};

/// The names in the certificates of a signer that is not the maker: perhaps a person's.
TKSDictionary withoutSigners(TKSDictionary report) {
  if (report["maker"].boolean()) return report;
  TKSArray chain;
  for (const TKSValue& each : report["chain"].array()) {
    TKSDictionary certificate = each.dictionary();
    for (const char* key : {"commonName", "organization", "organizationalUnit", "issuer"}) certificate.set(key, "***");
    chain.append(certificate);
  }
  if (report.contains("chain")) report.set("chain", chain);
  for (const char* key : {"requirement", "team", "makerText"}) {
    if (report.contains(key)) report.set(key, "***");
  }
  return report;
}

}  // namespace

void collectVersions(BundleContent& content) {
  utsname system{};
  ::uname(&system);
  content.addDocument("versions.json", "versions of library and system",
                      TKSDictionary{{"library", TKS_PROJECT_VERSION},
                                    {"team", TKS_TEAM_ID},
                                    {"testModeAllowed", TKS_ALLOW_TEST_MODE != 0},
                                    {"strictMakerCheck", TKS_STRICT_MAKER_CHECK != 0},
                                    {"system", systemName()},
                                    {"kernelVersion", std::string(system.release)},
                                    {"machine", std::string(system.machine)}});
}

void collectPreferences(BundleContent& content) {
  TKSDictionary files;
  std::error_code failed;
  for (const auto& entry : fs::directory_iterator(TKSUtilBase::getUserPreferenceDirectory(), failed)) {
    if (entry.path().extension() != ".plist") continue;
    const std::string name = entry.path().stem().string();
    TKSError error;
    const auto list = platform::propertyLists().readDictionary(entry.path().string(), &error);
    if (!list) {
      files.set(name, "cannot be read: " + error.localizedDescription);
    } else if (const TKSDictionary relevant = relevantOf(*list); !relevant.empty()) {
      files.set(name, relevant);
    }
  }
  if (failed) content.miss("preferences", "the folder of preferences: " + failed.message());
  TKSDictionary sites;
  TKSIAppManager manager;
  if (const auto recorded = manager.getRecordedSites()) sites = *recorded;
  content.addDocument("preferences.json", "preferences that matter here, and the sites of earlier meetings",
                      TKSDictionary{{"files", files}, {"sites", sites}});
}

void collectSignature(BundleContent& content, const BundleWishes& wishes) {
  doctor::Wishes about;
  about.launcher = wishes.launcher;
  const std::string path = doctor::launcherPath(about);
  if (!platform::files().exists(path)) return content.miss("signature", "there is no launcher at " + path);
  TKSDictionary report = withoutSigners(signatureReport(path, true));
  report.set("version", TKSUtilBase::getBundleVersion(path));
  content.addDocument("signature.json", "the launcher's version and signature", report);
}

void collectDoctor(BundleContent& content, const BundleWishes& wishes, Context& context) {
  doctor::Wishes asked;
  asked.launcher = wishes.launcher;
  asked.withoutStart = wishes.withoutStart;
  // What the checks show goes into the bundle only.
  OutputWishes silent;
  silent.json = true;
  Output nowhere("tksctl", "doctor", silent);
  Context quiet{nowhere, context.interrupts, true};
  doctor::Report report(quiet);
  const LogRing ring;
  try {
    doctor::checkAll(report, asked);
  } catch (const std::exception& stopped) {
    content.miss("further checks of the doctor", stopped.what());
  }
  content.addDocument("doctor.json", "the doctor's report", TKSDictionary{{"checks", report.document()}});
  content.addText("log.txt", "the library's log while the doctor was at work", ring.text());
}

}  // namespace tks::ctl
