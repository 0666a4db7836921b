#pragma once

#include <string>
#include <string_view>

namespace tks::install {

/// A version as the installer takes it from a host: without white space around it, commas turned into points.
std::string givenVersion(std::string_view version);

/// A version as the installer compares it: without blanks anywhere, commas turned into points.
std::string comparableVersion(std::string_view version);

}  // namespace tks::install
