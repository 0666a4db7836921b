#pragma once

#include <cstdint>
#include <string_view>

#include <tksinterface/TKSValue.h>

#include "codesign/container/byte_source.h"
#include "codesign/container/digest.h"

namespace tks::codesign {

/// Told the parts of a property list as they come. Texts and data hold until the call returns.
class PropertyListHandler {
 public:
  virtual ~PropertyListHandler() = default;
  virtual void beginDictionary() = 0;
  virtual void endDictionary() = 0;
  virtual void beginArray() = 0;
  virtual void endArray() = 0;
  virtual void key(std::string_view text) = 0;
  virtual void text(std::string_view text) = 0;
  virtual void data(Bytes bytes) = 0;
  virtual void number(double value) = 0;
  virtual void boolean(bool value) = 0;
  /// A date.
  virtual void other() = 0;
};

/// Reads a property list piece by piece: however large it is, memory holds one key or value at a time. The list of a
/// large bundle's resources has hundreds of thousands of entries, of which a tree would take a multiple of the file. (A
/// list in binary form is read as a whole, within the bounds of platform/property_lists.h.)
///
/// `hasher` takes in the whole source at the same time. False when the source is no property list; the handler may have
/// been told a part of it then.
bool readPropertyList(const ByteSource& source, Hasher& hasher, PropertyListHandler& handler);

}  // namespace tks::codesign
