#pragma once

#include <string_view>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSValue.h>

namespace tks::platform {

/// The preferences of this process: the argument domain (pairs "-Name value" of its command line, values are texts)
/// over its own domain over the global domain. macOS: NSUserDefaults. Linux: property lists in the real home's
/// Library/Preferences. Any thread; several processes may write at once without losing each other's keys.
class Preferences {
 public:
  virtual ~Preferences() = default;
  /// All values, merged.
  virtual TKSDictionary dictionaryRepresentation() = 0;
  /// One value, searched in the three domains; nothing when absent.
  virtual TKSValue value(std::string_view key) = 0;
  /// One value of the argument domain alone; nothing when absent.
  virtual TKSValue argument(std::string_view key) = 0;
  /// Stores a value in the process's own domain; nothing removes the key. False, and `error`, when it cannot be stored.
  virtual bool set(std::string_view key, const TKSValue& value, TKSError* error) = 0;
};

}  // namespace tks::platform
