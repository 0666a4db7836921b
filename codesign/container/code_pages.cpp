#include "codesign/container/code_pages.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "codesign/container/status.h"
#include "codesign/container/work_crew.h"

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
    WorkCrew crew(directories_.types(), runs,
                  [this](std::uint32_t item, HashingBench& bench) { checkRun(item, bench); });
    for (std::uint32_t i = 0; i < runs; ++i) crew.add(i);
    crew.finish();
  }

 private:
  void checkRun(std::uint32_t number, HashingBench& bench) const {
    const std::uint32_t first = number * pagesOfRun_;
    const std::uint32_t count = std::min(pagesOfRun_, pages_ - first);
    const std::vector<std::vector<std::uint8_t>> expected = readHashes(first, count);
    const std::uint64_t start = first * pageSize_;
    const std::uint64_t end = pages_ - first == count ? limit_ : start + count * pageSize_;

    // The buffer holds many small pages or a piece of a large one.
    std::uint64_t filledFrom = start;
    std::size_t filled = 0;
    for (std::uint32_t page = 0; page < count; ++page) {
      for (Hasher& hasher : bench.hashers) hasher.start();
      std::uint64_t at = start + page * pageSize_;
      const std::uint64_t pageEnd = std::min(at + pageSize_, end);
      while (at < pageEnd) {
        if (at == filledFrom + filled) {
          filledFrom = at;
          filled = fill(at, end, bench.buffer);
        }
        const std::uint64_t piece = std::min(pageEnd, filledFrom + filled) - at;
        const Bytes bytes(bench.buffer.data() + (at - filledFrom), static_cast<std::size_t>(piece));
        for (Hasher& hasher : bench.hashers) hasher.update(bytes);
        at += piece;
      }
      compare(page, expected, bench);
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

  static void compare(std::uint32_t page, const std::vector<std::vector<std::uint8_t>>& expected, HashingBench& bench) {
    for (std::size_t i = 0; i < bench.hashers.size(); ++i) {
      const std::size_t size = hashSize(bench.hashers[i].type());
      if (!bench.hashers[i].finish().matches(Bytes(expected[i]).subspan(page * size, size))) {
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
