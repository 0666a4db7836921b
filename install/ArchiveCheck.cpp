#include "install/ArchiveCheck.h"

#include <algorithm>
#include <cstdint>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/values/LinkWalk.h"
#include "platform/platform.h"

namespace tks::install {
namespace {

using platform::ArchiveEntry;

/// No launcher packs better than this; an archive below the floor is harmless whatever it packs.
constexpr std::uint64_t kLargestRatio = 250;
constexpr std::uint64_t kHarmlessSize = 64u * 1024 * 1024;
constexpr std::string_view kSeparators = "/\\";

/// Backslashes separate too: unpackers take them for such in archives made elsewhere.
std::vector<std::string_view> componentsOf(std::string_view path) { return pathComponents(path, kSeparators); }

bool staysInside(std::string_view name) {
  if (name.empty() || name.front() == '/') return false;
  for (const std::string_view component : componentsOf(name)) {
    if (component == "..") return false;
  }
  return true;
}

/// A link's target, seen from the folder that holds the link, does not climb out of the archive's top.
bool targetStaysInside(std::string_view name, std::string_view target) {
  std::vector<std::string_view> folders = componentsOf(name);
  if (!folders.empty()) folders.pop_back();
  LinkWalk walk;
  walk.place.assign(folders.begin(), folders.end());
  walk.separators = kSeparators;
  return followPath(std::move(walk), target) == LinkEnd::inside;
}

/// The first components as one text, the same for names that some volumes take for the same.
std::string joined(const std::vector<std::string_view>& components, std::size_t count) {
  std::string path;
  for (std::size_t i = 0; i < count; ++i) path.append("/").append(components[i]);
  return platform::text().lowerCase(path);
}

/// What is known of the entries so far.
class EntriesSoFar {
 public:
  explicit EntriesSoFar(const ArchiveRules& rules) : rules_(rules) {}

  /// False ends the inspection: there is a reason.
  bool take(const ArchiveEntry& entry) {
    if (++content_.entries > kMostEntries) return refuse("too many entries", entry);
    if (!staysInside(entry.name)) return refuse("a name leads out of the folder", entry);
    if (entry.kind == ArchiveEntry::Kind::hardLink || entry.kind == ArchiveEntry::Kind::other) {
      return refuse("neither file, folder nor link", entry);
    }
    const std::vector<std::string_view> components = componentsOf(entry.name);
    content_.names.insert(archiveName(entry.name));
    for (std::size_t above = 1; above < components.size(); ++above) {
      if (!links_.empty() && links_.contains(joined(components, above)))
        return refuse("a name goes through a link", entry);
    }
    if (entry.kind == ArchiveEntry::Kind::link) return takeLink(entry, joined(components, components.size()));
    if (!links_.empty() && links_.contains(joined(components, components.size()))) {
      return refuse("a name is used twice", entry);
    }
    if (!rules_.repeatedNames && entry.kind == ArchiveEntry::Kind::file &&
        !files_.insert(joined(components, components.size())).second) {
      return refuse("a name is used twice", entry);
    }
    content_.size += std::min(entry.size, UINT64_MAX - content_.size);
    return content_.size <= rules_.mostBytes || refuse("more than may be unpacked", entry);
  }

  ArchiveContent take() { return std::move(content_); }

 private:
  bool takeLink(const ArchiveEntry& entry, std::string path) {
    if (!rules_.links) return refuse("a link", entry);
    // A zip archive carries a link's target as content, which is not read here: the unpacked tree is looked at later.
    if (!entry.target.empty() && !targetStaysInside(entry.name, entry.target)) {
      return refuse("a link leads out of the folder", entry);
    }
    links_.insert(std::move(path));
    return true;
  }

  bool refuse(std::string_view why, const ArchiveEntry& entry) {
    content_.objection = std::string(why) + ": \"" + entry.name + "\"";
    return false;
  }

  const ArchiveRules& rules_;
  std::set<std::string> links_;
  std::set<std::string> files_;
  ArchiveContent content_;
};

std::optional<std::string> reasonAgainstSize(std::uint64_t unpacked, std::string_view archivePath,
                                             std::string_view folder) {
  const std::optional<std::uint64_t> packed = platform::files().size(archivePath, nullptr);
  if (unpacked > kHarmlessSize && packed && unpacked / kLargestRatio > *packed) {
    return "it would grow to " + std::to_string(unpacked) + " bytes";
  }
  const std::optional<platform::VolumeSpace> space = platform::files().volumeSpace(folder, nullptr);
  if (space && unpacked > space->freeBytes) {
    return "it needs " + std::to_string(unpacked) + " bytes, more than are free";
  }
  return std::nullopt;
}

}  // namespace

std::string archiveName(std::string_view path) {
  std::string name;
  for (const std::string_view component : componentsOf(path)) {
    if (!name.empty()) name += '/';
    name += component;
  }
  return name;
}

ArchiveContent lookInto(std::string_view archivePath, platform::ArchiveFormat format, std::string_view folder,
                        const ArchiveRules& rules) {
  EntriesSoFar entries(rules);
  TKSError error;
  const bool readable = platform::archives().inspect(
      archivePath, format, [&](const ArchiveEntry& entry) { return entries.take(entry); }, &error);
  ArchiveContent content = entries.take();
  if (content.objection) return content;
  content.isComplete = readable;
  if (readable) {
    content.objection = reasonAgainstSize(content.size, archivePath, folder);
    return content;
  }
  const std::optional<std::uint64_t> packed = platform::files().size(archivePath, nullptr);
  if (!packed || *packed > rules.mostUnreadBytes) content.objection = error.localizedDescription;
  return content;
}

}  // namespace tks::install
