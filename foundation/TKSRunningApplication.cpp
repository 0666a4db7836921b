#include <tksinterface/TKSFormat.h>
#include <tksinterface/TKSRunningApplication.h>

std::string TKSRunningApplication::description() const {
  return tks::formatted("pid: %d, path: %@", processIdentifier, bundlePath);
}
