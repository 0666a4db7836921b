#include <tksinterface/TKSILog.h>

#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include <tksinterface/MaskSensitiveInformation.h>

#include "foundation/logging/HeldLines.h"

namespace {

using SharedBlock = std::shared_ptr<const TKSLogBlock>;

/// The installed callback. Its lock is held only while the pointer is copied, never while the callback runs. Lives as
/// long as the process: lines may still be logged while static objects are destroyed.
class InstalledBlock {
 public:
  SharedBlock get() {
    const std::scoped_lock lock(mutex_);
    return block_;
  }
  void set(SharedBlock block, std::atomic<bool>& listening) {
    const std::scoped_lock lock(mutex_);
    listening.store(block != nullptr, std::memory_order_relaxed);
    // What was installed before is released with the parameter, after the lock.
    block_.swap(block);
  }

 private:
  std::mutex mutex_;
  SharedBlock block_;
};

InstalledBlock& installedBlock() {
  static auto& block = *new InstalledBlock;
  return block;
}

/// How many lines deep a callback that logs again is served.
constexpr int kDeepestLine = 8;
thread_local int linesInDelivery = 0;

struct LineInDelivery {
  LineInDelivery() { ++linesInDelivery; }
  ~LineInDelivery() { --linesInDelivery; }
};

/// Hands a line to the host. `text` makes it, if there is a host to hand it to.
template <class Text>
void handOver(std::int32_t level, Text text) noexcept {
  if (linesInDelivery >= kDeepestLine) return;
  const LineInDelivery line;
  try {
    const SharedBlock block = installedBlock().get();
    if (block) (*block)(level, text());
  } catch (...) {
    // A log callback has nowhere left to report to.
  }
}

thread_local tks::HeldLines* innermostHeldLines = nullptr;

}  // namespace

tks::HeldLines::HeldLines() noexcept : outer_(std::exchange(innermostHeldLines, this)) {}

tks::HeldLines::~HeldLines() {
  innermostHeldLines = outer_;
  for (auto& [level, text] : lines_) {
    if (outer_ == nullptr) {
      handOver(level, [&text]() -> const std::string& { return text; });
      continue;
    }
    try {
      outer_->keep(level, std::move(text));
    } catch (const std::bad_alloc&) {
      // A line less.
    }
  }
}

tks::HeldLines* tks::HeldLines::current() noexcept { return innermostHeldLines; }

std::atomic<bool> TKSILog::listening_ = false;

TKSILog& TKSILog::sharedInstance() {
  static auto& log = *new TKSILog;
  return log;
}

TKSLogBlock TKSILog::logBlock() const {
  const SharedBlock block = installedBlock().get();
  return block ? *block : TKSLogBlock();
}

void TKSILog::setLogBlock(TKSLogBlock block) {
  installedBlock().set(block ? std::make_shared<const TKSLogBlock>(std::move(block)) : nullptr, listening_);
}

void TKSILog::deliver(std::int32_t level, std::string_view format, std::span<const tks::format::Argument> arguments) {
  tks::HeldLines* const held = tks::HeldLines::current();
  if (held == nullptr) return handOver(level, [&] { return tks::format::format(format, arguments); });
  try {
    held->keep(level, tks::format::format(format, arguments));
  } catch (...) {
    // Neither memory nor a description that throws may end what the line is about.
  }
}

std::string TKSILog::removeSensitiveInformation(std::string_view text) {
  return MaskSensitiveInformation::removeSensitiveInformation(text);
}

std::string TKSILog::removeSensitiveInformation(const std::string& text) {
  return removeSensitiveInformation(std::string_view(text));
}

std::string TKSILog::removeSensitiveInformation(const char* text) { return removeSensitiveInformation(TKSValue(text)); }

std::string TKSILog::removeSensitiveInformation(const TKSValue& object) {
  return object.isText() ? removeSensitiveInformation(object.text())
                         : removeSensitiveInformation(std::string_view(object.description()));
}

std::string TKSILog::addMask(std::string_view text) { return MaskSensitiveInformation::addMask(text); }

std::string TKSILog::addMask(const std::string& text) { return addMask(std::string_view(text)); }

std::string TKSILog::addMask(const char* text) { return addMask(TKSValue(text)); }

std::string TKSILog::addMask(const TKSValue& object) {
  return object.isText() ? addMask(object.text()) : addMask(std::string_view(object.description()));
}
