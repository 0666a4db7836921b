#include <atomic>

#include "platform/backend.h"
#include "platform/platform.h"

// The only place that joins the contracts to a back end. Which back end is linked is the build's choice.

namespace tks::platform {

#define TKS_DEFINE_SLOT(Contract)                                \
  template <>                                                    \
  std::atomic<Contract*>& slot<Contract>() {                     \
    static std::atomic<Contract*> inForce{&backend<Contract>()}; \
    return inForce;                                              \
  }
TKS_PLATFORM_CONTRACTS(TKS_DEFINE_SLOT)
#undef TKS_DEFINE_SLOT

}  // namespace tks::platform
