#pragma once

#include <string>

namespace tks::benchmarks {

// Rows "peer/ROW/NAME": what other libraries take for the same as "ours/ROW". Without the packages
// (scripts/install-packages benchmark) these add nothing.

/// Boost.JSON and RapidJSON read and write a text of JSON: rows "json_read_SIZE" and "json_write_SIZE".
void addJsonPeers(const std::string& size, const std::string& text);

/// A bare scan of Hyperscan for the marks of the masking rules, which finds and masks nothing: row "masking_NAME".
void addMaskingPeers(const std::string& name, const std::string& text);

}  // namespace tks::benchmarks
