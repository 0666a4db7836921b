#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include <tksinterface/TKSExport.h>
#include <tksinterface/TKSFormat.h>
#include <tksinterface/TKSValue.h>

/// Log levels as they reach the host's callback; each is a bit of its own.
inline constexpr std::int32_t TKSILogLevelTrace = 1;    ///< entry to an operation
inline constexpr std::int32_t TKSILogLevelInfo = 2;     ///< normal progress
inline constexpr std::int32_t TKSILogLevelWarning = 4;  ///< recoverable failures
inline constexpr std::int32_t TKSILogLevelError = 8;    ///< failures that end an operation

/// The host's log callback: a level and a complete line without line end, prefix or time stamp. Called on whichever
/// thread logs, also from several threads at once, and never with a lock held. What it throws is dropped.
using TKSLogBlock = std::function<void(std::int32_t level, const std::string& message)>;

/// Where every component of the library reports to: one callback that the host installs. Without it all lines are
/// dropped, at the cost of one load and one branch each. All operations may be called from any thread.
class TKS_EXPORT TKSILog {
 public:
  /// The process-wide instance.
  static TKSILog& sharedInstance();

  /// The installed callback; empty when there is none.
  TKSLogBlock logBlock() const;
  /// Installs the host's callback; an empty one drops all further lines. A line that is being delivered while the
  /// callback is replaced still reaches the old one, which is kept alive until it returns.
  void setLogBlock(TKSLogBlock block);

  /// `logWithLevel:format:` Formats a line and hands it to the callback, if there is one. Nothing is formatted
  /// otherwise. The text is not masked here. A callback that logs again is served up to eight lines deep.
  template <class... Arguments>
  static void logWithLevel(std::int32_t level, tks::format::Checked<std::type_identity_t<Arguments>...> format,
                           const Arguments&... arguments) {
    if (!listening_.load(std::memory_order_relaxed)) return;
    if constexpr (sizeof...(Arguments) == 0) {
      deliver(level, format.text(), {});
    } else {
      const tks::format::Argument list[] = {tks::format::Argument(arguments)...};
      deliver(level, format.text(), list);
    }
  }

  /// Whether a callback is installed, for callers that would have to prepare something just for a line.
  static bool isListening() noexcept { return listening_.load(std::memory_order_relaxed); }

  /// `removeSensitiveInformation:` The text, or the description of another value, with personal data masked.
  static std::string removeSensitiveInformation(std::string_view text);
  /// @copydoc removeSensitiveInformation(std::string_view)
  static std::string removeSensitiveInformation(const std::string& text);
  /// @copydoc removeSensitiveInformation(std::string_view)
  static std::string removeSensitiveInformation(const char* text);
  /// @copydoc removeSensitiveInformation(std::string_view)
  static std::string removeSensitiveInformation(const TKSValue& object);

  /// `addMask:` The text, or the description of another value, masked but for its first three bytes.
  static std::string addMask(std::string_view text);
  /// @copydoc addMask(std::string_view)
  static std::string addMask(const std::string& text);
  /// @copydoc addMask(std::string_view)
  static std::string addMask(const char* text);
  /// @copydoc addMask(std::string_view)
  static std::string addMask(const TKSValue& object);

 private:
  TKSILog() = default;
  static void deliver(std::int32_t level, std::string_view format, std::span<const tks::format::Argument> arguments);

  static std::atomic<bool> listening_;
};
