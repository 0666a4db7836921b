#include "codesign/resources/resource_check.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

#include "codesign/container/signature_components.h"
#include "codesign/resources/sealed_files.h"
#include "formats/apple_double.h"
#include "platform/posix/bundle_links.h"
#include "platform/posix/extended_attributes.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/never_sealed.h"

namespace tks::codesign {
namespace {

constexpr std::size_t kMostListed = 100;
constexpr std::string_view kStoreReceipt = "receipt";
/// Where bundles keep code, apart from their top.
constexpr std::string_view kCodeFolders[] = {
    "Frameworks/", "SharedFrameworks/",  "PlugIns/",           "Plug-ins/",           "XPCServices/",      "Helpers/",
    "MacOS/",      "Library/Automator/", "Library/Spotlight/", "Library/LoginItems/", "Library/QuickLook/"};
constexpr std::size_t kLargestSideCar = std::size_t{4} << 20;

struct FolderCloser {
  void operator()(DIR* folder) const { ::closedir(folder); }
};
using Folder = std::unique_ptr<DIR, FolderCloser>;

enum class FileKind { folder, file, link, other };

class ResourceCheck {
 public:
  ResourceCheck(const CodeLayout& layout, CodeResources& seal, const DirectorySet& directories,
                const ResourceScope& scope, std::vector<NestedCode>& nested)
      : layout_(layout),
        seal_(seal),
        scope_(scope),
        nested_(nested),
        met_(seal.size()),
        files_(seal, directories.types(), root_, [this](bool isMissing, std::string_view path) {
          note(isMissing ? Problem::missing : Problem::altered, path);
        }) {}

