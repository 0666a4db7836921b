#include "platform/assessment.h"

#include <utility>

#include "platform/backend.h"
#include "platform/system_tools.h"

namespace tks::platform {
namespace {

class AppleAssessment final : public Assessment {
 public:
  assessment::Verdict run(const std::vector<std::string>& arguments) noexcept override {
    try {
      ToolRequest request{Tool::spctl, arguments};
      request.collectStandardError = true;
      ToolResult result = backend<SystemTools>().run(request);
      if (!result.started || result.cutShort) return {assessment::kNoVerdict, {}};
      return {result.exitCode, std::move(result.output)};
    } catch (...) {
      return {assessment::kNoVerdict, {}};
    }
  }
};

}  // namespace

template <>
Assessment& backend<Assessment>() {
  static auto& assessment = *new AppleAssessment;
  return assessment;
}

}  // namespace tks::platform
