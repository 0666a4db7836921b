#include <fcntl.h>
#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSURL.h>
#include <tksinterface/TKSUtilBase.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>

#include "foundation/values/FilePaths.h"
#include "foundation/values/JsonWriter.h"
#include "foundation/values/Utf8.h"
#include "platform/platform.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/posix_error.h"
#include "tools/tksctl/commands/table.h"
#include "tools/tksctl/frame/json_values.h"
#include "tools/tksctl/parts/archive_writer.h"
#include "tools/tksctl/parts/delta_packages.h"
#include "tools/tksctl/parts/file_content.h"
#include "tools/tksctl/parts/file_digest.h"
#include "tools/tksctl/parts/first_failure.h"
#include "tools/tksctl/parts/scratch.h"
#include "tools/tksctl/parts/signing_identity.h"

// The list of delta packages: a tar archive with a signed "deltalist.json" in it.

namespace tks::ctl {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kPublished = "deltalist.json.delta";
constexpr std::string_view kList = "deltalist.json";
constexpr std::string_view kSideCar = "._deltalist.json";
constexpr std::string_view kPackageSuffix = ".delta";
constexpr const char* kInterrupted = "interrupted: nothing was published";
constexpr std::size_t kLargestList = std::size_t{64} << 20;

struct Wishes {
  std::string folder;
  IdentityWishes identity;
  bool timeStamp = false;
  /// 0: the list does not say.
  int validDays = 0;
  int listVersion = 0;
};

/// What clients call a package: of two with one name they see the last.
std::string keyOf(std::string name) {
  std::ranges::replace(name, '-', '.');
  return name;
}

/// Clients refuse a name that could lead elsewhere, and a list whose texts are none.
void refuseUnusable(const std::string& name) {
  const bool isPlain = utf8::isValid(name) && name.find('\\') == std::string::npos;
  if (!isPlain) throw std::runtime_error("clients would skip the name " + oneLine(validText(name)));
}

/// Names of the packages in a folder, in byte order.
std::vector<std::string> packagesIn(const std::string& folder, Output& out) {
  TKSError error;
  const auto names = platform::files().list(folder, &error);
  if (!names) throw std::runtime_error(error.localizedDescription);
  std::map<std::string, std::string> byKey;
  std::vector<std::string> packages;
  for (const std::string& name : *names) {
    if (name == kPublished) continue;
    if (!name.ends_with(kPackageSuffix) || !fs::is_regular_file(joinedPath(folder, name))) {
      out.detail(1, "left out, no delta package: " + oneLine(name));
      continue;
    }
    refuseUnusable(name);
    const auto [other, isNew] = byKey.emplace(keyOf(name), name);
    if (!isNew) throw std::runtime_error(name + " and " + other->second + " are one version for clients");
    packages.push_back(name);
  }
  std::ranges::sort(packages);
  return packages;
}

/// The list, up to a signal; nothing, and the error, when a package cannot be read.
std::optional<TKSArray> listOf(const std::string& folder, const std::vector<std::string>& packages,
                               const Interrupts& interrupts, TKSError* error) {
  TKSArray list;
  for (const std::string& name : packages) {
    if (interrupts.came()) break;
    const std::optional<FileDigest> digest = digestOf(joinedPath(folder, name), error);
    if (!digest) return std::nullopt;
    list.append(
        TKSDictionary{{"name", name}, {"size", static_cast<std::int64_t>(digest->size)}, {"hash", digest->sha256}});
  }
  return list;
}

/// The list with what it says of itself: an entry without a name, which readers that do not know it skip.
std::string listText(TKSArray list, const Wishes& wishes) {
  constexpr std::int64_t kDay = 24 * 60 * 60;
  TKSDictionary itself;
  if (wishes.validDays > 0) itself.set("expires", std::int64_t{std::time(nullptr)} + wishes.validDays * kDay);
  if (wishes.listVersion > 0) itself.set("listVersion", wishes.listVersion);
  if (!itself.empty()) list.append(itself);
  return json::write(list).value_or("");
}

/// Writes the signed list to an archive. The signature stands beside the list, and before it: some unpackers join the
/// two on the way.
void makeArchive(const Scratch& scratch, const std::string& text, const Wishes& wishes, const std::string& archive) {
  const std::string list = scratch.place(kList);
  TKSError error;
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  if (!platform::files().writeAtomically(list, {bytes, text.size()}, &error)) {
    throw std::runtime_error(error.localizedDescription);
  }
  const codesign::SigningIdentity identity = loadIdentity(wishes.identity);
  codesign::SigningOptions options;
  options.storage = codesign::Storage::sideCar;
  if (wishes.timeStamp) {
    if (!identity.canStamp()) throw std::runtime_error("a time stamp needs an identity with an authority of its own");
    options.timeStamp = std::time(nullptr);
  }
  require(codesign::sign(list, &identity, options), "the list");
  const posix::FileDescriptor file(::open(archive.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file) throw std::runtime_error("cannot create " + archive);
  ArchiveWriter writer(file.get(), ArchiveWriter::Format::tar);
  writer.addContent(std::string(kSideCar), contentOf(scratch.place(kSideCar), kLargestList));
  writer.addContent(std::string(kList), contentOf(list, kLargestList));
  writer.finish();
}

/// Whether a client finds in the folder what was meant.
Exit prove(Output& out, const std::string& folder, const TKSArray& list) {
  const FirstFailure failure;
  TKSError error;
  const auto seen = TKSUtilBase::avaliableDeltaUpdates(TKSURL::fileURLWithPath(folder).absoluteString(), &error);
  if (!seen) {
    if (const std::string line = failure.line(); !line.empty()) error.localizedDescription = line;
    return out.fail(error, "clients would refuse the list");
  }
  for (const TKSValue& entry : list) {
    const TKSValue package = (*seen)[keyOf(std::string(entry["name"].text()))];
    const bool isSame =
        package["version"] == entry["name"] && package["hash"] == entry["hash"] && package["size"] == entry["size"];
    if (!isSame) return out.fail(Exit::failed, "clients would not see " + std::string(entry["name"].text()));
  }
  return Exit::ok;
}

Exit publish(Context& context, const Wishes& wishes) {
  Output& out = context.out;
  if (!wishes.identity.isGiven()) return out.fail(Exit::usage, "say with which identity to sign; see --help");
  if (!fs::is_directory(wishes.folder)) return out.fail(Exit::failed, "there is no folder at " + wishes.folder);
  context.interrupts.hold();
  const std::vector<std::string> packages = packagesIn(wishes.folder, out);
  if (packages.empty()) {
    out.note("no file in " + wishes.folder + " ends in " + std::string(kPackageSuffix));
    return Exit::nothingToDo;
  }
  TKSError error;
  const std::optional<TKSArray> list = listOf(wishes.folder, packages, context.interrupts, &error);
  if (context.interrupts.came()) return out.fail(Exit::interrupted, kInterrupted);
  if (!list) return out.fail(error);
  const Scratch scratch(&error);
  const std::string served = scratch.place("served");
  if (scratch.path().empty() || !platform::files().createDirectory(served, 0700, &error)) return out.fail(error);
  makeArchive(scratch, listText(*list, wishes), wishes, joinedPath(served, kPublished));
  if (const Exit proven = prove(out, served, *list); proven != Exit::ok) return proven;
  if (context.interrupts.came()) return out.fail(Exit::interrupted, kInterrupted);
  const std::string place = fs::absolute(joinedPath(wishes.folder, kPublished)).lexically_normal().string();
  if (!platform::files().writeAtomically(place, contentOf(joinedPath(served, kPublished), kLargestList), &error))
    return out.fail(error);
  const std::string base = TKSURL::fileURLWithPath(folderOf(place)).absoluteString();
  if (const auto shown = TKSUtilBase::avaliableDeltaUpdates(base, nullptr)) showPackages(out, *shown);
  out.set("list", place);
  out.note("wrote " + place + ": serve the folder as it is");
  return Exit::ok;
}

}  // namespace

Command publishCommand() {
  return {.name = "publish",
          .summary = "makes and signs the list of delta packages of a folder",
          .description =
              "Lists every file of the folder whose name ends in .delta, with its size and the SHA-256 of its content, "
              "signs the list, reads it as a client does, and puts it into the folder as deltalist.json.delta. Then "
              "any server of plain files will do. The old list is replaced in one step, and stays when anything "
              "fails.",
          .examples = {{"tksctl publish updates -i id", "Signed with the identity in the folder id."},
                       {"tksctl publish updates --pkcs12 maker.p12 --password ...", "Signed as the maker."}},
          .setUp = [](const CommandLine& line) -> Action {
            auto wishes = std::make_shared<Wishes>();
            line.option("folder", wishes->folder, "The folder that is served").required().typeName("FOLDER");
            addIdentityOptions(line, wishes->identity);
            line.flag("--timestamp", wishes->timeStamp, "Add a time stamp of the identity's own authority");
            line.option("--valid-days", wishes->validDays, "When the list expires, for hosts that ask (listExpiry)")
                .typeName("DAYS")
                .between(1, 36500);
            line.option("--list-version", wishes->listVersion,
                        "Number of the list, for hosts that take no older one (lowestListVersion)")
                .typeName("N")
                .between(1, 1000000000);
            return [wishes](Context& context) { return publish(context, *wishes); };
          }};
}

}  // namespace tks::ctl
