#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "codesign/container/code_directory.h"
#include "codesign/container/mach_o.h"
#include "codesign/container/status.h"
#include "codesign/container/super_blob.h"
#include "codesign/requirement/requirement.h"
#include "tests/fuzz/Require.h"

// The containers of signatures: a Mach-O file with what is embedded in it, a super blob, a code directory.

namespace {

using namespace tks::codesign;

template <class Work>
void quietly(Work work) {
  try {
    work();
  } catch (const Failure&) {
    // What is malformed ends in a status.
  }
}

void readDirectory(const ByteSource& source) {
  const CodeDirectory directory(source);
  for (std::uint32_t slot = 1; slot <= slot::kLastSpecial; ++slot) directory.specialHash(slot);
  std::uint8_t hashes[64 * 48];
  const auto type = hashTypeOf(directory.hashTypeNumber());
  if (type && directory.codeSlots() > 0) {
    tks::fuzz::require(directory.readCodeHashes(directory.codeSlots() - 1, std::span(hashes).first(hashSize(*type))));
    tks::fuzz::require(directory.cdHash().size() == 20);
  }
}

void readContainer(const ByteSource& source) {
  const SuperBlob super(source);
  for (const std::uint32_t slot : {slot::kCodeDirectory, slot::kRequirements, slot::kTopDirectory, slot::kEntitlements,
                                   slot::kFirstAlternate, slot::kSignature}) {
    quietly([&] {
      const std::optional<ByteSource> part = super.component(slot);
      if (!part) return;
      tks::fuzz::require(part->size() <= source.size());
      if (slot == slot::kCodeDirectory || slot == slot::kFirstAlternate) readDirectory(*part);
      if (slot == slot::kRequirements) RequirementSet::fromBlob(part->all(1 << 20).value_or(TKSData()));
    });
  }
}

void readImage(const std::uint8_t* data, std::size_t size) {
  tks::posix::FileDescriptor memory(::memfd_create("fuzz", MFD_CLOEXEC));
  if (::write(memory.get(), data, size) != static_cast<ssize_t>(size)) return;
  const auto file = std::make_shared<const File>(std::move(memory), size);
  const std::optional<MachO> image = MachO::open(file);
  if (!image) return;
  image->format();
  for (const Slice& slice : image->slices()) {
    quietly([&] {
      const ImageLayout layout = image->layout(slice);
      if (layout.signature)
        readContainer(image->fromStartOf(slice).part(layout.signature->offset, layout.signature->size));
    });
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ByteSource source(TKSData(data, data + size));
  quietly([&] { readImage(data, size); });
  quietly([&] { readContainer(source); });
  quietly([&] { readDirectory(source); });
  return 0;
}
