#pragma once

#include <string_view>

// The tables of docs/catalogue/, put into the program when it is built.

namespace tks::ctl::data {

extern const std::string_view kErrors;
extern const std::string_view kExplanations;
extern const std::string_view kLauncherCodes;
extern const std::string_view kLogTexts;
extern const std::string_view kOperations;
/// Number, name, when; from TKSError.h.
extern const std::string_view kReasons;
extern const std::string_view kStatuses;

}  // namespace tks::ctl::data
