#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include <tksinterface/TKSValue.h>

#include "formats/property_list_bounds.h"

namespace tks::formats::property_list {

/// The XML form.
///
///   list     := <plist> value </plist>            a bare value is taken as well
///   value    := <dict> (<key> value)* </dict> | <array> value* </array> | <string> | <integer> | <real> | <true/> |
///               <false/> | <date> YYYY-MM-DDThh:mm:ssZ </date> | <data> base64 </data>
///
/// Texts may hold references to characters and to the five entities that XML itself has, and CDATA sections. Lists that
/// declare entities of their own are refused. Integers beyond -2^63 to 2^64-1 become reals.
///
/// Both return nothing on failure and say what is wrong.
TKSValue readXml(std::span<const std::uint8_t> content, Problem& problem);
/// The same, by the way that takes all forms: `readXml` takes it for what is not in the plain form.
TKSValue readXmlOfAnyForm(std::span<const std::uint8_t> content, Problem& problem);
std::optional<TKSData> writeXml(const TKSValue& value, Problem& problem);

}  // namespace tks::formats::property_list
