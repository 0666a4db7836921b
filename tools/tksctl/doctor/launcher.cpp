#include <elf.h>
#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "codesign/assessment.h"
#include "platform/platform.h"
#include "tools/tksctl/catalogue/catalogue.h"
#include "tools/tksctl/doctor/report.h"
#include "tools/tksctl/parts/signatures.h"

namespace tks::ctl::doctor {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kInstall = "Install it: tksctl install ZIP --version V, or let the host offer an archive.";
constexpr std::string_view kInstallAgain = "Install the launcher again from its maker.";

struct MachineRow {
  int number;
  std::string_view name;
};
/// Values of e_machine in the headers of ELF files (elf.h), by the names that uname gives them.
constexpr MachineRow kMachines[] = {{EM_386, "i686"},        {EM_ARM, "arm"},       {EM_X86_64, "x86_64"},
                                    {EM_AARCH64, "aarch64"}, {EM_RISCV, "riscv64"}, {EM_PPC64, "ppc64le"}};

/// The machine that a program is made for, by its first bytes: "x86_64"; "script", or "other" for what is no ELF file.
std::string machineOf(const std::string& program) {
  unsigned char head[20] = {};
  std::ifstream(program, std::ios::binary).read(reinterpret_cast<char*>(head), sizeof head);
  const bool isElf = std::memcmp(head, ELFMAG, SELFMAG) == 0;
  if (!isElf) return head[0] == '#' && head[1] == '!' ? "script" : "other";
  const int number = head[18] + 256 * head[19];
  const auto row = std::ranges::find(kMachines, number, &MachineRow::number);
  return row != std::end(kMachines) ? std::string(row->name) : "ELF " + std::to_string(number);
}

/// What this very program is.
std::string ownMachine() { return machineOf("/proc/self/exe"); }

bool checkProgram(Report& report, const std::string& program) {
  const std::string id = "launcher.program";
  const std::string title = "its program";
  if (!fs::is_regular_file(program)) {
    report.fail(id, title, "Info.plist names a program that is not there: " + program, std::string(kInstallAgain),
                Exit::brokenLauncher);
    return false;
  }
  if (::access(program.c_str(), X_OK) != 0) {
    const std::string remedy =
        errno == EACCES ? "Make it executable: chmod 755 \"" + program + "\"" : std::string(kInstallAgain);
    report.fail(id, title, program + " may not be executed", remedy, Exit::noPermission);
    return false;
  }
  const std::string machine = machineOf(program);
  if (machine != "script" && machine != ownMachine()) {
    report.fail(id, title, program + " is made for another processor or system",
                "Install a launcher for this computer.", Exit::brokenLauncher);
    return false;
  }
  report.pass(id, title, program + (machine == "script" ? ", a script" : ", for " + machine));
  return true;
}

void checkVersion(Report& report, const platform::Bundle& bundle) {
  const std::string identifier(bundle.infoDictionary["CFBundleIdentifier"].text());
  if (identifier != TKSAppBundleID) {
    report.warn("launcher.identifier", "its identifier", identifier.empty() ? "none" : identifier,
                "A launcher has the identifier " + std::string(TKSAppBundleID) + "; check the path.");
  }
  const std::string version(bundle.infoDictionary["CFBundleVersion"].text());
  if (!version.empty() && TKSUtilBase::isSupportedTKSVersion(version)) {
    return report.pass("launcher.version", "its version", version);
  }
  report.fail("launcher.version", "its version", version.empty() ? "none" : version + " is not supported any more",
              "Install a newer launcher.", Exit::brokenLauncher);
}

/// The certificates of the signature, the maker's first.
void tellChain(Report& report, const TKSDictionary& signature) {
  const TKSValue& team = signature["team"];
  report.pass("launcher.team", "its team", team.isText() ? std::string(team.text()) : "none");
  std::string seen;
  const TKSValue& chain = signature["chain"];
  for (std::size_t i = 0; chain.isArray() && i < chain.array().size(); ++i) {
    const TKSValue& certificate = chain[i];
    seen.append(seen.empty() ? "" : "; ").append(certificate["commonName"].text());
    seen.append(certificate["validNow"].boolean() ? " (valid until " : " (not valid now, until ");
    seen.append(certificate["notAfter"].text()).append(")");
  }
  report.pass("launcher.chain", "its certificates", seen.empty() ? "none" : seen);
}

void checkSignature(Report& report, const std::string& path) {
  const TKSDictionary signature = signatureReport(path, true);
  const std::int64_t status = signature["status"].integer();
  const std::string id = "launcher.signature";
  if (status != 0) {
    std::string seen = std::string(signature["statusText"].text()) + " (" + std::to_string(status) + ")";
    for (const char* kind : {"concerns", "altered", "missing", "added"}) {
      const TKSValue& about = signature[kind];
      if (about.isText()) seen.append(", ").append(about.text());
      if (about.isArray() && !about.array().empty())
        seen.append(", ").append(kind).append(": ").append(about[0].text());
    }
    report.fail(id, "its signature", seen, explainStatus(status).remedy, Exit::notTrusted);
  } else {
    const TKSValue& stamp = signature["timeStamp"];
    report.pass(id, "its signature",
                stamp.isText() ? "good, time stamp " + std::string(stamp.text()) : "good, no time stamp");
  }
  if (signature["maker"].boolean()) {
    report.pass("launcher.maker", "its maker", std::string(signature["chain"][0]["commonName"].text()));
  } else {
    report.fail("launcher.maker", "its maker", std::string(signature["makerText"].text()),
                "Install the launcher from its maker; do not start what is there.", Exit::notTrusted);
  }
  if (signature["signed"].boolean()) tellChain(report, signature);
}

void checkAssessment(Report& report, const std::string& path) {
  const assessment::Verdict verdict = assessment::assess(path, 1);
  const std::string first = verdict.text.substr(0, verdict.text.find('\n'));
  const std::string seen = first.starts_with(path)
                               ? first.substr(path.size() + std::min<std::size_t>(2, first.size() - path.size()))
                               : first;
  if (verdict.exitCode == assessment::kAccepted) return report.pass("launcher.assessment", "its assessment", seen);
  report.warn("launcher.assessment", "its assessment", seen,
              "The library may take it for broken and remove it after a failed start: use a notarized launcher.");
}

void checkMarks(Report& report, const std::string& path) {
  TKSError error;
  const auto attributes = platform::files().attributes(path, &error);
  if (attributes && attributes->extendedAttributes.contains("com.apple.quarantine")) {
    report.warn(
        "launcher.quarantine", "its quarantine mark", "it is marked as downloaded",
        "Remove the mark: setfattr -x user.com.apple.quarantine \"" + path + "\", or install it with tksctl install.");
  }
  const std::string parent = fs::path(path).parent_path().string();
  if (::access(path.c_str(), W_OK) == 0 && ::access(parent.c_str(), W_OK) == 0) return;
  report.warn("launcher.rights", "its rights", "this user may not replace " + path,
              "Give the launcher and its folder to this user, else no update can be installed.");
}

void checkRunning(Report& report, const std::string& path) {
  std::string running;
  for (const TKSRunningApplication& application : platform::runningApplications().list()) {
    if (application.bundlePath != path) continue;
    running.append(running.empty() ? "" : ", ").append(std::to_string(application.processIdentifier));
  }
  report.pass("launcher.running", "its processes", running.empty() ? "none" : running);
}

}  // namespace

void checkLauncher(Report& report, const Wishes& wishes) {
  const std::string path = launcherPath(wishes);
  if (!fs::exists(path)) {
    if (!wishes.backup.empty()) {
      return report.warn("launcher.path", "launcher", "none at " + path, "A start installs the one of the archive.");
    }
    return report.fail("launcher.path", "launcher", "none at " + path, std::string(kInstall), Exit::brokenLauncher);
  }
  const auto bundle = platform::bundles().open(path);
  if (!bundle || bundle->infoDictionary.empty()) {
    return report.fail("launcher.path", "launcher", path + " has no readable Contents/Info.plist",
                       std::string(kInstallAgain), Exit::brokenLauncher);
  }
  report.pass("launcher.path", "launcher", path);
  checkVersion(report, *bundle);
  checkProgram(report, bundle->executablePath);
  checkSignature(report, path);
  checkAssessment(report, path);
  checkMarks(report, path);
  checkRunning(report, path);
}

}  // namespace tks::ctl::doctor
