#include "interface/LaunchArguments.h"

#include <tksinterface/TKSFormat.h>
#include <tksinterface/TKSLaunchVocabulary.h>

namespace tks {
namespace {

constexpr std::string_view kWarmUp = "-warmup";

}  // namespace

LaunchArguments scanLaunchArguments(const std::vector<std::string>& arguments) {
  const std::string communicateName = formatted("-%@", TKSLaunchArgNameCommunicate);
  bool communicate = false;
  bool pipe = false;
  bool file = false;
  LaunchArguments scanned;
  for (const std::string& argument : arguments) {
    scanned.warmUp = scanned.warmUp || argument == kWarmUp;
    communicate = communicate || argument == communicateName;
    pipe = pipe || argument == TKSLaunchArgValueCommunicatePipe;
    file = file || argument == TKSLaunchArgValueCommunicateFile;
  }
  scanned.wantsPipe = communicate && pipe;
  scanned.wantsFile = communicate && file;
  return scanned;
}

}  // namespace tks
