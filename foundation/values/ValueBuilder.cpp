#include "foundation/values/ValueBuilder.h"

#include <algorithm>

namespace tks::value {

List* Builder::makeOpenList(TKSValue::Kind kind, std::size_t capacity) {
  if (capacity > kMostValues) throw std::bad_alloc();
  return new (block_.allocate(sizeof(List) + capacity * sizeof(TKSValue))) List(kind, capacity, nullptr);
}

void Builder::enlarge() {
  constexpr std::size_t kSmallest = 8;
  if (open_ == nullptr) {  // a second outermost value: takes the place of the first
    position_ = &root_;
    return;
  }
  const std::size_t size = open_->capacity;
  List* const larger = makeOpenList(open_->kind, std::max(2 * size, kSmallest));
  std::memcpy(static_cast<void*>(larger->values()), static_cast<const void*>(open_->values()), size * sizeof(TKSValue));
  List* const outer = static_cast<List*>(open_->next);
  larger->next = outer;
  Access::setNode(outer != nullptr ? outer->values()[outer->size - 1] : root_, larger->kind, larger);
  open_ = larger;
  position_ = larger->values() + size;
  limit_ = larger->values() + larger->capacity;
}

}  // namespace tks::value
