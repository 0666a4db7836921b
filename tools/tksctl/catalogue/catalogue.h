#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tksinterface/TKSValue.h>

namespace tks::ctl {

/// What is known of an error, a status of a signature, a line of the log. The data is that of docs/catalogue/, from
/// which docs/errors.md is made.
struct Explanation {
  /// "error", "log line", "signature status", "launcher's code", "reason" or "exit code"
  std::string kind{};
  /// The text as the library has it, with "%@" and so on for what differs, or the status's own text.
  std::string text{};
  std::string domain{};
  std::optional<std::int64_t> code{};
  /// Of a log line: "info", "warning" or "error".
  std::string level{};
  std::string operation{};
  std::string reason{};
  std::string meaning{};
  std::string remedy{};

  TKSDictionary document() const;
};

/// What a code, a text, a line of the log or a whole error means; the best fit first, then what stands inside of it.
/// Empty when nothing is known.
std::vector<Explanation> explain(std::string_view query);

/// All that can be explained, for tests and pages.
const std::vector<Explanation>& catalogue();

/// The explanation of a signature's status; its meaning is empty when it has none.
Explanation explainStatus(std::int64_t status);

/// Whether a text is what a format text of the library makes; `held` are the texts in place of its conversions.
bool isMadeFrom(std::string_view format, std::string_view text, std::vector<std::string>& held);

}  // namespace tks::ctl
