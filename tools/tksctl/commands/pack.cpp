#include <fcntl.h>
#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>

#include "formats/apple_double.h"
#include "foundation/values/FilePaths.h"
#include "platform/platform.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/whole_files.h"
#include "tools/tksctl/commands/table.h"
#include "tools/tksctl/frame/json_values.h"
#include "tools/tksctl/parts/archive_writer.h"
#include "tools/tksctl/parts/archives.h"
#include "tools/tksctl/parts/file_digest.h"

// A launcher as the archive that hosts carry. Signatures that stand in attributes of files would be lost in a zip
// archive: each goes beside its file.

namespace tks::ctl {
namespace {

namespace fs = std::filesystem;
using Kind = platform::TreeItem::Kind;

/// Attributes in which a signature stands.
constexpr std::string_view kSignatureAttribute = "com.apple.cs.";
constexpr std::size_t kLargestSideCar = std::size_t{64} << 20;

struct Wishes {
  std::string bundle;
  std::string archive;
};

/// What goes into the archive; by names, so that the order is the same everywhere.
struct Item {
  Kind kind = Kind::file;
  bool isExecutable = false;
  std::string target{};
  /// Of a side-car that is made here.
  std::optional<TKSData> content{};
};
using Items = std::map<std::string, Item>;

[[noreturn]] void give(const TKSError& error) { throw std::runtime_error(error.localizedDescription); }

Items itemsOf(const std::string& bundle) {
  Items items;
  std::string other;
  TKSError error;
  const auto visit = [&](const platform::TreeItem& item) {
    if (item.kind == Kind::other) other = item.name;
    items[item.name] = {item.kind, (item.permissions & 0111) != 0, item.target};
    return other.empty();
  };
  if (!platform::files().visitTree(bundle, visit, &error)) give(error);
  if (!other.empty()) throw std::runtime_error(oneLine(other) + " is neither a file nor a folder nor a link");
  return items;
}

TKSDictionary signatureIn(const TKSDictionary& attributes) {
  TKSDictionary signature;
  for (const auto& [name, value] : attributes) {
    if (name.starts_with(kSignatureAttribute)) signature.set(name, value);
  }
  return signature;
}

/// Whether the side-car that lies there says the same.
bool isThere(const std::string& sideCar, const TKSDictionary& signature) {
  const std::optional<TKSData> content = platform::files().read(sideCar, kLargestSideCar, nullptr);
  const auto parsed = content ? formats::parseAppleDouble(*content) : std::nullopt;
  return parsed && signatureIn(parsed->attributes) == signature;
}

/// Adds a side-car for each file whose signature stands in its attributes alone. How many.
std::size_t addSideCars(const std::string& bundle, Items& items) {
  Items made;
  for (const auto& [name, item] : items) {
    if (item.kind != Kind::file) continue;
    const std::string path = joinedPath(bundle, name);
    TKSError error;
    const auto attributes = platform::files().attributes(path, &error);
    if (!attributes) give(error);
    const TKSDictionary signature = signatureIn(attributes->extendedAttributes);
    const std::string sideCar = *formats::sideCarPath(path);
    if (signature.empty() || isThere(sideCar, signature)) continue;
    Item added;
    added.content = formats::serializeAppleDouble({signature});
    if (!added.content) throw std::runtime_error("the signature of " + name + " does not fit a side-car");
    made[*formats::sideCarPath(name)] = std::move(added);
  }
  const std::size_t count = made.size();
  for (auto& [name, item] : made) items[name] = std::move(item);
  return count;
}

void putSmall(ArchiveWriter& writer, const std::string& inside, const Item& item) {
  if (item.content) return writer.addContent(inside, *item.content);
  if (item.kind == Kind::folder) return writer.addFolder(inside);
  writer.addLink(inside, item.target);
}

/// Writes the archive; false when a signal came before its end.
bool write(ArchiveWriter& writer, const std::string& bundle, const Items& items, const Interrupts& interrupts) {
  writer.addFolder(std::string(TKSAppName));
  for (const auto& [name, item] : items) {
    if (interrupts.came()) return false;
    const std::string inside = joinedPath(TKSAppName, name);
    if (item.kind != Kind::file || item.content) {
      putSmall(writer, inside, item);
      continue;
    }
    const auto isStopped = [&] { return interrupts.came(); };
    if (!writer.addFile(inside, item.isExecutable, joinedPath(bundle, name), isStopped)) return false;
  }
  writer.finish();
  return true;
}

/// A new file beside the archive's place, which it takes once everything is proven; else it is gone.
class NewFile {
 public:
  NewFile(const std::string& place, TKSError* error) : place_(place), path_(posix::hiddenSibling(place)) {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
    file_ = posix::FileDescriptor(posix::retried([&] { return ::open(path_.c_str(), kFlags, 0666); }));
    if (!file_) {
      posix::fail(error, "create", place);
      path_.clear();
    }
  }
  ~NewFile() {
    if (!path_.empty()) ::unlink(path_.c_str());
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  explicit operator bool() const { return !path_.empty(); }
  int descriptor() const { return file_.get(); }
  const std::string& path() const { return path_; }
  bool takePlace(TKSError* error) {
    if (::fsync(file_.get()) != 0 || ::rename(path_.c_str(), place_.c_str()) != 0) {
      return posix::fail(error, "write", place_);
    }
    path_.clear();
    return posix::syncFolderOf(place_) || posix::fail(error, "sync the folder of", place_);
  }

 private:
  std::string place_;
  std::string path_;
  posix::FileDescriptor file_;
};

std::string placeOf(const Wishes& wishes, const std::string& version) {
  const std::string name = std::string(withoutExtension(TKSAppName)) + " " + version + ".zip";
  if (wishes.archive.empty()) return fs::absolute(name).string();
  const std::string path = fs::absolute(wishes.archive).lexically_normal().string();
  return fs::is_directory(path) ? joinedPath(path, name) : path;
}

/// Whether a host would install it. Its version, or the reason told.
std::optional<std::string> checkedVersion(Context& context, const Wishes& wishes, const std::string& bundle,
                                          Exit& code) {
  if (!fs::is_directory(bundle)) {
    code = context.out.fail(Exit::brokenLauncher, "there is no launcher at " + wishes.bundle);
    return std::nullopt;
  }
  const std::string version(TKSUtilBase::getBundleVersion(bundle).text());
  TKSError error;
  if (!TKSUtilBase::isSafeToInstall(bundle, version, &error)) {
    code = context.out.fail(error, "hosts would refuse " + wishes.bundle);
    return std::nullopt;
  }
  if (!TKSUtilBase::isSupportedTKSVersion(version)) {
    code = context.out.fail(Exit::failed, "hosts would refuse version " + version + ": it is not supported any more");
    return std::nullopt;
  }
  return version;
}

Exit prove(Context& context, const std::string& archive, const std::string& version) {
  const ArchiveReport report = examineArchive(archive, version);
  if (!report.isReadable || !report.isSafe) {
    return context.out.fail(report.error, "hosts would refuse what was packed");
  }
  context.out.set("entries", static_cast<std::int64_t>(report.entries));
  context.out.set("unpackedSize", static_cast<std::int64_t>(report.size));
  return Exit::ok;
}

Exit tell(Context& context, const std::string& place, const std::string& version) {
  TKSError error;
  const std::optional<FileDigest> digest = digestOf(place, &error);
  if (!digest) return context.out.fail(error);
  context.out.line("packed " + version + " as " + place);
  context.out.line("SHA-256: " + digest->sha256);
  context.out.set("archive", place);
  context.out.set("version", version);
  context.out.set("size", static_cast<std::int64_t>(digest->size));
  context.out.set("sha256", digest->sha256);
  return Exit::ok;
}

Exit pack(Context& context, const Wishes& wishes) {
  const std::string bundle = withoutClosingSlashes(fs::absolute(wishes.bundle).lexically_normal().string());
  Exit code = Exit::ok;
  const std::optional<std::string> version = checkedVersion(context, wishes, bundle, code);
  if (!version) return code;
  const std::string place = placeOf(wishes, *version);
  context.interrupts.hold();
  Items items = itemsOf(bundle);
  const std::size_t sideCars = addSideCars(bundle, items);
  TKSError error;
  NewFile file(place, &error);
  if (!file) return context.out.fail(error);
  ArchiveWriter writer(file.descriptor(), ArchiveWriter::Format::zip);
  const bool isWritten = write(writer, bundle, items, context.interrupts);
  const Exit proven = isWritten ? prove(context, file.path(), *version) : Exit::interrupted;
  if (context.interrupts.came()) return context.out.fail(Exit::interrupted, "interrupted: nothing was packed");
  if (proven != Exit::ok) return proven;
  if (!file.takePlace(&error)) return context.out.fail(error);
  context.out.set("sideCars", static_cast<std::int64_t>(sideCars));
  return tell(context, place, *version);
}

}  // namespace

Command packCommand() {
  return {.name = "pack",
          .summary = "packs a launcher as the archive that hosts install it from",
          .description =
              "Checks the launcher as an installation would, packs it, and checks the archive in the same way; only "
              "then does it get its name. What was there under that name is replaced. Signatures that stand in "
              "attributes of files, which a zip archive has no place for, go beside these files. The archive depends "
              "on the launcher alone: the same launcher gives the same bytes, whenever and wherever it is packed.",
          .examples = {{"tksctl pack \"Tarvo Kovra Start.app\"", "\"Tarvo Kovra Start 5.1.0.zip\", in this folder."},
                       {"tksctl pack build/Launcher.app --to host/launcher.zip", "Where the host's build takes it."}},
          .setUp = [](const CommandLine& line) -> Action {
            auto wishes = std::make_shared<Wishes>();
            line.option("bundle", wishes->bundle, "The launcher").required().typeName("BUNDLE");
            line.option("--to", wishes->archive, "The archive, or a folder for it; else it goes into this folder")
                .typeName("ZIP");
            return [wishes](Context& context) { return pack(context, *wishes); };
          }};
}

}  // namespace tks::ctl
