#pragma once

#include <exception>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSValue.h>

namespace tks {

/// A text or value that appears in a log line with its personal data masked. Masks only when the line is wanted. Holds
/// a reference: for use as an argument of a log call only.
template <class T>
class Masked {
 public:
  explicit Masked(const T& value) : value_(value) {}
  std::string description() const {
    if constexpr (std::is_same_v<T, TKSError>) {
      // An error that was never written is an absent one.
      return value_ == TKSError() ? "(null)" : TKSILog::removeSensitiveInformation(value_.description());
    } else {
      return TKSILog::removeSensitiveInformation(value_);
    }
  }

 private:
  const T& value_;
};

inline Masked<std::string> masked(const std::string& text) { return Masked<std::string>(text); }
inline Masked<std::string_view> masked(const std::string_view& text) { return Masked<std::string_view>(text); }
inline Masked<TKSValue> masked(const TKSValue& value) { return Masked<TKSValue>(value); }
inline Masked<TKSError> masked(const TKSError& error) { return Masked<TKSError>(error); }
// A temporary would be gone by the time the line is made: keep it in a variable first.
Masked<std::string> masked(const std::string&& text) = delete;

/// Calls what the host installed. What it throws is caught and logged at level 8; an empty function is not called.
/// `name` names the callback in that line.
template <class Callback, class... Arguments>
void callHost(std::string_view name, const Callback& callback, Arguments&&... arguments) {
  if (!callback) return;
  try {
    callback(std::forward<Arguments>(arguments)...);
  } catch (const std::exception& exception) {
    TKSILog::logWithLevel(TKSILogLevelError, "Callback '%@' threw an exception: %@", name,
                          masked(std::string_view(exception.what())));
  } catch (...) {
    TKSILog::logWithLevel(TKSILogLevelError, "Callback '%@' threw an exception: %@", name, "unknown");
  }
}

/// Takes a callback out of its slot, so that it can be called once and what it installs itself stays.
template <class Callback>
Callback take(Callback& slot) {
  return std::exchange(slot, Callback());
}

}  // namespace tks
