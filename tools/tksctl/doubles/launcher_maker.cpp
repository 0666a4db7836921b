#include "tools/tksctl/doubles/launcher_maker.h"

#include <tksinterface/TKSConstants.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <span>
#include <string_view>

#include "BuildValues.h"
#include "foundation/values/ErrorReasons.h"
#include "foundation/values/FilePaths.h"
#include "platform/platform.h"
#include "tools/tksctl/frame/json_values.h"

namespace tks::ctl {
namespace {

using platform::files;

constexpr std::uint32_t kForAll = 0755;
/// How the ticket of a notarized application begins.
constexpr std::string_view kTicket = "s8ch, as a stapled ticket begins";

bool fail(TKSError* error, TKSErrorReason reason, std::string text) {
  *error = makeError(reason, "tksctl", 1, std::move(text));
  return false;
}

bool write(const std::string& path, std::string_view text, TKSError* error) {
  const std::span bytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  constexpr std::uint32_t kReadable = 0644;
  return files().writeAtomically(path, bytes, error) && files().setPermissions(path, kReadable, error);
}

TKSDictionary informationFor(const std::string& version) {
  return {{"CFBundleExecutable", TKSExeName}, {"CFBundleIdentifier", TKSAppBundleID},  {"CFBundleName", TKSExeName},
          {"CFBundlePackageType", "APPL"},    {"CFBundleShortVersionString", version}, {"CFBundleVersion", version}};
}

bool makeFolders(const std::string& bundle, TKSError* error) {
  for (const char* name : {"Contents/MacOS", "Contents/Resources"}) {
    if (!files().createDirectory(joinedPath(bundle, name), kForAll, error)) return false;
  }
  return true;
}

bool sign(const std::string& bundle, const codesign::SigningIdentity& identity, TKSError* error) {
  codesign::SigningOptions options;
  if (identity.canStamp()) options.timeStamp = std::time(nullptr);
  const codesign::Outcome outcome = codesign::sign(bundle, &identity, options);
  if (!outcome.isGood()) return fail(error, TKSErrorReason::systemFailed, "cannot sign: " + outcome.description());
  return write(joinedPath(bundle, "Contents/CodeResources"), kTicket, error);
}

/// Makes a bundle, first the one inside that it updates itself to.
bool makeBundle(const std::string& bundle, const TKSDictionary& behaviour, const std::string& version,
                const std::string& program, const codesign::SigningIdentity& identity, TKSError* error) {
  const std::string executable = joinedPath(joinedPath(bundle, "Contents/MacOS"), TKSExeName);
  if (!makeFolders(bundle, error) || !files().copyContent(program, executable, error) ||
      !files().setPermissions(executable, kForAll, error) ||
      !platform::propertyLists().writeDictionary(informationFor(version), joinedPath(bundle, "Contents/Info.plist"),
                                                 error) ||
      !write(joinedPath(bundle, fake::kScriptInBundle), prettyJson(jsonable(behaviour)) + "\n", error)) {
    return false;
  }
  if (const TKSValue& next = behaviour["update"]; next.isDictionary()) {
    const std::string inside = joinedPath(joinedPath(bundle, fake::kUpdateInBundle), TKSAppName);
    const std::string nextVersion(next["version"].isText() ? next["version"].text() : std::string_view(version));
    if (!makeBundle(inside, next.dictionary(), nextVersion, program, identity, error)) return false;
  }
  return sign(bundle, identity, error);
}

/// Puts what was made in its place.
bool takePlace(const std::string& fresh, const std::string& path, TKSError* error) {
  if (!files().exists(path) && !files().isLink(path)) return files().move(fresh, path, error);
  if (files().isLink(path) || !files().exists(joinedPath(path, fake::kScriptInBundle))) {
    return fail(error, TKSErrorReason::alreadyExists, path + " is no fake launcher and is left alone");
  }
  return files().exchange(fresh, path, error);
}

}  // namespace

std::string fakeLauncherProgram(TKSError* error) {
  constexpr std::string_view kName = "fake-launcher";
  std::error_code ignored;
  const std::string here = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path().string();
  std::string places;
  for (const std::string& folder : {here + "/../libexec/tksinterface", std::string(TKS_LIBEXEC_FOLDER), here}) {
    std::string path = joinedPath(folder, kName);
    if (files().isExecutableFile(path)) return path;
    places.append(places.empty() ? "" : ", ").append(path);
  }
  fail(error, TKSErrorReason::toolMissing, "the program for fake launchers is missing: " + places);
  return {};
}

std::optional<std::string> makeFakeLauncher(const FakeLauncherPlan& plan, const codesign::SigningIdentity& identity,
                                            const std::function<bool()>& isStopped, TKSError* error) {
  const std::string program = fakeLauncherProgram(error);
  if (program.empty() || !files().createDirectory(plan.folder, kForAll, error)) return std::nullopt;
  const auto workshop = files().makePrivateDirectory(joinedPath(plan.folder, ".fake-launcher-"), error);
  if (!workshop) return std::nullopt;
  const std::string fresh = joinedPath(*workshop, TKSAppName);
  const std::string path = joinedPath(plan.folder, TKSAppName);
  const bool isMade = makeBundle(fresh, plan.behaviour, plan.version, program, identity, error) && !isStopped() &&
                      takePlace(fresh, path, error);
  files().remove(*workshop, nullptr);
  return isMade ? std::optional(path) : std::nullopt;
}

}  // namespace tks::ctl
