#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <tksinterface/TKSValue.h>

#include "tools/tksctl/frame/output.h"

namespace tks::ctl {

/// The names of the kinds of values that a word can be read as: text, boolean, integer, real, data (base64), date,
/// json.
const std::vector<std::string>& valueTypes();

/// A word as a value of a kind. Throws std::runtime_error when it is none.
TKSValue readTyped(const std::string& word, const std::string& type);

/// Shows a value: scalars as one line of text, arrays and dictionaries as JSON for people; with --json under "value".
void showValue(Output& out, const TKSValue& value);

/// The value under keys, of arrays by their numbers; nothing when there is none.
TKSValue valueAt(TKSValue value, const std::vector<std::string>& keys);

}  // namespace tks::ctl
