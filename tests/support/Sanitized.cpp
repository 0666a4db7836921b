#include "tests/support/Sanitized.h"

#if defined(__has_feature)
#define TKS_HAS_FEATURE(feature) __has_feature(feature)
#else
#define TKS_HAS_FEATURE(feature) 0
#endif

namespace tks::test {

#if defined(__SANITIZE_THREAD__) || TKS_HAS_FEATURE(thread_sanitizer)
constexpr bool kThreadSanitized = true;
#else
constexpr bool kThreadSanitized = false;
#endif

#if defined(__SANITIZE_ADDRESS__) || TKS_HAS_FEATURE(address_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = kThreadSanitized;
#endif

}  // namespace tks::test
