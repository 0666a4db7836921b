#pragma once

#include <string_view>

#include <tksinterface/TKSValue.h>

// Lists in XML as nearly all of them are.

namespace tks::formats::property_list {

/// Reads a list in the plain form, in one pass over its text:
///
///   list    := declaration? doctype? "<plist version="1.0">" value "</plist>"    the first three as everybody writes
///   value   := "<dict>" ("<key>" text "</key>" value)* "</dict>" | "<array>" value* "</array>" |
///              "<string>" text "</string>" | ...                                  tags without attributes and blanks
///
/// with blanks between the tags, and references in texts and keys. False, and no value, for everything else: for a list
/// that is written in another way, and for one that is not in order. `readXml` reads and judges those; of the lists
/// that are read here it would make the same. Throws std::bad_alloc.
bool readPlainXml(std::string_view list, TKSValue& value);

}  // namespace tks::formats::property_list
