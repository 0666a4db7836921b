#pragma once

#include <string>

/// The processor's brand text as the system gives it, line end included; empty until isAppleSiliconDevice found it out.
/// Read it through TKSUtilBase::getDeviceInfo, which may be called from any thread.
extern std::string gDeviceCPUInfo;
