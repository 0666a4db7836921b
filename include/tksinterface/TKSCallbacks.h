#pragma once

#include <cstdint>
#include <functional>

#include <tksinterface/TKSError.h>

/// State of the launcher as this process knows it.
enum TKSIAppStatus : std::int32_t {
  TKSI_APP_STATUS_UNCONNECTED = 1,  ///< no launcher connected; initial value
  TKSI_APP_STATUS_STARTING = 2,     ///< the launcher is being started and greeted
  TKSI_APP_STATUS_CONNECTED = 3,    ///< the greeting was answered; the launcher waits
  TKSI_APP_STATUS_LAUNCHING = 4,    ///< the launcher works on a launch request
};

/// Callbacks. An empty function is an absent callback. All are called on the main thread; what they throw is caught and
/// logged at level 8.
using TKSFinishBlock = std::function<void()>;
using TKSErrorBlock = std::function<void(const TKSError& error)>;
/// Called with the process identifier of each launcher that this library starts.
using TKSPidBlock = std::function<void(std::int32_t pid)>;
using TKSNotifyStatusBlock = std::function<void(TKSIAppStatus status)>;
using TKSQueryStatusBlock = std::function<TKSIAppStatus()>;
