#pragma once

#include <string_view>

#include "codesign/container/byte_source.h"

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

}  // namespace tks::codesign
