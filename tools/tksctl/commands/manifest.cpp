#include <tksinterface/TKSUtilBase.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <span>

#include "foundation/values/FilePaths.h"
#include "platform/platform.h"
#include "tools/tksctl/commands/table.h"
#include "tools/tksctl/parts/browsers.h"

// Manifests of native-messaging hosts: the files that tell a browser which program to start for which extension.

namespace tks::ctl {
namespace {

constexpr std::size_t kLargestManifest = 1024 * 1024;

struct Wishes {
  std::string name;
  std::string program;
  std::string description = "Starts meetings";
  std::vector<std::string> origins;
  std::vector<std::string> extensions;
  std::vector<std::string> browsers;
  std::string folder;
  bool system = false;
  bool dryRun = false;
};

/// A manifest that is there or is to be there.
struct Place {
  const Browser* browser;
  std::string path;
};

/// What a manifest says, or nothing when there is none that can be read.
std::optional<TKSDictionary> manifestAt(const std::string& path) {
  const std::optional<TKSData> content = platform::files().read(path, kLargestManifest, nullptr);
  if (!content) return std::nullopt;
  const TKSValue value =
      TKSUtilBase::JSONStringToObject({reinterpret_cast<const char*>(content->data()), content->size()});
  return value.isDictionary() ? std::optional(value.dictionary()) : std::nullopt;
}

/// The browsers that are meant: the named ones; without a name those that the user has, or all for the whole system.
std::vector<const Browser*> chosen(const Wishes& wishes, bool all) {
  std::vector<const Browser*> found;
  for (const Browser& browser : browsers()) {
    const bool isNamed = std::ranges::find(wishes.browsers, browser.name) != wishes.browsers.end() ||
                         std::ranges::find(wishes.browsers, "all") != wishes.browsers.end();
    const bool isMeant = wishes.browsers.empty() && (all || wishes.system || isUsed(browser));
    if (isNamed || isMeant) found.push_back(&browser);
  }
  return found;
}

std::vector<Place> placesOf(const Wishes& wishes, bool all) {
  std::vector<Place> places;
  for (const Browser* browser : chosen(wishes, all)) {
    const std::string folder = wishes.folder.empty() ? manifestFolder(*browser, wishes.system) : wishes.folder;
    std::string path = folder + "/" + wishes.name + ".json";
    // Two browsers may share a folder for the whole system.
    if (std::ranges::find(places, path, &Place::path) == places.end()) places.push_back({browser, std::move(path)});
  }
  return places;
}

TKSDictionary manifestFor(const Wishes& wishes, const Browser& browser) {
  TKSArray callers;
  for (const std::string& one : browser.namesExtensions ? wishes.extensions : wishes.origins) callers.append(one);
  return {{"name", wishes.name},
          {"description", wishes.description},
          {"path", wishes.program},
          {"type", "stdio"},
          {browser.namesExtensions ? "allowed_extensions" : "allowed_origins", callers}};
}

TKSDictionary shown(const Place& place, const TKSDictionary& manifest) {
  const std::string program(manifest["path"].text());
  return {{"browser", place.browser->name},
          {"path", place.path},
          {"program", program},
          {"programRuns", platform::files().isExecutableFile(program)}};
}

/// What is wrong with the wishes of an installation; nothing when they are fine.
std::optional<std::string> fault(const Wishes& wishes) {
  if (!isHostName(wishes.name)) {
    return "\"" + wishes.name + "\" is no name of a host: lower-case letters, digits, \"_\", and single dots inside";
  }
  if (!wishes.program.starts_with('/')) return "the program's path has to be absolute: " + wishes.program;
  if (!platform::files().isExecutableFile(wishes.program)) {
    return "the program is not there or cannot be run: " + wishes.program;
  }
  for (const std::string& one : wishes.origins) {
    if (!one.starts_with("chrome-extension://") || !one.ends_with('/') || one.find('*') != one.npos) {
      return "\"" + one + "\" is no origin of an extension: chrome-extension://IDENTIFIER/";
    }
  }
  return std::nullopt;
}

/// Writes one manifest; true, with a note, when it is there or would be.
bool write(Context& context, const Wishes& wishes, const Place& place, TKSError& error) {
  std::string text = TKSUtilBase::objectToJSONString(manifestFor(wishes, *place.browser)).value_or("") + "\n";
  const std::string folder(folderOf(place.path));
  constexpr std::uint32_t kForEverybody = 0755;
  if (!wishes.dryRun) {
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    if (!platform::files().createDirectory(folder, kForEverybody, &error)) return false;
    if (!platform::files().writeAtomically(place.path, {bytes, text.size()}, &error)) return false;
  }
  context.out.line((wishes.dryRun ? "would write " : "wrote ") + place.path);
  return true;
}

Exit install(Context& context, const Wishes& wishes) {
  if (const std::optional<std::string> wrong = fault(wishes)) return context.out.fail(Exit::usage, *wrong);
  context.interrupts.hold();
  TKSArray written;
  for (const Place& place : placesOf(wishes, false)) {
    if ((place.browser->namesExtensions ? wishes.extensions : wishes.origins).empty()) {
      context.out.warn(std::string(place.browser->title) + " is left out: no " +
                       (place.browser->namesExtensions ? "--extension" : "--origin") + " may call the host there");
      continue;
    }
    TKSError error;
    if (!write(context, wishes, place, error)) return context.out.fail(error, "writing a manifest");
    written.append(shown(place, manifestFor(wishes, *place.browser)));
  }
  context.out.set("manifests", written);
  if (!written.empty()) return Exit::ok;
  context.out.note("no browser was found; name one with --browser");
  return Exit::nothingToDo;
}

/// Only what says itself that it is the manifest of this host is removed.
Exit remove(Context& context, const Wishes& wishes) {
  if (!isHostName(wishes.name)) return context.out.fail(Exit::usage, "\"" + wishes.name + "\" is no name of a host");
  TKSArray removed;
  for (const Place& place : placesOf(wishes, true)) {
    const std::optional<TKSDictionary> manifest = manifestAt(place.path);
    if (!manifest || (*manifest)["name"].text() != wishes.name) continue;
    TKSError error;
    if (!wishes.dryRun && !platform::files().remove(place.path, &error)) {
      return context.out.fail(error, "removing a manifest");
    }
    context.out.line((wishes.dryRun ? "would remove " : "removed ") + place.path);
    removed.append(shown(place, *manifest));
  }
  context.out.set("manifests", removed);
  return removed.empty() ? Exit::nothingToDo : Exit::ok;
}

/// The manifests in one folder.
void listFolder(Context& context, const Browser& browser, const std::string& folder, TKSArray& found) {
  std::vector<std::string> names = platform::files().list(folder, nullptr).value_or(std::vector<std::string>());
  std::ranges::sort(names);
  for (const std::string& name : names) {
    const Place place{&browser, folder + "/" + name};
    const std::optional<TKSDictionary> manifest = name.ends_with(".json") ? manifestAt(place.path) : std::nullopt;
    if (!manifest) continue;
    TKSDictionary row = shown(place, *manifest);
    context.out.line(std::string(browser.name) + "  " + place.path + "  " + std::string(row["program"].text()) +
                     (row["programRuns"].boolean() ? "" : "  (not there)"));
    found.append(std::move(row));
  }
}

Exit list(Context& context, const Wishes& wishes) {
  TKSArray found;
  for (const Browser* browser : chosen(wishes, true)) {
    if (!wishes.folder.empty()) {
      listFolder(context, *browser, wishes.folder, found);
      continue;
    }
    for (const bool system : {false, true}) {
      if (!system || wishes.system) listFolder(context, *browser, manifestFolder(*browser, system), found);
    }
  }
  context.out.set("manifests", found);
  return found.empty() ? Exit::nothingToDo : Exit::ok;
}

void addPlaceOptions(const CommandLine& line, Wishes& wishes) {
  std::vector<std::string> names{"all"};
  for (const Browser& browser : browsers()) names.emplace_back(browser.name);
  line.option("--browser", wishes.browsers, "for this browser; may be given again").oneOf(names);
  line.flag("--system", wishes.system, "for all users, not for this one");
  line.option("--folder", wishes.folder, "this folder, as of a profile with settings of its own");
}

Action setUp(const CommandLine& line) {
  const auto wishes = std::make_shared<Wishes>();
  const CommandLine installing = line.command("install", "writes manifests, for the browsers that are there");
  installing.option("--name", wishes->name, "the host's name, as extensions call it").required();
  installing.option("--program", wishes->program, "the host's program, an absolute path").required();
  installing.option("--origin", wishes->origins, "origin of an extension that may call; may be given again");
  installing.option("--extension", wishes->extensions, "the same for Firefox: an extension's identifier");
  installing.option("--description", wishes->description, "what the host is for");
  const CommandLine removing = line.command("remove", "removes manifests of a host");
  removing.option("--name", wishes->name, "the host's name").required();
  const CommandLine listing = line.command("list", "shows the manifests that are there");
  for (const CommandLine& each : {installing, removing, listing}) addPlaceOptions(each, *wishes);
  for (const CommandLine& each : {installing, removing}) {
    each.flag("--dry-run", wishes->dryRun, "say what would be done, and do nothing");
  }
  line.requireCommand();
  return [wishes, installing, removing](Context& context) {
    if (installing.isGiven()) return install(context, *wishes);
    return removing.isGiven() ? remove(context, *wishes) : list(context, *wishes);
  };
}

}  // namespace

Command manifestCommand() {
  return {.name = "manifest",
          .summary = "tells browsers of a native-messaging host",
          .description =
              "A browser starts a native-messaging host only when it finds the host's manifest in a folder of its own: "
              "one for each browser, for one user or for all. Without --browser, install writes for the browsers "
              "whose settings this user has; remove and list look at all.",
          .examples = {{"tksctl manifest install --name com.example.host --program /opt/example/host --origin "
                        "chrome-extension://abcdefghijklmnopabcdefghijklmnop/ --extension host@example.com",
                        "For each browser of this user."},
                       {"tksctl manifest list --system", "Those of this user and of all users."},
                       {"tksctl manifest remove --name com.example.host --dry-run", "What would be removed."}},
          .setUp = setUp};
}

}  // namespace tks::ctl
