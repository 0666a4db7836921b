#pragma once

#include <string_view>

namespace tks {

/// The method trace line, level 1: "[process:thread][class: method] line:number" of the place that calls it. The line
/// number comes from what all compilers have; std::source_location is still missing from some.
void trace(std::string_view className, std::string_view method, int line = __builtin_LINE());

}  // namespace tks
