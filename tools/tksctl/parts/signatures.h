#pragma once

#include <string>

#include <tksinterface/TKSValue.h>

namespace tks::ctl {

/// All that can be said of the signature at a path, as `verify --json` prints it: status, statusText, concerns, added,
/// altered, missing, maker, makerText, identifier, format, architectures, flags, team, chain, timeStamp and so on.
TKSDictionary signatureReport(const std::string& path, bool deep);

}  // namespace tks::ctl