  ResourceProblems run() {
    root_.reset(
        posix::retried([&] { return ::open(layout_.supportFolder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (!root_) failByErrno();
    walk();
    files_.finish();
    findMissing();
    for (std::vector<std::string>* list : {&problems_.added, &problems_.altered, &problems_.missing}) {
      std::ranges::sort(*list);
    }
    return std::move(problems_);
  }

 private:
  enum class Problem : std::uint8_t { added, altered, missing, badLink };

  // The walk.

  void walk() {
    std::vector<std::string> pending{""};
    while (!pending.empty()) {
      const std::string folder = std::move(pending.back());
      pending.pop_back();
      walkFolder(folder, pending);
    }
  }

  void walkFolder(const std::string& path, std::vector<std::string>& pending) {
    forEachIn(path,
              [&](const std::string& item, std::string_view name, FileKind kind) { visit(item, name, kind, pending); });
  }

  /// Calls `take` with the path, the name and the kind of each item of a folder.
  template <class Take>
  void forEachIn(const std::string& path, Take take) const {
    const char* name = path.empty() ? "." : path.c_str();
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    posix::FileDescriptor descriptor(posix::retried([&] { return ::openat(root_.get(), name, flags); }));
    if (!descriptor) failByErrno();
    const Folder folder(::fdopendir(descriptor.get()));
    if (folder == nullptr) failByErrno();
    descriptor.release();
    std::string item;
    while (true) {
      errno = 0;
      const dirent* entry = ::readdir(folder.get());
      if (entry == nullptr) break;
      const std::string_view own = entry->d_name;
      if (own == "." || own == "..") continue;
      item.assign(path).append(path.empty() ? "" : "/").append(own);
      take(item, own, kindOf(*entry, ::dirfd(folder.get())));
    }
    if (errno != 0) failByErrno();
  }

  static FileKind kindOf(const dirent& entry, int folder) {
    switch (entry.d_type) {
      case DT_DIR:
        return FileKind::folder;
      case DT_REG:
        return FileKind::file;
      case DT_LNK:
        return FileKind::link;
      case DT_UNKNOWN:
        break;
      default:
        return FileKind::other;
    }
    struct stat facts {};
    if (::fstatat(folder, entry.d_name, &facts, AT_SYMLINK_NOFOLLOW) != 0) return FileKind::other;
    if (S_ISDIR(facts.st_mode)) return FileKind::folder;
    if (S_ISLNK(facts.st_mode)) return FileKind::link;
    return S_ISREG(facts.st_mode) ? FileKind::file : FileKind::other;
  }

  void visit(const std::string& path, std::string_view name, FileKind kind, std::vector<std::string>& pending) {
    if (kind == FileKind::other) {
      if (isStrict()) note(Problem::added, path);
      return;
    }
    if (kind == FileKind::link && name.size() == posix::kStoreFile.size() &&
        ::strncasecmp(name.data(), posix::kStoreFile.data(), name.size()) == 0) {
      fail(status::kStoreFileIsLink);
    }
    const RuleVerdict verdict = seal_.verdict(path);
    if (verdict.excluded) {
      if (scope_.strictness == Strictness::complete) judgeExcluded(path, kind);
    } else if (kind != FileKind::folder) {
      if (verdict.sealed) {
        compare(path, name, kind);
      } else if (isStrict()) {
        judgeLeftOut(path, name, kind);
      }
    } else if (isCodeLeftOut(path, name, verdict)) {
      nested_.push_back({layout_.supportFolder + "/" + path, scope_.sameMaker});
    } else if (verdict.nested && name.find('.') != std::string_view::npos) {
      compare(path, name, kind);
    } else {
      pending.push_back(path);
    }
  }

  bool isStrict() const { return scope_.strictness != Strictness::plain; }

  /// Compares the bundle on disk with its seal.
  void compare(const std::string& path, std::string_view name, FileKind kind) {
    const std::optional<std::uint32_t> number = seal_.find(path);
    if (!number) return compareUnsealed(path, name, kind);
    met_[*number] = true;
    const Seal seal = seal_.seal(*number);
    switch (seal.kind) {
      case Seal::Kind::invalid:
        fail(status::kResourcesInvalid);
      case Seal::Kind::nested:
        if (kind == FileKind::link) return note(Problem::altered, path);
        nested_.push_back({layout_.supportFolder + "/" + path, std::string(seal.text)});
        return;
      case Seal::Kind::link:
        if (kind != FileKind::link) return note(Problem::altered, path);
        return compareLink(path, seal);
      case Seal::Kind::file:
        if (seal.withoutHash) fail(status::kResourcesInvalid);
        if (kind != FileKind::file || seal.neverMatches) return note(Problem::altered, path);
        return files_.add(*number);
    }
  }

  // What the rules leave out.

  bool mayHoldCode(std::string_view path) const {
    return seal_.version() == 1 && !scope_.sameMaker.empty() &&
           (path.find('/') == std::string_view::npos ||
            std::ranges::any_of(kCodeFolders, [path](std::string_view folder) { return path.starts_with(folder); }));
  }

  bool isCodeLeftOut(std::string_view path, std::string_view name, const RuleVerdict& verdict) const {
    return isStrict() && !verdict.sealed && name.find('.') != std::string_view::npos && mayHoldCode(path);
  }

  /// No bundle seals these; the Info.plist is hashed by itself.
  bool isNeverSealed(const std::string& path) const {
    return posix::isNeverSealed(path) || layout_.supportFolder + "/" + path == layout_.infoPlist;
  }

  /// Of what is never looked for in a seal: the parts of the signature, a ticket, a receipt, and the executable, whose
  /// pages have hashes of their own.
  void judgeExcluded(const std::string& path, FileKind kind) {
    if (path == kSignatureFolder) {
      judgeFolder(path, kind, scope_.signatureFiles);
    } else if (path == kStoreReceiptFolder) {
      judgeFolder(path, kind, {kStoreReceipt});
    } else if (kind == FileKind::folder) {
      note(Problem::added, path);
    }
  }

  /// A folder in which there are only certain files.
  void judgeFolder(const std::string& path, FileKind kind, const std::vector<std::string_view>& files) {
    if (kind != FileKind::folder) return note(Problem::added, path);
    forEachIn(path, [&](const std::string& item, std::string_view name, FileKind itemKind) {
      if (itemKind != FileKind::file || std::ranges::find(files, name) == files.end()) note(Problem::added, item);
    });
  }

  void judgeLeftOut(const std::string& path, std::string_view name, FileKind kind) {
    if (isNeverSealed(path) || (name.starts_with(formats::kSideCarPrefix) && isSideCar(path))) return;
    if (kind == FileKind::link && seal_.version() == 1) {
      if (leavesBundle(path)) note(Problem::badLink, path);
    } else if (kind == FileKind::file && mayHoldCode(path)) {
      nested_.push_back({layout_.supportFolder + "/" + path, scope_.sameMaker});
    } else {
      note(Problem::added, path);
    }
  }

  void compareUnsealed(const std::string& path, std::string_view name, FileKind kind) {
    if (kind == FileKind::link && seal_.version() == 1) {
      if (isStrict() && leavesBundle(path)) note(Problem::badLink, path);
      return;
    }
    if (kind == FileKind::file && name.starts_with(formats::kSideCarPrefix) && isSideCar(path)) return;
    note(Problem::added, path);
  }

  /// Attributes that a volume without room for them keeps beside the file are no resource.
  bool isSideCar(const std::string& path) const {
    struct stat facts {};
    return ::fstatat(root_.get(), path.c_str(), &facts, AT_SYMLINK_NOFOLLOW) == 0 &&
           static_cast<std::size_t>(facts.st_size) <= kLargestSideCar &&
           posix::isSideCar(layout_.supportFolder + "/" + path);
  }

  void compareLink(const std::string& path, const Seal& seal) {
    if (targetOf(path) != seal.text) return note(Problem::altered, path);
    if (isStrict() && leavesBundle(path)) note(Problem::badLink, path);
  }

  std::string targetOf(const std::string& path) const {
    std::array<char, PATH_MAX> target{};
    const ssize_t size = ::readlinkat(root_.get(), path.c_str(), target.data(), target.size());
    if (size < 0) failByErrno();
    return {target.data(), static_cast<std::size_t>(size)};
  }

  /// Whether a link leads out of the bundle, whose top may lie above the support folder.
  bool leavesBundle(const std::string& path) const {
    const std::string support =
        layout_.supportFolder.substr(std::min(layout_.root.size() + 1, layout_.supportFolder.size()));
    return posix::leadsOut(layout_.root, support.empty() ? path : support + "/" + path);
  }

  // Findings.

  void note(Problem problem, std::string_view path) {
    const std::scoped_lock lock(mutex_);
    std::vector<std::string>& list = listOf(problem);
    if (list.size() < kMostListed) list.emplace_back(path);
    // A link that leaves the bundle is a matter of strictness only.
    if (problem != Problem::badLink) {
      problems_.status = status::kBadResource;
    } else if (problems_.none()) {
      problems_.status = status::kInvalidLink;
    }
  }

  std::vector<std::string>& listOf(Problem problem) {
    switch (problem) {
      case Problem::added:
        return problems_.added;
      case Problem::missing:
        return problems_.missing;
      case Problem::altered:
      case Problem::badLink:
        break;
    }
    return problems_.altered;
  }

  void findMissing() {
    for (std::size_t i = 0; i < seal_.size(); ++i) {
      if (met_[i]) continue;
      const Seal seal = seal_.seal(i);
      if (seal.kind == Seal::Kind::invalid) fail(status::kResourcesInvalid);
      if (!seal.optional) note(Problem::missing, seal.path);
    }
  }

  const CodeLayout& layout_;
  CodeResources& seal_;
  const ResourceScope& scope_;
  std::vector<NestedCode>& nested_;
  posix::FileDescriptor root_;
  std::vector<bool> met_;
  std::mutex mutex_;
  ResourceProblems problems_;  ///< guarded by mutex_
  SealedFiles files_;          ///< last, as its threads use the rest
};

}  // namespace

ResourceProblems checkResources(const CodeLayout& layout, CodeResources& seal, const DirectorySet& directories,
                                const ResourceScope& scope, std::vector<NestedCode>& nested) {
  return ResourceCheck(layout, seal, directories, scope, nested).run();
}

}  // namespace tks::codesign
