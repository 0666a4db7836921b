#pragma once

#include <atomic>

#include "platform/archives.h"
#include "platform/assessment.h"
#include "platform/backend.h"
#include "platform/bundles.h"
#include "platform/channels.h"
#include "platform/child_processes.h"
#include "platform/clock.h"
#include "platform/download.h"
#include "platform/files.h"
#include "platform/json.h"
#include "platform/known_folders.h"
#include "platform/main_loop.h"
#include "platform/preferences.h"
#include "platform/property_lists.h"
#include "platform/running_applications.h"
#include "platform/signatures.h"
#include "platform/system_tools.h"
#include "platform/text.h"
#include "platform/this_process.h"
#include "platform/users_folders.h"

namespace tks::platform {

/// The one place through which the library reaches the system. The composition root fills each slot with the back end
/// of the system it is built for, on first use; back ends are never destroyed.
template <class Contract>
std::atomic<Contract*>& slot();

#define TKS_DECLARE(Contract) \
  template <>                 \
  std::atomic<Contract*>& slot<Contract>();
TKS_PLATFORM_CONTRACTS(TKS_DECLARE)
#undef TKS_DECLARE

/// The implementation in force. Ask at each use: a test may replace it.
template <class Contract>
Contract& get() {
  return *slot<Contract>().load(std::memory_order_acquire);
}

/// Puts another implementation in force for a scope, for tests. Scopes nest; they are entered and left on one thread.
template <class Contract>
class Replaced {
 public:
  explicit Replaced(Contract& replacement) : before_(slot<Contract>().exchange(&replacement)) {}
  ~Replaced() { slot<Contract>().store(before_); }
  Replaced(const Replaced&) = delete;
  Replaced& operator=(const Replaced&) = delete;

  /// The implementation that was in force before, for replacements that pass calls on.
  Contract& before() const { return *before_; }

 private:
  Contract* before_;
};

inline Archives& archives() { return get<Archives>(); }
inline Assessment& assessment() { return get<Assessment>(); }
inline MainLoop& mainLoop() { return get<MainLoop>(); }
inline BackgroundWork& backgroundWork() { return get<BackgroundWork>(); }
inline Bundles& bundles() { return get<Bundles>(); }
inline Channels& channels() { return get<Channels>(); }
inline ChildProcesses& childProcesses() { return get<ChildProcesses>(); }
inline Clock& clock() { return get<Clock>(); }
inline Download& download() { return get<Download>(); }
inline Files& files() { return get<Files>(); }
inline Json& json() { return get<Json>(); }
inline KnownFolders& knownFolders() { return get<KnownFolders>(); }
inline Preferences& preferences() { return get<Preferences>(); }
inline PropertyLists& propertyLists() { return get<PropertyLists>(); }
inline RunningApplications& runningApplications() { return get<RunningApplications>(); }
inline Signatures& signatures() { return get<Signatures>(); }
inline SystemTools& systemTools() { return get<SystemTools>(); }
inline Text& text() { return get<Text>(); }
inline ThisProcess& thisProcess() { return get<ThisProcess>(); }
inline UsersFolders& usersFolders() { return get<UsersFolders>(); }

}  // namespace tks::platform
