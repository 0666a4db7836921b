#pragma once

#include <optional>
#include <string_view>

namespace tks::gnulinux {

/// The character that a reference of XML 1.0 (4.1, 4.6) stands for, named without "&" and ";": "amp", "#65", "#x41".
/// Nothing when it stands for none. A number is taken as it is, so the caller says which characters may be there.
std::optional<char32_t> xmlReference(std::string_view name);

}  // namespace tks::gnulinux
