#pragma once

#include "codesign/container/byte_source.h"
#include "codesign/container/digest.h"
#include "codesign/resources/property_list_handler.h"

namespace tks::codesign {

/// Reads a property list piece by piece: however large it is, memory holds one key or value at a time. The list of a
/// large bundle's resources has hundreds of thousands of entries, of which a tree would take a multiple of the file. (A
/// list in binary form is read as a whole, within the bounds of platform/property_lists.h.)
///
/// `hasher` takes in the whole source at the same time. False when the source is no property list; the handler may have
/// been told a part of it then.
bool readPropertyList(const ByteSource& source, Hasher& hasher, PropertyListHandler& handler);

}  // namespace tks::codesign
