#pragma once

namespace tks::test {

/// Whether the library under test was built with the address or the thread sanitizer. They keep freed memory and slow
/// everything down: limits are wider, numbers of rounds smaller.
extern const bool kSanitized;

/// Whether it was the thread sanitizer.
extern const bool kThreadSanitized;

}  // namespace tks::test
