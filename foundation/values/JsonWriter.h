#pragma once

#include <optional>
#include <string>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSValue.h>

namespace tks::json {

/// The JSON text of an array or dictionary: compact, members in byte order of their names, "/" and what is beyond ASCII
/// as they are, reals with the fewest digits that read back the same. Nesting of any depth is written without
/// recursion.
///
/// Nothing, and `error` (domain commonErrorDomain, code 0), for any other outermost value and for what JSON does not
/// have: nothing, data, dates, reals that are no finite number, and texts that are not UTF-8. Also when memory runs
/// out; see foundation/OutOfMemory.h. Any thread.
std::optional<std::string> write(const TKSValue& value, TKSError* error = nullptr);

/// The same, appended to `out`; on failure `out` stays as it was.
bool append(const TKSValue& value, std::string& out, TKSError* error);

}  // namespace tks::json
