#include <tksinterface/TKSVersion.h>

namespace {

#define TKS_TEXT_OF(number) #number
#define TKS_DOTTED(major, minor, patch) TKS_TEXT_OF(major) "." TKS_TEXT_OF(minor) "." TKS_TEXT_OF(patch)
constexpr std::string_view kText = TKS_DOTTED(TKS_VERSION_MAJOR, TKS_VERSION_MINOR, TKS_VERSION_PATCH);
#undef TKS_DOTTED
#undef TKS_TEXT_OF

/// Versions with the same line are compatible.
constexpr std::int32_t lineOf(std::int32_t version) {
  const std::int32_t major = version / 1000000;
  return major > 0 ? major * 1000 : version / 1000;
}

}  // namespace

std::int32_t TKSVersion::number() noexcept { return TKS_VERSION; }

std::string_view TKSVersion::text() noexcept { return kText; }

bool TKSVersion::isCompatible(std::int32_t headers) noexcept {
  return lineOf(headers) == lineOf(TKS_VERSION) && headers <= TKS_VERSION;
}
