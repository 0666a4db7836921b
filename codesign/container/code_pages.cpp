#include "codesign/container/code_pages.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "codesign/container/hashing_threads.h"
#include "codesign/container/status.h"

namespace tks::codesign {
namespace {

/// What one thread checks at a time.
constexpr std::uint64_t kRun = std::uint64_t{1} << 20;
constexpr std::uint32_t kMostPagesOfRun = 4096;

class PageCheck {
 public:
  PageCheck(const ByteSource& code, const DirectorySet& directories)
      : code_(code),
        directories_(directories),
        limit_(directories.best().limit()),
        pageSize_(directories.best().pageSize() == 0 ? limit_ : directories.best().pageSize()),
        pages_(directories.best().codeSlots()),
        pagesOfRun_(static_cast<std::uint32_t>(std::clamp<std::uint64_t>(kRun / pageSize_, 1, kMostPagesOfRun))) {}

  void run() {
    const std::uint32_t runs = pages_ / pagesOfRun_ + (pages_ % pagesOfRun_ != 0 ? 1 : 0);
    HashingThreads threads(directories_.types(), runs,
                           [this](HashingItem item, HashingTools& tools) { checkRun(item.number, tools); });
    for (std::uint32_t i = 0; i < runs; ++i) threads.add(i);
    threads.finish();
  }

 private:
  void checkRun(std::uint32_t number, HashingTools& tools) const {
    const std::uint32_t first = number * pagesOfRun_;
    const std::uint32_t count = std::min(pagesOfRun_, pages_ - first);
    const std::vector<std::vector<std::uint8_t>> expected = readHashes(first, count);
    const std::uint64_t start = first * pageSize_;
    const std::uint64_t end = pages_ - first == count ? limit_ : start + count * pageSize_;
    if (pageSize_ > tools.buffer.size()) return checkLargePages(start, end, expected, tools);

    const auto pagesAtOnce = static_cast<std::uint32_t>(tools.buffer.size() / pageSize_);
    for (std::uint32_t page = 0; page < count; page += pagesAtOnce) {
      checkPagesAtOnce(page, start + page * pageSize_, std::min(start + (page + pagesAtOnce) * pageSize_, end),
                       expected, tools);
    }
  }

  /// Pages of which several fit into the buffer. `page`: the number of the first one within the run.
  void checkPagesAtOnce(std::uint32_t page, std::uint64_t start, std::uint64_t end,
                        const std::vector<std::vector<std::uint8_t>>& expected, HashingTools& tools) const {
    const Bytes bytes = Bytes(tools.buffer).first(fill(start, end, tools.buffer));
    std::vector<Bytes> pages;
    for (std::size_t at = 0; at < bytes.size(); at += pageSize_) {
      pages.push_back(bytes.subspan(at, std::min<std::size_t>(pageSize_, bytes.size() - at)));
    }
    std::vector<Digest> digests(pages.size());
    for (std::size_t i = 0; i < tools.hashers.size(); ++i) {
      const std::size_t size = hashSize(tools.hashers[i].type());
      hashEach(tools.hashers[i], pages, digests);
      for (std::size_t k = 0; k < digests.size(); ++k) {
        if (!digests[k].matches(Bytes(expected[i]).subspan((page + k) * size, size))) fail(status::kSignatureFailed);
      }
    }
  }

  /// Pages of which one does not fit into the buffer.
  void checkLargePages(std::uint64_t start, std::uint64_t end, const std::vector<std::vector<std::uint8_t>>& expected,
                       HashingTools& tools) const {
    std::uint32_t page = 0;
    for (std::uint64_t at = start; at < end; ++page) {
      const std::uint64_t pageEnd = std::min(at + pageSize_, end);
      for (Hasher& hasher : tools.hashers) hasher.start();
      while (at < pageEnd) {
        const Bytes piece = Bytes(tools.buffer).first(fill(at, pageEnd, tools.buffer));
        for (Hasher& hasher : tools.hashers) hasher.update(piece);
        at += piece.size();
      }
      compare(page, expected, tools);
    }
  }

  std::size_t fill(std::uint64_t at, std::uint64_t end, std::vector<std::uint8_t>& buffer) const {
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), end - at));
    if (!code_.readExactly(at, std::span(buffer).first(wanted))) fail(status::kSignatureFailed);
    return wanted;
  }

  std::vector<std::vector<std::uint8_t>> readHashes(std::uint32_t first, std::uint32_t count) const {
    std::vector<std::vector<std::uint8_t>> all;
    for (const HashType type : directories_.types()) {
      std::vector<std::uint8_t>& hashes = all.emplace_back(count * hashSize(type));
      const CodeDirectory& directory = directories_.byType().at(static_cast<std::uint8_t>(type));
      if (!directory.readCodeHashes(first, hashes)) fail(status::kSignatureFailed);
    }
    return all;
  }

  static void compare(std::uint32_t page, const std::vector<std::vector<std::uint8_t>>& expected, HashingTools& tools) {
    for (std::size_t i = 0; i < tools.hashers.size(); ++i) {
      const std::size_t size = hashSize(tools.hashers[i].type());
      if (!tools.hashers[i].finish().matches(Bytes(expected[i]).subspan(page * size, size))) {
        fail(status::kSignatureFailed);
      }
    }
  }

  const ByteSource& code_;
  const DirectorySet& directories_;
  const std::uint64_t limit_;
  const std::uint64_t pageSize_;
  const std::uint32_t pages_;
  const std::uint32_t pagesOfRun_;
};

}  // namespace

void checkPages(const ByteSource& code, const DirectorySet& directories) {
  const CodeDirectory& best = directories.best();
  if (best.codeSlots() == 0) return;
  if (code.size() < best.limit()) fail(status::kSignatureFailed);
  PageCheck(code, directories).run();
}

}  // namespace tks::codesign
