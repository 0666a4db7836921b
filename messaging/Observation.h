#pragma once

#include <tksinterface/TKSConversationObserver.h>

namespace tks::messaging {

/// Tells the observer of this process of an event; the time is filled in. Throws nothing, holds no lock. Any thread.
void tellObserver(TKSConversationEvent event) noexcept;

/// The same, at the cost of one load and one branch where nobody watches.
inline void observe(const TKSConversationEvent& event) noexcept {
  if (TKSConversationObserver::isObserving()) tellObserver(event);
}

}  // namespace tks::messaging
