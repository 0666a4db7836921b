#include <tksinterface/TKSConversationObserver.h>

#include <utility>

#include "foundation/values/InstalledCallback.h"
#include "messaging/Observation.h"
#include "platform/platform.h"

namespace {

tks::InstalledCallback<TKSConversationObserver::Block>& installedObserver() {
  static auto& observer = *new tks::InstalledCallback<TKSConversationObserver::Block>;
  return observer;
}

thread_local int eventsInDelivery = 0;

}  // namespace

std::atomic<bool> TKSConversationObserver::observing_ = false;

void TKSConversationObserver::observe(Block block) { installedObserver().set(std::move(block), observing_); }

TKSConversationObserver::Block TKSConversationObserver::observer() { return installedObserver().copy(); }

void tks::messaging::tellObserver(TKSConversationEvent event) noexcept {
  const CallDepth depth(eventsInDelivery);
  if (!depth.isServed()) return;
  try {
    const auto observer = installedObserver().get();
    if (!observer) return;
    event.time = std::chrono::steady_clock::now();
    event.secondsSince1970 = platform::clock().secondsSince1970();
    (*observer)(event);
  } catch (...) {
    // Who only watches has no say in what happens.
  }
}
