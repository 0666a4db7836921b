#include "codesign/resources/sealed_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "codesign/container/digest.h"
#include "codesign/container/sha256_lockstep.h"
#include "codesign/container/status.h"

namespace tks::codesign {
namespace {

/// A file from this size on goes alone: beside others it would be done long after them.
constexpr off_t kLarge = off_t{1} << 20;

/// How many files go side by side: few files are for all threads, not for the first one.
std::size_t placesFor(std::size_t files) {
  return std::clamp<std::size_t>(files / (2 * HashingThreads::most()), 2, kSha256Lanes);
}

}  // namespace

/// A place for one file after another: SHA-256 is made of several side by side, other types of each by itself.
class SealedFiles::OpenFile final : public Sha256Message {
 public:
  OpenFile(SealedFiles& all, std::span<std::uint8_t> room) : all_(all), room_(room) {
    for (const HashType type : all.types_) {
      if (!isSha256(type)) others_.emplace_back(type);
    }
  }

  bool isFree() const { return !descriptor_; }

  /// False, and noted, when the file is missing.
  bool open(HashingItem item) {
    item_ = item;
    sealed_ = all_.seal_.seal(item.number);
    hasFailed_ = false;
    const std::string path(sealed_.path);
    const int flags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    descriptor_.reset(posix::retried([&] { return ::openat(all_.root_.get(), path.c_str(), flags); }));
    if (descriptor_) {
      for (Hasher& hasher : others_) hasher.start();
      return true;
    }
    if (errno != ENOENT) failByErrno();
    if (!sealed_.optional) all_.note_(true, sealed_.path);
    return false;
  }

  bool isLarge() const {
    struct stat facts {};
    return ::fstat(descriptor_.get(), &facts) == 0 && facts.st_size >= kLarge;
  }

  /// Hashes the whole file, and compares.
  void hashAlone(std::vector<Hasher>& hashers) {
    const posix::FileDescriptor closed = std::move(descriptor_);
    for (Hasher& hasher : hashers) hasher.start();
    for (Bytes piece = fill(closed.get()); !piece.empty(); piece = fill(closed.get())) {
      for (Hasher& hasher : hashers) hasher.update(piece);
    }
    Bytes expected = sealed_.hashes;
    bool matches = true;
    for (Hasher& hasher : hashers) matches = takeIfEqual(expected, hasher.finish().bytes()) && matches;
    if (!matches) all_.note_(false, sealed_.path);
  }

  Bytes next() override {
    try {
      const Bytes piece = fill(descriptor_.get());
      for (Hasher& hasher : others_) hasher.update(piece);
      return piece;
    } catch (...) {
      // The others go on.
      hasFailed_ = true;
      all_.threads_.note(item_, std::current_exception());
      return {};
    }
  }

  void finish(const Sha256Digest& digest) override {
    descriptor_.reset();
    if (hasFailed_) return;
    Bytes expected = sealed_.hashes;
    bool matches = true;
    auto other = others_.begin();
    for (const HashType type : all_.types_) {
      matches = (isSha256(type) ? takeIfEqual(expected, Bytes(digest).first(hashSize(type)))
                                : takeIfEqual(expected, (other++)->finish().bytes())) &&
                matches;
    }
    if (!matches) all_.note_(false, sealed_.path);
  }

 private:
  /// As much as there is room for; less only at the end.
  Bytes fill(int descriptor) const {
    std::size_t filled = 0;
    while (filled < room_.size()) {
      const auto rest = room_.subspan(filled);
      const ssize_t count = posix::retried([&] { return ::read(descriptor, rest.data(), rest.size()); });
      if (count < 0) failByErrno();
      if (count == 0) break;
      filled += static_cast<std::size_t>(count);
    }
    return room_.first(filled);
  }

  static bool takeIfEqual(Bytes& expected, Bytes found) {
    const Bytes own = expected.first(found.size());
    expected = expected.subspan(found.size());
    return std::ranges::equal(own, found);
  }

  SealedFiles& all_;
  const std::span<std::uint8_t> room_;
  std::vector<Hasher> others_;
  HashingItem item_{};
  Seal sealed_;
  posix::FileDescriptor descriptor_;
  bool hasFailed_ = false;
};

/// The files that one thread hashes side by side, from the first that it was given until there is none for a moment.
class SealedFiles::Round {
 public:
  Round(SealedFiles& all, HashingItem first, HashingTools& tools) : all_(all), next_(first), tools_(tools) {
    const std::size_t count = placesFor(all.seal_.size());
    const std::size_t room = tools.buffer.size() / kSha256Lanes;
    places_.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
      places_.emplace_back(all, std::span(tools.buffer).subspan(i * room, room));
    }
  }

  void run() {
    const bool hasSha256 = std::ranges::any_of(all_.types_, isSha256);
    blocks_ = hasSha256 ? sha256Blocks() : nullptr;
    const auto more = [this] { return begin(); };
    blocks_ != nullptr ? hashSideBySide(blocks_, more) : static_cast<void>(begin());
  }

 private:
  /// The next file that goes side by side with others; null when there is none now.
  Sha256Message* begin() {
    const auto place = std::ranges::find_if(places_, &OpenFile::isFree);
    if (place == places_.end()) return nullptr;
    while (const std::optional<HashingItem> item = take()) {
      try {
        if (!place->open(*item)) continue;
        if (blocks_ != nullptr && !place->isLarge()) return &*place;
        place->hashAlone(tools_.hashers);
      } catch (...) {
        all_.threads_.note(*item, std::current_exception());
      }
    }
    return nullptr;
  }

  std::optional<HashingItem> take() { return next_ ? std::exchange(next_, std::nullopt) : all_.threads_.takeReady(); }

  SealedFiles& all_;
  std::optional<HashingItem> next_;
  HashingTools& tools_;
  Sha256Blocks blocks_ = nullptr;
  std::vector<OpenFile> places_;
};

SealedFiles::SealedFiles(const CodeResources& seal, const std::vector<HashType>& types,
                         const posix::FileDescriptor& root, Note note)
    : seal_(seal),
      types_(types),
      root_(root),
      note_(std::move(note)),
      threads_(types, seal.size(), [this](HashingItem item, HashingTools& tools) { Round(*this, item, tools).run(); }) {
}

}  // namespace tks::codesign
