#include <tksinterface/TKSMessage.h>
#include <tksinterface/TKSUtilBase.h>

#include <filesystem>
#include <memory>
#include <optional>

#include "platform/platform.h"
#include "tools/tksctl/commands/table.h"
#include "tools/tksctl/doubles/launcher_maker.h"
#include "tools/tksctl/frame/json_values.h"
#include "tools/tksctl/parts/signing_identity.h"

namespace tks::ctl {
namespace {

constexpr std::string_view kUsualVersion = "5.0.0";

struct Wishes {
  std::string folder;
  std::string behaviourFile;
  std::string identityFolder;
  std::string version;
};

/// The script, checked; nothing, and the reason told, when it cannot be used.
std::optional<TKSDictionary> readScript(const std::string& path, Output& out) {
  if (path.empty()) return TKSDictionary();
  constexpr std::size_t kLargestScript = 16 * 1024 * 1024;
  TKSError error;
  const auto content = platform::files().read(path, kLargestScript, &error);
  if (!content) {
    out.fail(error);
    return std::nullopt;
  }
  const std::string text(content->begin(), content->end());
  const TKSValue script = TKSUtilBase::JSONStringToObject(text, &error);
  if (!script.isDictionary()) {
    out.fail(Exit::failed, path + " is no JSON object", error.localizedDescription);
    return std::nullopt;
  }
  std::string problem;
  if (fake::readBehaviour(script, problem)) return script.dictionary();
  out.fail(Exit::failed, path + ": " + problem, "docs/testing.md lists what a behaviour can say.");
  return std::nullopt;
}

/// Who signs it: the one that is named, or one made for it alone.
codesign::SigningIdentity identityFor(const std::string& folder) {
  IdentityWishes named;
  named.folder = folder;
  return folder.empty() ? newIdentity({}) : loadIdentity(named);
}

/// The versions that it updates itself to, one after the other.
TKSArray updatesOf(const TKSDictionary& behaviour, std::string version) {
  TKSArray versions;
  for (TKSValue next = behaviour["update"]; next.isDictionary(); next = TKSValue(next["update"])) {
    if (next["version"].isText()) version = next["version"].text();
    versions.append(version);
  }
  return versions;
}

Exit make(Context& context, const Wishes& wishes) {
  const std::optional<TKSDictionary> behaviour = readScript(wishes.behaviourFile, context.out);
  if (!behaviour) return Exit::failed;
  context.interrupts.hold();
  const codesign::SigningIdentity identity = identityFor(wishes.identityFolder);
  FakeLauncherPlan plan;
  plan.folder = std::filesystem::absolute(wishes.folder).lexically_normal().string();
  plan.behaviour = *behaviour;
  plan.version = wishes.version.empty() ? std::string((*behaviour)["version"].text()) : wishes.version;
  if (plan.version.empty()) plan.version = kUsualVersion;
  TKSError error;
  const auto path = makeFakeLauncher(
      plan, identity, [&] { return context.interrupts.came(); }, &error);
  if (context.interrupts.came() && !path) return context.out.fail(Exit::interrupted, "interrupted");
  if (!path) return context.out.fail(error, "no launcher was made");
  context.out.line(*path);
  context.out.set("path", *path);
  context.out.set("version", plan.version);
  context.out.set("updates", updatesOf(*behaviour, plan.version));
  return Exit::ok;
}

}  // namespace

Command fakeLauncherCommand() {
  return {
      .name = "fake-launcher",
      .summary = "makes a signed launcher that behaves as a script says, for tests of hosts",
      .description =
          "Makes DIR/\"Tarvo Kovra Start.app\" and prints its path. Without a behaviour it does what a launcher owes "
          "its "
          "host. A behaviour is a JSON object: under \"on\", by the type of a message, what to do instead of "
          "answering, "
          "step by step: waits, answers, errors with codes, half frames, stray bytes, silence, exits, an update of "
          "itself. docs/testing.md is the guide.\n\n"
          "It is signed by the identity, or by one that is made for it alone. A fake launcher that stands there "
          "already is replaced; nothing else is.",
      .examples = {{"tksctl fake-launcher build/good", "A launcher without faults."},
                   {"tksctl fake-launcher build/busy --behaviour busy.json",
                    "One that refuses, with {\"on\": {\"launch_meeting\": [{\"error\": \"2006\"}]}} in busy.json."}},
      .setUp = [](const CommandLine& line) -> Action {
        auto wishes = std::make_shared<Wishes>();
        line.option("folder", wishes->folder, "Where it goes; the folder is made where it is missing")
            .required()
            .typeName("DIR");
        line.option("--behaviour", wishes->behaviourFile, "What it does, as JSON").typeName("FILE");
        line.option("--identity", wishes->identityFolder, "Who signs it: a folder made by sign --make-identity")
            .typeName("ID");
        line.option("--version", wishes->version, "Its version; else the behaviour's, else 5.0.0").typeName("V");
        return [wishes](Context& context) { return make(context, *wishes); };
      }};
}

}  // namespace tks::ctl
