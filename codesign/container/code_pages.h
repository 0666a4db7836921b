#pragma once

#include "codesign/container/byte_source.h"
#include "codesign/container/code_directory.h"

namespace tks::codesign {

/// Compares the pages of code with the hashes of every directory, on several threads when there are many. The page size
/// and the limit are those of the best directory. Fails when a page does not match or is not there.
void checkPages(const ByteSource& code, const DirectorySet& directories);

}  // namespace tks::codesign
