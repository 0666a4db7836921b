#include "foundation/values/KeptRoom.h"

#include <new>
#include <utility>

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
    return {std::exchange(own.memory, nullptr), own.size};
  }
  char* const memory = static_cast<char*>(::operator new(wanted));
  if (own.life == Life::hasReadNothing) beginToKeep(own);
  return {memory, wanted};
}

void KeptRoom::giveBack(void* memory, std::size_t size) noexcept {
  Kept& own = kept;
  if (own.life != Life::reads) return ::operator delete(memory);
  ::operator delete(std::exchange(own.memory, static_cast<char*>(memory)));
  own.size = size;
}

}  // namespace tks::value
