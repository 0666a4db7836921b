#include "foundation/values/KeptRoom.h"

#include <new>
#include <utility>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TKS_WATCHES_ADDRESSES
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define TKS_WATCHES_ADDRESSES
#endif
#ifdef TKS_WATCHES_ADDRESSES
extern "C" void __asan_poison_memory_region(const volatile void* address, std::size_t size);
extern "C" void __asan_unpoison_memory_region(const volatile void* address, std::size_t size);
#endif

namespace tks::value {
namespace {

/// Pieces are rounded up to it, so that a document about as long as the last one fits as well.
constexpr std::size_t kUnit = 1024;

enum class Life : unsigned char { hasReadNothing, reads, ends };

/// What this thread keeps. Stays readable when the thread's objects are destroyed: others of them may hold documents.
struct Kept {
  char* memory;
  std::size_t size;
  Life life;
};
constinit thread_local Kept kept{};

/// Tells the address sanitizer, where it watches, whether the bytes of a piece may be used.
void allowUse([[maybe_unused]] void* memory, [[maybe_unused]] std::size_t size,
              [[maybe_unused]] bool isAllowed) noexcept {
#ifdef TKS_WATCHES_ADDRESSES
  if (isAllowed) {
    __asan_unpoison_memory_region(memory, size);
  } else {
    __asan_poison_memory_region(memory, size);
  }
#endif
}

struct GivesBackAtTheEnd {
  ~GivesBackAtTheEnd() {
    kept.life = Life::ends;
    ::operator delete(std::exchange(kept.memory, nullptr));
  }
};

[[gnu::noinline]] void beginToKeep(Kept& own) {
  static thread_local const GivesBackAtTheEnd atTheEnd;
  own.life = Life::reads;
}

}  // namespace

std::span<char> KeptRoom::take(std::size_t size) {
  const std::size_t wanted = (size + kUnit - 1) / kUnit * kUnit;
  Kept& own = kept;
  // Much more than is wanted would be held for as long as the document.
  if (own.memory != nullptr && own.size >= wanted && own.size / 2 <= wanted) {
    allowUse(own.memory, own.size, true);
    return {std::exchange(own.memory, nullptr), own.size};
  }
  char* const memory = static_cast<char*>(::operator new(wanted));
  if (own.life == Life::hasReadNothing) beginToKeep(own);
  return {memory, wanted};
}

void KeptRoom::giveBack(void* memory, std::size_t size) noexcept {
  Kept& own = kept;
  if (own.life != Life::reads) return ::operator delete(memory);
  allowUse(memory, size, false);
  ::operator delete(std::exchange(own.memory, static_cast<char*>(memory)));
  own.size = size;
}

}  // namespace tks::value
