#pragma once

/// Every contract, for what has to be said once per contract.
#define TKS_PLATFORM_CONTRACTS(each)                                                                                 \
  each(Archives) each(Assessment) each(BackgroundWork) each(Bundles) each(Channels) each(ChildProcesses) each(Clock) \
      each(Download) each(Files) each(Json) each(KnownFolders) each(MainLoop) each(Preferences) each(PropertyLists)  \
          each(RunningApplications) each(Signatures) each(SystemTools) each(Text) each(ThisProcess) each(UsersFolders)

namespace tks::platform {

#define TKS_DECLARE(Contract) class Contract;
TKS_PLATFORM_CONTRACTS(TKS_DECLARE)
#undef TKS_DECLARE

/// The back end's implementation of a contract, made on first use and never destroyed. Each back end defines it for
/// every contract, beside the implementation.
template <class Contract>
Contract& backend();

#define TKS_DECLARE(Contract) \
  template <>                 \
  Contract& backend<Contract>();
TKS_PLATFORM_CONTRACTS(TKS_DECLARE)
#undef TKS_DECLARE

}  // namespace tks::platform
